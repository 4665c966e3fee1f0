// check run on files damaged on purpose finds each kind of damage at its
// offset, in text and in JSON, with the exit status scripts rely on; and no
// command crashes on a damaged container.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "check/container_image.h"
#include "support/temp_dir.h"
#include "tools/tool_runner.h"

namespace {

using ao::test::ContainerImage;
using ao::test::RunTool;
using ao::test::TempDir;
using ao::test::ToolRun;

class CheckCommand : public ::testing::Test {
 protected:
  ToolRun Check(const ContainerImage& image, bool json = false) {
    image.Save(file);
    return json ? RunTool(dir, {"check", file, "--json"}) : RunTool(dir, {"check", file});
  }
  TempDir dir;
  const std::string file = dir.File("damaged.aostore");
  const ao::test::SampleTree sample{true};
};

TEST_F(CheckCommand, CleanFileExitsZeroWithASummary) {
  const ToolRun run = Check(sample.image);
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out, file + ": clean (1 root tables, 1 folders, 2 streams, 5 blocks, 6.1 KiB)\n");
}

TEST_F(CheckCommand, EachKindOfDamageIsListedAtItsOffset) {
  for (const ao::test::DamageCase& damage : ao::test::DamageCases(sample, true)) {
    ContainerImage image = sample.image;
    damage.apply(image);
    const ToolRun run = Check(image);
    // With no container magic there is no container at all.
    const bool foreign = std::string(damage.what) == "magic" || std::string(damage.what) == "short file";
    EXPECT_EQ(run.status, foreign ? 3 : 1) << damage.what << "\n" << run.out << run.err;
    const std::string line =
        "offset " + std::to_string(damage.offset) + ": " + ao::CheckProblemKindName(damage.kind) + ": ";
    EXPECT_NE(run.out.find(line), std::string::npos) << line << "\n" << run.out;
    EXPECT_NE(run.out.find(file + ": "), std::string::npos);  // the summary line
  }
}

TEST_F(CheckCommand, JsonNamesStatusProblemsAndFacts) {
  ContainerImage image = sample.image;
  image.SetPrev(sample.data.blocks[1], 7);
  const ToolRun run = Check(image, true);
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("\"status\": \"damaged\""), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\"problemCount\": 1"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("{\"offset\": " + std::to_string(sample.data.blocks[1]) + ", \"kind\": \"link\""),
            std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("\"streams\": 2"), std::string::npos) << run.out;
  EXPECT_NE(Check(sample.image, true).out.find("\"status\": \"clean\""), std::string::npos);
}

TEST_F(CheckCommand, AFileThatCannotBeReadExitsTwo) {
  ToolRun run = RunTool(dir, {"check", dir.File("absent")});
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("absent: No such file or directory"), std::string::npos) << run.err;
  run = RunTool(dir, {"check", dir.path(), "--json"});
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.out.find("\"status\": \"unreadable\""), std::string::npos) << run.out;
}

TEST_F(CheckCommand, ANonContainerExitsThreeAsInEveryOtherCommand) {
  ContainerImage image = sample.image;
  image.bytes.resize(20);
  ToolRun run = Check(image);
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.err.find("not a container (the file is 20 bytes long"), std::string::npos) << run.err;
  run = Check(image, true);
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.out.find("\"status\": \"not-container\""), std::string::npos) << run.out;
}

