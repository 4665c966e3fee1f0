// Each kind of damage is found and reported at the offset of the damaged
// bytes; damaged and random files never crash the checker or make it loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "check/container_image.h"
#include "support/temp_dir.h"

namespace {

using ao::CheckContainer;
using ao::CheckProblemKind;
using ao::CheckReport;
using ao::test::Chain;
using ao::test::ContainerImage;
using ao::test::Pattern;
using ao::test::Problems;

bool Reports(const CheckReport& report, CheckProblemKind kind, int64_t offset) {
  for (const auto& problem : report.problems)
    if (problem.kind == kind && problem.offset == offset) return true;
  return false;
}

// Root slot 6: "data", 30 bytes in three blocks of 10. Root slot 7: the
// folder "dir" holding "kid" (5 bytes in one block).
class Damage : public ::testing::TestWithParam<bool> {
 protected:
  Damage() : image(GetParam()) {
    data = image.AppendChain(Pattern(30, 1), {10, 10, 10});
    image.PutRecord(image.RootSlot(6), ContainerImage::Record("data", 0, 30, data));
    kid = image.AppendChain(Pattern(5, 2), {5});
    kidRecord = ContainerImage::Record("kid", 0, 5, kid);
    const auto folderData = image.FolderData({kidRecord});
    folder = image.AppendChain(folderData, {folderData.size()});
    image.PutRecord(image.RootSlot(7), ContainerImage::Record("dir", kAoFlagFolder,
                                                              static_cast<int64_t>(folderData.size()), folder));
  }

  CheckReport Check() {
    image.Save(dir.File("damaged.dat"));
    return CheckContainer(dir.File("damaged.dat").c_str());
  }
  int64_t KidRecordOffset() const { return folder.first + image.blockHeader() + 4; }
  int W() const { return GetParam() ? 8 : 4; }  // offset width

  ao::test::TempDir dir;
  ContainerImage image;
  Chain data, kid, folder;
  t_aoStreamU kidRecord;
};

TEST_P(Damage, TheUndamagedFixtureIsClean) {
  const CheckReport report = Check();
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_EQ(report.facts.folders, 1);
  EXPECT_EQ(report.facts.streams, 2);
}

TEST_P(Damage, HeaderWithoutMagicIsNotAContainer) {
  image.bytes[3] = 'x';
  const CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kHeader, 0)) << Problems(report);
  EXPECT_FALSE(report.container);
  EXPECT_FALSE(report.directorySound);
}

TEST_P(Damage, UnknownVersionAndShortFileAreHeaderDamage) {
  image.bytes[24] = '0';
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kHeader, 24)) << Problems(report);
  EXPECT_TRUE(report.container);
  EXPECT_FALSE(report.directorySound);
  image.bytes.resize(20);
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kHeader, 0)) << Problems(report);
}

TEST_P(Damage, RootTableMarkerAndSlotCount) {
  image.bytes[image.firstTable + 1] = 0;
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kTable, image.firstTable)) << Problems(report);
  EXPECT_FALSE(report.directorySound);
  image.bytes[image.firstTable + 1] = 0xFB;
  image.bytes[image.firstTable + 4] = 63;
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kTable, image.firstTable + 4)) << Problems(report);
  EXPECT_FALSE(report.directorySound);
}

TEST_P(Damage, RootTableChainThatLoopsOrLeavesTheFile) {
  const int64_t second = image.AppendTable();
  image.LinkTable(image.firstTable, second);
  image.LinkTable(second, image.firstTable);
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kCycle, second)) << Problems(report);
  EXPECT_FALSE(report.directorySound);
  image.LinkTable(second, image.End() + 100);
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kPastEnd, second)) << Problems(report);
  image.LinkTable(second, data.first);  // a block is no table
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kTable, data.first)) << Problems(report);
  image.LinkTable(second, 0);
  report = Check();
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_EQ(report.facts.tables, 2);
}

