// The write stress test at small sizes, and many threads reading different
// streams of one container at the same time.
#include <gtest/gtest.h>

#include <algorithm>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "aostore/aostore.h"
#include "platform/fault_files.h"
#include "support/temp_dir.h"

namespace {

using ao::test::FileExists;
using ao::test::Pattern;
using ao::test::TempDir;
using Bytes = std::vector<unsigned char>;

TEST(WriteStress, AVerifyingRunFindsEveryByteAndNoRunLeavesAFile) {
  TempDir dir;
  const std::string path = dir.File("stress.dat");
  CTestVastrel run(path.c_str(), 3, 32, 0, true);
  EXPECT_EQ(run.GetPassesRun(), 3);
  EXPECT_EQ(run.GetWritersFailed(), 0);
  EXPECT_EQ(run.GetStreamsChecked(), 3 * 32);
  EXPECT_EQ(run.GetStreamsMissing(), 0);
  EXPECT_EQ(run.GetStreamsDiffering(), 0);
  for (const std::string& problem : run.GetProblems()) ADD_FAILURE() << problem;
  EXPECT_FALSE(FileExists(path));
  // Without verifying nothing is compared.
  CTestVastrel plain(path.c_str(), 1, 6, 20, false);
  EXPECT_EQ(plain.GetPassesRun(), 1);
  EXPECT_EQ(plain.GetWritersFailed(), 0);
  EXPECT_EQ(plain.GetStreamsChecked(), 0);
  EXPECT_TRUE(plain.GetProblems().empty());
  EXPECT_FALSE(FileExists(path));
}

TEST(WriteStress, WritersWithoutAContainerStillEndThePass) {
  TempDir dir;
  // No writer can create a file in a folder that does not exist.
  const std::string path = dir.File("missing") + "/stress.dat";
  CTestVastrel run(path.c_str(), 2, 8, 0, true);
  EXPECT_EQ(run.GetPassesRun(), 2);
  EXPECT_EQ(run.GetWritersFailed(), 16);
  EXPECT_EQ(run.GetStreamsChecked(), 16);
  EXPECT_EQ(run.GetStreamsMissing(), 16);
  EXPECT_EQ(run.GetStreamsDiffering(), 0);
  // Writers 0 .. 4 of 8 use the two folders by parity, the rest the root.
  ASSERT_EQ(run.GetProblems().size(), 16u);
  EXPECT_EQ(run.GetProblems()[0], "pass 1: Folder0/0 missing");
  EXPECT_EQ(run.GetProblems()[3], "pass 1: Folder1/3 missing");
  EXPECT_EQ(run.GetProblems()[4], "pass 1: Folder0/4 missing");
  EXPECT_EQ(run.GetProblems()[5], "pass 1: 5 missing");
  EXPECT_EQ(run.GetProblems()[15], "pass 2: 7 missing");
}

TEST(WriteStress, EveryWriterThatFailedIsReportedByTheReadBack) {
  TempDir dir;
  const std::string path = dir.File("faulty.dat");
  ao::platform::ScopedFaultFiles faults;
  // One writer, so that the nth write is the same at every run; from it on
  // the device refuses every write.
  for (int64_t nth : {1, 2, 3, 4, 6, 9, 14, 20, 30, 45, 70, 100, 1000000}) {
    faults->FailWritesFrom(nth);
    CTestVastrel run(path.c_str(), 1, 1, 0, true);
    faults->Disarm();
    EXPECT_EQ(run.GetStreamsMissing() + run.GetStreamsDiffering(), run.GetWritersFailed()) << "from write " << nth;
    if (nth == 1000000) {
      EXPECT_EQ(run.GetWritersFailed(), 0);
    }
    if (nth <= 2) {
      EXPECT_EQ(run.GetStreamsMissing(), 1) << "from write " << nth;
    }
    EXPECT_FALSE(FileExists(path)) << "from write " << nth;
  }
}

// Streams of one container, opened by one thread and then read by many at
// once: reads keep their own positions and take no lock. Written in turns,
// every stream is a chain of many blocks, so this is also the test that
// interleaved chains read back exactly after a reopen.
class ConcurrentReaders : public ::testing::TestWithParam<bool> {
 protected:
  static constexpr int kStreams = 24;
  static constexpr size_t kChunk = 8192;

  static size_t SizeOf(int n) { return 150000 + static_cast<size_t>(n) * 7919; }
  static std::string Name(int n) { return "s" + std::to_string(n); }

