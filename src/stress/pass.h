// The shape of one pass of the write stress test, shared by its writer
// threads and the read-back.
#ifndef AOSTORE_STRESS_PASS_H
#define AOSTORE_STRESS_PASS_H

#include <atomic>
#include <cstdint>
#include <latch>
#include <string>
#include <utility>

namespace ao::stress {

inline constexpr int64_t kStreamBytes = 0x100000;  // 1 MiB per stream
inline constexpr int64_t kChunkBytes = 16384;      // written in 64 pieces
inline constexpr int kDefaultPasses = 100;
inline constexpr int kDefaultThreads = 224;
inline constexpr uint32_t kDefaultStartDelayMs = 5000;
inline constexpr uint32_t kPollMs = 100;

// Byte i of every stream: the 64 character codes from 'A' on, repeating.
void FillPattern(unsigned char* buffer, int64_t size);

struct Pass {
  Pass(std::string testPath, int passNumber, int threadCount, const unsigned char* bytes, bool compare)
      : path(std::move(testPath)),
        number(passNumber),
        threads(threadCount),
        // 224 threads give 113 folder writers (0 .. 112) of which 57 (0 .. 56)
        // preallocate.
        folderThreads(threadCount / 2 + 1 < threadCount ? threadCount / 2 + 1 : threadCount),
        preallocating((folderThreads + 1) / 2),
        pattern(bytes),
        verify(compare) {}

  bool InFolder(int n) const { return n < folderThreads; }
  bool Preallocates(int n) const { return n < preallocating; }
  static std::string StreamName(int n) { return std::to_string(n); }
  static std::string FolderName(int n) { return "Folder" + std::to_string(n % 2); }
  // "Folder0/12" or "150": where stream n lives.
  std::string Describe(int n) const { return InFolder(n) ? FolderName(n) + "/" + StreamName(n) : StreamName(n); }

  const std::string path;
  const int number;  // 1-based, for reports
  const int threads;
  const int folderThreads;
  const int preallocating;
  const unsigned char* const pattern;  // kStreamBytes, read by every writer
  const bool verify;
  std::latch start{1};               // opened once for all writers together
  std::atomic<int32_t> finished{0};  // each writer's last act
  std::atomic<int32_t> failed{0};
};

}  // namespace ao::stress

#endif  // AOSTORE_STRESS_PASS_H