TEST_P(Damage, RecordsWithoutMarkerOrWithAnUnendedName) {
  const int64_t slot = image.RootSlot(6);
  image.bytes[slot] = 0;
  image.bytes[slot + 1] = 0;
  image.bytes[slot + 2] = 0;
  image.bytes[slot + 3] = 0;
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kRecord, slot)) << Problems(report);
  EXPECT_TRUE(report.directorySound);  // the library skips such a slot when it opens the file
  image.bytes[slot] = 0xFC;
  image.bytes[slot + 1] = 0xFC;
  image.bytes[slot + 2] = 0xFC;
  image.bytes[slot + 3] = 0xFC;
  for (int i = 0; i < 52; ++i) image.bytes[slot + 4 + i] = 'n';
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kRecord, slot + 4)) << Problems(report);
  image.bytes[KidRecordOffset()] = 0x11;
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kRecord, KidRecordOffset())) << Problems(report);
}

TEST_P(Damage, BlockMarkerAndDataEndOutsideTheBlock) {
  image.bytes[data.blocks[1]] = 0;
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kBlock, data.blocks[1])) << Problems(report);
  image.bytes[data.blocks[1]] = 0xFA;
  image.SetDataEnd(data.blocks[2], image.blockHeader() + 11);  // block end is header + 10
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kBlock, data.blocks[2])) << Problems(report);
  image.SetDataEnd(data.blocks[2], image.blockHeader() - 1);
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kBlock, data.blocks[2])) << Problems(report);
}

TEST_P(Damage, NextAndPreviousLinksThatDisagree) {
  image.SetPrev(data.blocks[2], data.blocks[0]);
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kLink, data.blocks[2])) << Problems(report);
  image.SetPrev(data.blocks[2], data.blocks[1]);
  image.SetPrev(data.blocks[0], kid.first);  // a first block has no previous block
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kLink, data.blocks[0])) << Problems(report);
}

TEST_P(Damage, LinksIntoTheHeaderOrPastTheEnd) {
  image.PutWide(image.RootSlot(6) + (GetParam() ? 84 : 76), 5);
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kLink, image.RootSlot(6))) << Problems(report);
  image.PutWide(image.RootSlot(6) + (GetParam() ? 84 : 76), data.first);
  image.SetNext(data.blocks[2], image.End() + 1000);
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kPastEnd, data.blocks[2])) << Problems(report);
  image.SetNext(data.blocks[2], 0);
  image.SetBlockEnd(folder.first, 1 << 20);  // the last block claims more than the file holds
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kPastEnd, folder.first)) << Problems(report);
}

TEST_P(Damage, ChainThatComesBackOnItself) {
  image.SetNext(data.blocks[2], data.blocks[0]);
  const CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kCycle, data.blocks[2])) << Problems(report);
}

TEST_P(Damage, BlockInTwoStreamsChains) {
  image.PutRecord(image.RootSlot(8), ContainerImage::Record("thief", 0, 10, Chain{data.blocks[1], data.blocks[1], {}}));
  const CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kShared, data.blocks[1])) << Problems(report);
}

TEST_P(Damage, FolderWhoseChildIsTheFolderItselfEnds) {
  t_aoStreamU self = ContainerImage::Record("self", kAoFlagFolder, 4 + image.recordSize(), folder);
  const auto folderData = image.FolderData({self});
  std::copy(folderData.begin(), folderData.end(), image.bytes.begin() + folder.first + image.blockHeader());
  const CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kShared, folder.first)) << Problems(report);
}

TEST_P(Damage, BlocksLyingOnEachOther) {
  image.SetBlockEnd(data.blocks[0], image.blockHeader() + 25);  // reaches into the next block
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kOverlap, data.blocks[1])) << Problems(report);
  // A block claiming the bytes of both blocks after it is reported once.
  image.SetBlockEnd(data.blocks[0], data.blocks[2] - data.blocks[0] + 5);
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kOverlap, data.blocks[1])) << Problems(report);
  EXPECT_EQ(std::count_if(report.problems.begin(), report.problems.end(),
                          [](const ao::CheckProblem& p) { return p.kind == CheckProblemKind::kOverlap; }),
            1)
      << Problems(report);
}