  // Half the streams at the root, half in two folders; written a chunk at a
  // time in turn, so that every chain has many blocks.
  void Build(const std::string& path) {
    aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
    ASSERT_NE(storage, nullptr);
    aoStream* folders[2] = {storage->CreateStream("even", 1, kAoModeEdit), storage->CreateStream("odd", 1, kAoModeEdit)};
    ASSERT_NE(folders[0], nullptr);
    ASSERT_NE(folders[1], nullptr);
    std::vector<aoStream*> streams;
    for (int n = 0; n < kStreams; ++n) {
      aoStream* stream = n < kStreams / 2 ? storage->CreateStream(Name(n).c_str(), kAoModeEdit)
                                          : folders[n % 2]->CreateStream(Name(n).c_str(), 0, kAoModeEdit, 1);
      ASSERT_NE(stream, nullptr);
      streams.push_back(stream);
    }
    for (size_t at = 0; at < SizeOf(kStreams - 1); at += kChunk) {
      for (int n = 0; n < kStreams; ++n) {
        const Bytes& bytes = Expected(n);
        if (at >= bytes.size()) continue;
        const auto piece = static_cast<int64_t>(std::min(kChunk, bytes.size() - at));
        ASSERT_EQ(streams[n]->Write(&bytes[at], piece, false, nullptr), piece);
      }
    }
    for (aoStream* stream : streams) stream->Release();
    folders[0]->Release();
    folders[1]->Release();
    storage->Release();
  }

  const Bytes& Expected(int n) {
    if (expected_.empty())
      for (int i = 0; i < kStreams; ++i) expected_.push_back(Pattern(SizeOf(i), static_cast<uint32_t>(i) + 100));
    return expected_[static_cast<size_t>(n)];
  }

  // Reads the whole stream in uneven pieces, then a few places again after
  // seeks back and forth; the first mismatch is the result.
  static std::string ReadAndCheck(aoStream* stream, const Bytes& expected) {
    Bytes got(expected.size());
    size_t at = 0;
    for (size_t piece = 1; at < got.size(); piece = piece * 3 + 1) {
      const int64_t want = static_cast<int64_t>(std::min(piece % 20000 + 1, got.size() - at));
      if (stream->Read(&got[at], want) != want) return "short read at " + std::to_string(at);
      at += static_cast<size_t>(want);
    }
    if (got != expected) return "bytes differ";
    for (const int64_t position : {int64_t{100000}, int64_t{7}, static_cast<int64_t>(expected.size()) - 3, int64_t{65536}}) {
      if (stream->Seek2(position, 0) != 0 || stream->GetCurDataPos() != position)
        return "seek to " + std::to_string(position);
      unsigned char bytes[3] = {};
      if (stream->Read(bytes, 3) != 3 || !std::equal(bytes, bytes + 3, expected.begin() + position))
        return "bytes differ at " + std::to_string(position);
    }
    return "";
  }

  std::vector<Bytes> expected_;
};

TEST_P(ConcurrentReaders, EachThreadReadsItsOwnStreamIntact) {
  TempDir dir;
  const std::string path = dir.File("readers.dat");
  Build(path);
  const bool inMemory = GetParam();
  aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, inMemory ? 1 : 0);
  ASSERT_NE(storage, nullptr);
  ASSERT_EQ(storage->IsInMemory(), inMemory);
  aoStream* folders[2] = {storage->OpenStream("even", kAoModeInspect), storage->OpenStream("odd", kAoModeInspect)};
  ASSERT_NE(folders[0], nullptr);
  ASSERT_NE(folders[1], nullptr);
  // Opening changes the open-stream lists, which are not shared between
  // threads: it happens here, before the readers start.
  std::vector<aoStream*> streams;
  for (int n = 0; n < kStreams; ++n) {
    aoStream* stream = n < kStreams / 2 ? storage->OpenStream(Name(n).c_str(), kAoModeInspect)
                                        : folders[n % 2]->OpenStream(Name(n).c_str(), kAoModeInspect);
    ASSERT_NE(stream, nullptr) << n;
    EXPECT_GE(stream->GetAllocLength(), stream->GetLength()) << n;
    streams.push_back(stream);
    Expected(n);
  }
  std::vector<std::string> results(kStreams);
  std::latch start(kStreams);
  std::vector<std::thread> readers;
  for (int n = 0; n < kStreams; ++n) {
    readers.emplace_back([&, n] {
      start.arrive_and_wait();
      results[n] = ReadAndCheck(streams[n], expected_[n]);
    });
  }
  for (std::thread& reader : readers) reader.join();
  for (int n = 0; n < kStreams; ++n) EXPECT_EQ(results[n], "") << Name(n);
  for (aoStream* stream : streams) stream->Release();
  folders[0]->Release();
  folders[1]->Release();
  storage->Release();
}

INSTANTIATE_TEST_SUITE_P(FileAndImage, ConcurrentReaders, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& param) {
                           return param.param ? std::string("InMemoryImage") : std::string("HostFile");
                         });

}  // namespace
