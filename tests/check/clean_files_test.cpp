// Sound containers pass the check: files the library writes in both offset
// widths, hand-built trees with the format's harmless quirks (a removed
// stream's record keeping its blocks, data ending before the chain does,
// records straddling blocks), and the legacy layout. Their facts add up.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "check/container_image.h"
#include "support/container_test.h"

namespace {

using ao::CheckContainer;
using ao::CheckReport;
using ao::test::Chain;
using ao::test::ContainerImage;
using ao::test::Pattern;
using ao::test::Problems;

// The report on image, saved to a file of its own.
CheckReport CheckImage(const ContainerImage& image) {
  static int count = 0;
  static ao::test::TempDir dir;
  const std::string path = dir.File("image" + std::to_string(count++) + ".dat");
  image.Save(path);
  return CheckContainer(path.c_str());
}

void Write(aoStream* stream, size_t size, uint32_t seed, bool setEnd = false) {
  const auto bytes = Pattern(size, seed);
  ASSERT_EQ(stream->Write(bytes.data(), static_cast<int64_t>(bytes.size()), setEnd, nullptr),
            static_cast<int64_t>(size));
}

class LibraryFiles : public ::testing::TestWithParam<int> {};

TEST_P(LibraryFiles, ManyStreamsInterleavedTruncatedAndPreallocatedAreClean) {
  ao::test::OffsetWidth width(GetParam());
  ao::test::TempDir dir;
  const std::string path = dir.File("library.dat");
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  ASSERT_NE(storage, nullptr);
  // Two streams written in turns get chains of several blocks; the tail
  // block of whichever was written last grows in place.
  aoStream* a = storage->CreateStream("a", kAoModeEdit);
  aoStream* b = storage->CreateStream("b", kAoModeEdit);
  for (uint32_t round = 0; round < 4; ++round) {
    Write(a, 300, round);
    Write(b, 500, round + 10);
  }
  // A truncating write at the start and a shortened stream leave data ending
  // before their chains do.
  ASSERT_EQ(a->Seek(0, 0, true), 0);
  Write(a, 100, 99, true);
  ASSERT_TRUE(b->SetLength(700));
  aoStream* pre = storage->CreateStream("preallocated", kAoModeEdit);
  ASSERT_EQ(pre->PreallocateSpace(4096), 1);
  Write(pre, 1000, 5);
  aoStream* fast = storage->CreateStreamFast("fast", kAoModeEdit);
  ASSERT_NE(fast, nullptr);
  Write(fast, 64, 6);
  aoStream* folder = storage->CreateStream("folder", 1, kAoModeEdit);
  ASSERT_NE(folder, nullptr);
  for (aoStream* stream : {a, b, pre, fast, folder}) stream->Release();
  // 70 root streams in all need a second root table.
  for (int n = 0; n < 65; ++n) {
    aoStream* stream = storage->CreateStream(("s" + std::to_string(n)).c_str(), kAoModeEdit);
    ASSERT_NE(stream, nullptr);
    Write(stream, static_cast<size_t>(n), static_cast<uint32_t>(n));
    stream->Release();
  }
  storage->Release();

  const CheckReport report = CheckContainer(path.c_str());
  ASSERT_TRUE(report.readable) << report.readError;
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_TRUE(report.container);
  EXPECT_TRUE(report.directorySound);
  const ao::ContainerFacts& facts = report.facts;
  EXPECT_EQ(facts.offsets64, GetParam() != 0);
  EXPECT_EQ(facts.version, GetParam() != 0 ? '2' : '1');
  EXPECT_EQ(facts.tables, 2);
  EXPECT_EQ(facts.rootSlots, 128);
  EXPECT_EQ(facts.rootStreams, 70);
  EXPECT_EQ(facts.folders, 1);
  EXPECT_EQ(facts.streams, 69);
  EXPECT_EQ(facts.dataBytes, 100 + 700 + 1000 + 64 + 4 + 64 * 65 / 2);
  EXPECT_EQ(facts.fileSize, ao::test::FileSize(path));
  // Space adds up: structure, capacity and the rest make the file.
  EXPECT_EQ(facts.structureBytes + facts.allocatedBytes + facts.unreferencedBytes, facts.fileSize);
  EXPECT_EQ(facts.unreferencedBytes, 0);
  EXPECT_GE(facts.reclaimableBytes, 3096 + 1100 + 1300);  // preallocated spare, cut-off data of a and b
}

INSTANTIATE_TEST_SUITE_P(BothWidths, LibraryFiles, ::testing::Values(1, 0));

TEST(LibraryFiles, NewEmptyContainerIsCleanAndAllStructure) {
  ao::test::TempDir dir;
  const std::string path = dir.File("empty.dat");
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  ASSERT_NE(storage, nullptr);
  storage->Release();
  const CheckReport report = CheckContainer(path.c_str());
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_EQ(report.facts.fileSize, 5936);
  EXPECT_EQ(report.facts.structureBytes, 5936);
  EXPECT_EQ(report.facts.rootStreams, 0);
  EXPECT_EQ(report.facts.reclaimableBytes, 0);
}

// A folder "docs" at root slot 6 holding "a" (two blocks), a removed child
// that keeps its block, and the folder "sub" with "b"; the folder's data is
// split across two blocks so that a record straddles the boundary.
class HandBuiltTree : public ::testing::TestWithParam<bool> {};

TEST_P(HandBuiltTree, FolderTreeWithRemovedRecordAndStraddlingRecordIsClean) {
  const bool b64 = GetParam();
  ContainerImage image(b64);
  const auto aBytes = Pattern(70, 1);
  const Chain a = image.AppendChain(aBytes, {30, 40});
  const Chain removed = image.AppendChain(Pattern(16, 2), {16});
  const Chain b = image.AppendChain(Pattern(9, 3), {9});
  const auto subData = image.FolderData({ContainerImage::Record("b", 0, 9, b)});
  const Chain sub = image.AppendChain(subData, {subData.size()});
  t_aoStreamU gone = ContainerImage::Record("", 0, 0, removed);
  const auto docsData = image.FolderData(
      {ContainerImage::Record("a", 0, 70, a), gone, ContainerImage::Record("sub", kAoFlagFolder, 
                                                 static_cast<int64_t>(subData.size()), sub)});
  // Cut in the middle of the second record.
  const size_t cut = 4 + static_cast<size_t>(image.recordSize()) + 30;
  const Chain docs = image.AppendChain(docsData, {cut, docsData.size() - cut});
  image.PutRecord(image.RootSlot(6),
                  ContainerImage::Record("docs", kAoFlagFolder, static_cast<int64_t>(docsData.size()), docs));
  const CheckReport report = CheckImage(image);
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_EQ(report.facts.rootStreams, 1);
  EXPECT_EQ(report.facts.folders, 2);
  EXPECT_EQ(report.facts.streams, 2);
  EXPECT_EQ(report.facts.blocks, 6);
  EXPECT_EQ(report.facts.freeRecordBytes, image.blockHeader() + 16);
  EXPECT_EQ(report.facts.unreferencedBytes, image.blockHeader() + 16);
}

INSTANTIATE_TEST_SUITE_P(BothWidths, HandBuiltTree, ::testing::Values(true, false));

TEST(HandBuiltFiles, DataEndingBeforeItsChainAndSpareCapacityAreNotDamage) {
  ContainerImage image(true);
  // 10 bytes of data in a block of 100, and a later block that reads never
  // reach because the first is recorded as last.
  const int64_t first = image.AppendBlock(Pattern(10, 4), 100, 0);
  const int64_t later = image.AppendBlock(Pattern(50, 5), 50, first);
  image.SetNext(first, later);
  image.PutRecord(image.RootSlot(6), ContainerImage::Record("short", 0, 10, Chain{first, first, {}}));
  const CheckReport report = CheckImage(image);
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_EQ(report.facts.allocatedBytes, 150);
  EXPECT_EQ(report.facts.reclaimableBytes, 140);
}

TEST(HandBuiltFiles, RemovedRecordsBlocksTakenOverByALiveStreamAreNotShared) {
  ContainerImage image(true);
  const Chain chain = image.AppendChain(Pattern(20, 6), {20});
  image.PutRecord(image.RootSlot(6), ContainerImage::Record("live", 0, 20, chain));
  image.PutRecord(image.RootSlot(7), ContainerImage::Record("", 0, 0, chain));
  const CheckReport report = CheckImage(image);
  EXPECT_TRUE(report.Clean()) << Problems(report);
}

TEST(HandBuiltFiles, LegacyFileIsReadWithItsOwnLayout) {
  ContainerImage image(false, true);
  const Chain chain = image.AppendChain(Pattern(12, 7), {12});
  image.PutRecord(image.RootSlot(2), ContainerImage::Record("old", 0, 12, chain));
  const CheckReport report = CheckImage(image);
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_TRUE(report.facts.legacy);
  EXPECT_FALSE(report.facts.offsets64);
  EXPECT_EQ(report.facts.headerLength, 26);
  EXPECT_EQ(report.facts.reservedSlots, 2);
  EXPECT_EQ(report.facts.rootStreams, 1);
}

TEST(HandBuiltFiles, DirectoryScopeReadsOnlyTheRootDirectory) {
  ContainerImage image(true);
  const Chain chain = image.AppendChain(Pattern(20, 8), {20});
  image.PutRecord(image.RootSlot(6), ContainerImage::Record("x", 0, 20, chain));
  image.SetPrev(chain.first, 12345);  // damage that only a full check sees
  ao::test::TempDir dir;
  image.Save(dir.File("scope.dat"));
  const CheckReport directory = CheckContainer(dir.File("scope.dat").c_str(), ao::CheckScope::kDirectory);
  EXPECT_TRUE(directory.Clean());
  EXPECT_EQ(directory.facts.rootStreams, 1);
  EXPECT_FALSE(CheckContainer(dir.File("scope.dat").c_str()).Clean());
}

TEST(HandBuiltFiles, ProgressReachesTheFileSize) {
  ContainerImage image(true);
  for (int slot = 6; slot < 64; ++slot) {
    const Chain chain = image.AppendChain(Pattern(16, static_cast<uint32_t>(slot)), {2, 2, 2, 2, 2, 2, 2, 2});
    image.PutRecord(image.RootSlot(slot), ContainerImage::Record(std::to_string(slot).c_str(), 0, 16, chain));
  }
  ao::test::TempDir dir;
  image.Save(dir.File("progress.dat"));
  std::vector<std::pair<int64_t, int64_t>> calls;
  const CheckReport report = CheckContainer(dir.File("progress.dat").c_str(), ao::CheckScope::kFull,
                                            [&calls](int64_t done, int64_t total) { calls.emplace_back(done, total); });
  EXPECT_TRUE(report.Clean()) << Problems(report);
  ASSERT_GE(calls.size(), 2u);  // 464 blocks: at least one call on the way and the last
  for (size_t i = 1; i < calls.size(); ++i) EXPECT_GE(calls[i].first, calls[i - 1].first);
  EXPECT_EQ(calls.back(), std::make_pair(image.End(), image.End()));
}

}  // namespace