TEST_P(Damage, LengthTheChainDoesNotHold) {
  image.PutWide(image.RootSlot(6) + 68, 31);
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kLength, image.RootSlot(6))) << Problems(report);
  image.PutWide(image.RootSlot(6) + 68, 30);
  image.PutWide(image.RootSlot(6) + 68 + W(), kid.first);  // last block outside the chain
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kLink, image.RootSlot(6))) << Problems(report);
  image.PutWide(image.RootSlot(6) + 68 + W(), data.blocks[0]);  // reads stop after 10 bytes
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kLength, image.RootSlot(6))) << Problems(report);
}

TEST_P(Damage, FolderCountBeyondItsData) {
  const int64_t count = folder.first + image.blockHeader();
  image.bytes[count] = 2;
  CheckReport report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kFolder, count)) << Problems(report);
  EXPECT_EQ(report.facts.streams, 2);  // the child that is there is still read
  image.bytes[count] = 1;
  image.PutWide(image.RootSlot(7) + 68, 3);
  report = Check();
  EXPECT_TRUE(Reports(report, CheckProblemKind::kFolder, image.RootSlot(7))) << Problems(report);
}

INSTANTIATE_TEST_SUITE_P(BothWidths, Damage, ::testing::Values(true, false));

TEST(Unreadable, MissingFileOrFolderCannotBeRead) {
  ao::test::TempDir dir;
  CheckReport report = CheckContainer(dir.File("absent.dat").c_str());
  EXPECT_FALSE(report.readable);
  EXPECT_FALSE(report.readError.empty());
  EXPECT_FALSE(report.Clean());
  report = CheckContainer(dir.path().c_str());
  EXPECT_FALSE(report.readable);
}

// Random damage anywhere in a small tree: the check always ends, reports in
// file order, and (under the sanitizers) never reads outside what it owns.
TEST(RandomDamage, CheckAlwaysEndsWithProblemsInFileOrder) {
  ContainerImage base(true);
  const Chain a = base.AppendChain(Pattern(64, 1), {16, 16, 32});
  const Chain b = base.AppendChain(Pattern(8, 2), {8});
  const auto folderData = base.FolderData({ContainerImage::Record("a", 0, 64, a), ContainerImage::Record("b", 0, 8, b)});
  const Chain folder = base.AppendChain(folderData, {100, folderData.size() - 100});
  base.PutRecord(base.RootSlot(6), ContainerImage::Record("f", kAoFlagFolder,
                                                          static_cast<int64_t>(folderData.size()), folder));
  ao::test::TempDir dir;
  const std::string path = dir.File("random.dat");
  std::mt19937 random(20240611);
  // Damage lands where the structure is: the used root slot and the blocks.
  const size_t from = static_cast<size_t>(base.RootSlot(6));
  int damaged = 0;
  for (int round = 0; round < 400; ++round) {
    ContainerImage image = base;
    const int flips = 1 + static_cast<int>(random() % 6);
    for (int flip = 0; flip < flips; ++flip) {
      size_t at = random() % 3 == 0 ? from + random() % 92 : static_cast<size_t>(a.first) + random() % 
                                                             (image.bytes.size() - static_cast<size_t>(a.first));
      image.bytes[at] = static_cast<unsigned char>(random());
    }
    if (round % 10 == 0) image.bytes.resize(image.bytes.size() - random() % 200);
    image.Save(path);
    const CheckReport report = CheckContainer(path.c_str());
    ASSERT_TRUE(report.readable);
    for (size_t i = 1; i < report.problems.size(); ++i)
      ASSERT_LE(report.problems[i - 1].offset, report.problems[i].offset);
    damaged += report.Clean() ? 0 : 1;
  }
  EXPECT_GT(damaged, 200);
}

}  // namespace
