// CTestVastrel: the built-in write stress test.
#ifndef AOSTORE_STRESS_H
#define AOSTORE_STRESS_H

#include <cstdint>
#include <string>
#include <vector>

#include "aostore/export.h"

class aoStream;
namespace ao::stress {
struct Pass;
}

// Many threads, each with its own container object on one test file, create
// streams and folders and write 1 MiB each at the same moment; the file is
// then reopened, every stream read back, and the file removed. The whole test
// runs inside the constructor.
//
// In each pass, threads 0 .. threads/2 write the stream "<n>" into the root
// folder "Folder0" (even n) or "Folder1" (odd n), the first half of them
// preallocating the stream in one 1 MiB block; the other threads write root
// streams "<n>". Every byte i of a stream holds 'A' + (i & 63).
class AOSTORE_API CTestVastrel {
 public:
  // The full test on the fixed test file (GetDefaultPath()): 100 passes of
  // 224 threads, released together after 5 s; the bytes read back are not
  // compared. It runs for many minutes and writes 224 MiB per pass.
  CTestVastrel();
  // A test shaped by the caller: passes of threadsPerPass threads, released
  // startDelayMs after they were started. With verify, every stream read back
  // is compared byte for byte with what was written, and the streams that
  // differ or are missing are reported by the accessors below.
  CTestVastrel(const char* path, int passes, int threadsPerPass, uint32_t startDelayMs, bool verify);
  ~CTestVastrel();
  CTestVastrel(const CTestVastrel&) = default;
  // Does nothing: a test's results stay with the object that ran it.
  CTestVastrel& operator=(const CTestVastrel& other);

  // "D:\VastrelWriteTest.dat" on Windows; elsewhere the file of that name in
  // the system's folder for temporary files.
  static std::string GetDefaultPath();

  // ---- Results (over all passes).
  int GetPassesRun() const { return m_passesRun; }
  // Threads that could not write their whole stream: no container, no
  // stream, a short write, or no thread at all.
  int64_t GetWritersFailed() const { return m_writersFailed; }
  // Verifying runs only: streams compared, and those not found or whose
  // bytes or length differ from what was written.
  int64_t GetStreamsChecked() const { return m_streamsChecked; }
  int64_t GetStreamsMissing() const { return m_streamsMissing; }
  int64_t GetStreamsDiffering() const { return m_streamsDiffering; }
  // One line per bad stream, e.g. "pass 2: Folder1/37 missing".
  const std::vector<std::string>& GetProblems() const { return m_problems; }

 private:
  void Run(const std::string& path, int passes, int threadsPerPass, uint32_t startDelayMs, bool verify);
  void RunPass(ao::stress::Pass& pass, uint32_t startDelayMs, unsigned char* readBuffer);
  // One writer: opens its own container on the test file and writes its stream.
  static void WriteStream(ao::stress::Pass& pass, int n);
  // Gives a stream without blocks its first block of size bytes, so that its
  // data is laid out in one piece.
  static void Preallocate(aoStream& stream, int64_t size);
  void ReadBack(const ao::stress::Pass& pass, unsigned char* readBuffer);
  void NoteProblem(const ao::stress::Pass& pass, int n, const std::string& what);

  int m_passesRun = 0;
  int64_t m_writersFailed = 0;
  int64_t m_streamsChecked = 0;
  int64_t m_streamsMissing = 0;
  int64_t m_streamsDiffering = 0;
  std::vector<std::string> m_problems;
};

#endif  // AOSTORE_STRESS_H
