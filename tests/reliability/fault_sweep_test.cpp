// Every read and every write of a realistic session fails (or comes short)
// once, in turn: each call reports its failure value, nothing crashes or
// leaks, and afterwards the container opens with everything that was
// finished before the fault.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "platform/fault_files.h"
#include "session.h"
#include "support/temp_dir.h"

namespace {

using ao::platform::FaultFiles;
using ao::test::Promise;

struct SweepCounts {
  int runs = 0;
  int faultsHit = 0;
};

// The container after a clean first round, as bytes to start every run from.
std::vector<unsigned char> BaseContainer(const std::string& path, std::vector<Promise>& promises) {
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  EXPECT_NE(storage, nullptr);
  for (const auto& step : ao::test::MakeSession(0)) {
    EXPECT_TRUE(step.run(*storage)) << step.what;
    promises.insert(promises.end(), step.promises.begin(), step.promises.end());
  }
  storage->Release();
  return ao::test::ReadWholeFile(path);
}

enum class Target { kWrite, kShortWrite, kRead };

void RunWithFault(const std::string& path, const std::vector<unsigned char>& base, std::vector<Promise> kept,
                  Target target, int64_t nth, SweepCounts& counts) {
  ao::test::WriteWholeFile(path, base);
  // The container is opened before the faults begin: a root directory that
  // cannot be read makes Open remove the file, as it must.
  aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
  ASSERT_NE(storage, nullptr);
  {
    ao::platform::ScopedFaultFiles faults;
    if (target == Target::kRead) {
      faults->FailRead(nth);
    } else {
      faults->FailWrite(nth, target == Target::kWrite ? FaultFiles::Fault::kFail : FaultFiles::Fault::kShort);
    }
    for (const auto& step : ao::test::MakeSession(1)) {
      const bool ok = step.run(*storage);
      if (faults->faults() == 0) {
        ASSERT_TRUE(ok) << step.what << " failed without a fault";
        kept.insert(kept.end(), step.promises.begin(), step.promises.end());
      }
    }
    storage->Release();
    counts.faultsHit += faults->faults() > 0;
  }
  ++counts.runs;
  aoStorage* reopened = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
  ASSERT_NE(reopened, nullptr) << "fault at call " << nth;
  for (const Promise& promise : kept) {
    const std::string problem = ao::test::CheckPromise(*reopened, promise);
    EXPECT_EQ(problem, "") << "fault at call " << nth;
  }
  reopened->Release();
}

TEST(IoFaults, EachCallOfASessionFailsInTurn) {
  ao::test::TempDir dir;
  const std::string path = dir.File("faults.dat");
  std::vector<Promise> promises;
  const auto base = BaseContainer(path, promises);

  // Count the calls of a clean second round.
  int64_t reads = 0, writes = 0;
  {
    ao::test::WriteWholeFile(path, base);
    aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
    ASSERT_NE(storage, nullptr);
    ao::platform::ScopedFaultFiles counter;
    for (const auto& step : ao::test::MakeSession(1)) ASSERT_TRUE(step.run(*storage)) << step.what;
    storage->Release();
    reads = counter->reads();
    writes = counter->writes();
  }
  ASSERT_GT(reads, 50);
  ASSERT_GT(writes, 200);

  SweepCounts counts;
  for (int64_t nth = 1; nth <= writes; ++nth) {
    RunWithFault(path, base, promises, Target::kWrite, nth, counts);
    RunWithFault(path, base, promises, Target::kShortWrite, nth, counts);
    if (HasFatalFailure()) return;
  }
  for (int64_t nth = 1; nth <= reads; ++nth) {
    RunWithFault(path, base, promises, Target::kRead, nth, counts);
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(counts.faultsHit, counts.runs);
  RecordProperty("runs", counts.runs);
  std::printf("fault sweep: %lld reads, %lld writes, %d runs with a fault\n", static_cast<long long>(reads),
              static_cast<long long>(writes), counts.faultsHit);
}

}  // namespace