// Every kind of damage: the commands that read print what they can, then
// say that the container is damaged and exit with 1.
TEST_F(CheckCommand, ReadingCommandsOnDamagedCopiesSayItAndExitOne) {
  const std::string out = dir.File("out");
  const std::vector<unsigned char> data = ao::test::Pattern(30, 1);
  for (const ao::test::DamageCase& damage : ao::test::DamageCases(sample, true)) {
    ContainerImage image = sample.image;
    damage.apply(image);
    image.Save(file);
    const int expected = RunTool(dir, {"check", file}).status;  // 3 for no container at all
    EXPECT_TRUE(expected == 1 || expected == 3) << damage.what;
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"ls", file, "-lR"}, {"info", file}, {"export", file, out}, {"entries", file, "dir"}}) {
      const ToolRun run = RunTool(dir, args);
      EXPECT_EQ(run.status, expected) << damage.what << ": " << args[0] << "\n" << run.out << run.err;
      EXPECT_TRUE(expected != 1 || run.err.find("damaged at offset") != std::string::npos) << damage.what << run.err;
      std::filesystem::remove_all(out);
    }
    // cat succeeds only with every byte; else it writes what it could read first.
    const ToolRun run = RunTool(dir, {"cat", file, "data"});
    if (run.status == 0) {
      EXPECT_EQ(run.out, std::string(data.begin(), data.end())) << damage.what;
    } else {
      EXPECT_EQ(run.status, expected) << damage.what << ": " << run.err;
      EXPECT_EQ(std::string(data.begin(), data.end()).rfind(run.out, 0), 0u) << damage.what;
    }
  }
}

TEST_F(CheckCommand, AFolderWhoseChainLiesPastTheEndIsNotListedAsEmpty) {
  ContainerImage image = sample.image;
  const int64_t slot = image.RootSlot(7);
  image.PutWide(slot + 76, image.End() + 4096);  // the folder's last and first blocks
  image.PutWide(slot + 84, image.End() + 4096);
  image.Save(file);
  const ToolRun run = RunTool(dir, {"ls", file, "-R"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "data\ndir/\n");
  EXPECT_NE(run.err.find("damaged at offset " + std::to_string(slot)), std::string::npos) << run.err;
}

TEST_F(CheckCommand, ABrokenChainIsReadAsFarAsItGoes) {
  ContainerImage image = sample.image;
  image.bytes[static_cast<size_t>(sample.data.blocks[1])] = 0;  // the second block of data is no block
  image.Save(file);
  const std::vector<unsigned char> data = ao::test::Pattern(30, 1);
  ToolRun run = RunTool(dir, {"cat", file, "data"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, std::string(data.begin(), data.begin() + 10));
  EXPECT_NE(run.err.find("data holds only 10 of its 30 bytes: damaged at offset"), std::string::npos) << run.err;
  // export saves what can be read, and says what it could not.
  run = RunTool(dir, {"export", file, dir.File("out")});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(ao::test::ReadWholeFile(dir.File("out/data")), std::vector<unsigned char>(data.begin(), data.begin() + 10));
  EXPECT_EQ(ao::test::ReadWholeFile(dir.File("out/dir/kid")), ao::test::Pattern(5, 2));
  EXPECT_NE(run.err.find("data: only 10 of its 30 bytes could be read"), std::string::npos) << run.err;
}

// Random damage: every command ends with one of its own statuses, never by
// a signal or a sanitizer.
TEST_F(CheckCommand, NoCommandCrashesOnRandomDamage) {
  std::mt19937 random(7);
  const std::vector<int> statuses = {0, 1, 2, 3, 4, 5, 7, 10};
  for (int round = 0; round < 15; ++round) {
    ContainerImage image = sample.image;
    for (int flip = 0; flip < 4; ++flip) {
      const size_t at = static_cast<size_t>(sample.data.first) +
                        random() % (image.bytes.size() - static_cast<size_t>(sample.data.first));
      image.bytes[random() % 4 == 0 ? static_cast<size_t>(image.RootSlot(6 + static_cast<int>(random() % 2))) +
                                          random() % 92
                                    : at] = static_cast<unsigned char>(random());
    }
    image.Save(file);
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"ls", file, "-lR"}, {"cat", file, "data"}, {"cat", file, "dir/kid"}, {"info", file},
             {"export", file, dir.File("out")}, {"entries", file, "dir"}}) {
      const ToolRun run = RunTool(dir, args);
      EXPECT_NE(std::find(statuses.begin(), statuses.end(), run.status), statuses.end())
          << args[0] << " round " << round << " ended with " << run.status << "\n" << run.err;
    }
  }
}

}  // namespace
