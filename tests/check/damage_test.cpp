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

class Damage : public ::testing::TestWithParam<bool> {
 protected:
  CheckReport Check(const ContainerImage& image) {
    image.Save(dir.File("damaged.dat"));
    return CheckContainer(dir.File("damaged.dat").c_str());
  }

  ao::test::TempDir dir;
  const ao::test::SampleTree sample{GetParam()};
};

TEST_P(Damage, EachKindIsReportedAtTheOffsetOfTheDamagedBytes) {
  CheckReport report = Check(sample.image);
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_EQ(report.facts.folders, 1);
  EXPECT_EQ(report.facts.streams, 2);
  for (const ao::test::DamageCase& damage : ao::test::DamageCases(sample, GetParam())) {
    SCOPED_TRACE(damage.what);
    ContainerImage image = sample.image;
    damage.apply(image);
    report = Check(image);
    EXPECT_TRUE(Reports(report, damage.kind, damage.offset)) << Problems(report);
    const std::string what = damage.what;
    // Damage to the header or the root tables stops the library opening the
    // file; a slot without its marker is skipped when it does.
    if (what == "magic" || what == "version" || what == "table marker" || what == "table slots" ||
        what == "table loop" || what == "record marker") {
      EXPECT_EQ(report.directorySound, what == "record marker");
      EXPECT_EQ(report.container, what != "magic");
    }
    if (what == "child count") {
      EXPECT_EQ(report.facts.streams, 2);  // the child that is there is still read
    }
  }
}

TEST_P(Damage, ASecondTableAndABlockOverlappingTwoOthersAreReportedOnce) {
  ContainerImage image = sample.image;
  image.LinkTable(image.firstTable, image.AppendTable());
  CheckReport report = Check(image);
  EXPECT_TRUE(report.Clean()) << Problems(report);
  EXPECT_EQ(report.facts.tables, 2);
  // A block claiming the bytes of both blocks after it is reported once.
  const auto& blocks = sample.data.blocks;
  image.SetBlockEnd(blocks[0], blocks[2] - blocks[0] + 5);
  report = Check(image);
  EXPECT_TRUE(Reports(report, CheckProblemKind::kOverlap, blocks[1])) << Problems(report);
  EXPECT_EQ(std::count_if(report.problems.begin(), report.problems.end(),
                          [](const ao::CheckProblem& p) { return p.kind == CheckProblemKind::kOverlap; }),
            1)
      << Problems(report);
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
