// CTestVastrel: passes of simultaneous writers on one container file, each
// followed by a read-back and the removal of the file.
#include <chrono>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "aostore/stress.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "platform/paths.h"
#include "stress/pass.h"

namespace stress = ao::stress;

namespace {

struct BlockDeleter {
  void operator()(unsigned char* block) const { ao::platform::FreeBlock(block); }
};
using Block = std::unique_ptr<unsigned char, BlockDeleter>;

Block AllocateStreamBuffer() {
  return Block(static_cast<unsigned char*>(ao::platform::AllocZeroed(static_cast<size_t>(stress::kStreamBytes))));
}

void Sleep(uint32_t milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

}  // namespace

CTestVastrel::CTestVastrel() {
  Run(GetDefaultPath(), stress::kDefaultPasses, stress::kDefaultThreads, stress::kDefaultStartDelayMs, false);
}

CTestVastrel::CTestVastrel(const char* path, int passes, int threadsPerPass, uint32_t startDelayMs, bool verify) {
  if (path != nullptr) Run(path, passes, threadsPerPass, startDelayMs, verify);
}

CTestVastrel::~CTestVastrel() = default;

CTestVastrel& CTestVastrel::operator=(const CTestVastrel& other) {
  (void)other;
  return *this;
}

std::string CTestVastrel::GetDefaultPath() {
#if defined(_WIN32)
  // A fixed drive, on purpose: where it does not exist the test only waits
  // and counts.
  return "D:\\VastrelWriteTest.dat";
#else
  return ao::platform::JoinPath(ao::platform::TempDirectory(), "VastrelWriteTest.dat");
#endif
}

void CTestVastrel::Run(const std::string& path, int passes, int threadsPerPass, uint32_t startDelayMs,
                       bool verify) {
  // One write buffer shared read-only by every writer, and the read buffer
  // of the read-back.
  Block pattern = AllocateStreamBuffer();
  Block readBuffer = AllocateStreamBuffer();
  if (!pattern || !readBuffer) return;
  stress::FillPattern(pattern.get(), stress::kStreamBytes);
  const int threads = threadsPerPass > 0 ? threadsPerPass : 0;
  for (int number = 1; number <= passes; ++number) {
    stress::Pass pass(path, number, threads, pattern.get(), verify);
    RunPass(pass, startDelayMs, readBuffer.get());
    ++m_passesRun;
  }
}

void CTestVastrel::RunPass(stress::Pass& pass, uint32_t startDelayMs, unsigned char* readBuffer) {
  std::vector<std::thread> writers;
  try {
    writers.reserve(static_cast<size_t>(pass.threads));
    for (int n = 0; n < pass.threads; ++n) writers.emplace_back(&CTestVastrel::WriteStream, std::ref(pass), n);
  } catch (const std::exception&) {
    // The system gave fewer threads than asked: the pass runs with those.
  }
  const auto started = static_cast<int32_t>(writers.size());
  Sleep(startDelayMs);
  pass.start.count_down();  // all writers start together
  while (pass.finished.load() < started) Sleep(stress::kPollMs);
  for (std::thread& writer : writers) writer.join();
  m_writersFailed += pass.failed.load() + (pass.threads - started);

  ReadBack(pass, readBuffer);
  // Removed whether or not the read-back could open it, so that every pass
  // starts without a file.
  ao::platform::Files().Delete(pass.path.c_str());
}
