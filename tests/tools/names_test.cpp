// The name rule of the tool: what every writing command refuses, how import
// treats a host tree with names that break it, and how export treats names
// in a container that cannot be file names.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "tools/tool_fixture.h"

namespace fs = std::filesystem;

namespace {

using namespace ao::test;

using Names = ToolTest;

// Names that must never be written, with a word of the reason given.
const std::vector<std::pair<std::string, std::string>> kBadNames = {
    {".", "\".\""},
    {"..", "\"..\""},
    {"back\\slash", "'\\'"},
    {"new\nline", "control character (0x0a)"},
    {"tab\there", "control character (0x09)"},
    {"del\x7f", "control character (0x7f)"},
    {std::string(52, 'n'), "52 bytes long"},
};

TEST_F(Names, EveryWritingCommandRefusesANameThatBreaksTheRule) {
  Ok({"mkdir", file, "ok"});
  Ok({"put", file, "ok/f", "-"});
  const auto before = ReadWholeFile(file);
  for (const auto& [name, reason] : kBadNames) {
    const std::string shown = name.find_first_of("\n\t\x7f") == std::string::npos ? name : "";
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"put", file, "ok/" + name, "-"},
                                               {"mkdir", file, name + "/below"},
                                               {"mv", file, "ok/f", name},
                                               {"entries", file, "ok", "set", name, "1"},
                                               {"entries", file, name, "set", "n", "1"}}) {
      const ToolRun run = Fails(args, kInvalidName, {"the name", reason, shown});
      EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;  // escaped, on one line
    }
  }
  EXPECT_EQ(ReadWholeFile(file), before);
  // The longest name, and bytes beyond ASCII, are fine.
  Ok({"put", file, std::string(51, 'n'), "-"});
  Ok({"mkdir", file, "caf\xc3\xa9/\xe6\x97\xa5"});
  EXPECT_EQ(Ok({"ls", file, "caf\xc3\xa9"}), "\xe6\x97\xa5/\n");
}

class ImportNames : public ToolTest {
 protected:
  // A tree with good files and folders, names the rule refuses at two
  // depths (one a folder with a file inside), and a symbolic link.
  void SetUp() override {
    ToolTest::SetUp();
    fs::create_directories(tree / "sub" / "deep");
    WriteWholeFile((tree / "fine.txt").string(), {'1'});
    WriteWholeFile((tree / "sub" / "deep" / "kept").string(), {'2', '3'});
    WriteWholeFile((tree / std::string(60, 'L')).string(), {'4'});
    WriteWholeFile((tree / "sub" / "new\nline").string(), {'5'});
    fs::create_directories(tree / "sub" / "back\\slash");
    WriteWholeFile((tree / "sub" / "back\\slash" / "inside").string(), {'6'});
    fs::create_symlink("fine.txt", tree / "link");
  }
  const fs::path tree = dir.File("tree");
  const std::string fresh = dir.File("fresh.aostore");
};

TEST_F(ImportNames, WithoutSkipInvalidNothingIsWrittenAndEveryNameIsListed) {
  const auto before = ReadWholeFile(file);
  for (const std::string& target : {file, fresh}) {
    const ToolRun run = Fails({"import", target, tree.string()}, kInvalidName,
                              {std::string(60, 'L') + ": the name is 60 bytes long",
                               "sub/new\\nline\": the name holds a control character (0x0a)",
                               "sub/back\\slash: the name holds '\\'", "3 names break the name rule",
                               "nothing was written", "--skip-invalid"});
    EXPECT_EQ(run.out, "");
  }
  EXPECT_EQ(ReadWholeFile(file), before);
  EXPECT_FALSE(fs::exists(fresh));  // no new container left behind
  // A dry run finds the same.
  EXPECT_EQ(Run({"import", fresh, tree.string(), "--dry-run"}).status, kInvalidName);
  EXPECT_FALSE(fs::exists(fresh));
}

TEST_F(ImportNames, SkipInvalidImportsTheRestAndListsWhatWasLeftOut) {
  const ToolRun dry = Run({"import", fresh, tree.string(), "--skip-invalid", "--dry-run"});
  EXPECT_EQ(dry.status, 0) << dry.err;
  const std::string& planned = dry.out;
  EXPECT_TRUE(Contains(planned, "would import sub/deep/kept\n")) << planned;
  EXPECT_TRUE(Contains(planned, "would import 2 files (3 bytes) in 2 folders into " + fresh)) << planned;
  EXPECT_FALSE(fs::exists(fresh));

  const ToolRun run = Run({"import", fresh, tree.string(), "--skip-invalid", "-v"});
  EXPECT_EQ(run.status, 0) << run.err;
  for (const std::string& said : {"skipped " + (tree / std::string(60, 'L')).string() + ": the name is 60 bytes long",
                                  "skipped " + (tree / "sub" / "back\\slash").string() + ": the name holds '\\'",
                                  "skipped " + (tree / "link").string() + ": a symbolic link"}) {
    EXPECT_TRUE(Contains(run.err, said)) << said << "\n" << run.err;
  }
  EXPECT_TRUE(Contains(run.out, "imported 2 files (3 bytes) in 2 folders")) << run.out;
  EXPECT_TRUE(Contains(run.out, "skipped 3 names that break the name rule")) << run.out;
  EXPECT_TRUE(Contains(run.out, "skipped 1 symbolic link or special file")) << run.out;
  EXPECT_EQ(Ok({"ls", fresh, "-R"}), "fine.txt\nsub/\nsub/deep/\nsub/deep/kept\n");
  // Without -v the link is only counted.
  EXPECT_TRUE(Contains(Run({"import", fresh, tree.string(), "--skip-invalid"}).out, "(-v lists them)"));
  // A container inside the tree it takes in is left out.
  const std::string inside = (tree / "inside.aostore").string();
  Run({"import", inside, tree.string(), "--skip-invalid"});
  const ToolRun self = Run({"import", inside, tree.string(), "--skip-invalid", "-v"});
  EXPECT_EQ(self.status, 0) << self.err;
  EXPECT_TRUE(Contains(self.err, "skipped " + inside + ": the container itself")) << self.err;
  EXPECT_FALSE(Contains(Ok({"ls", inside}), "inside.aostore"));
}

TEST_F(ImportNames, AKindConflictStopsTheImportBeforeItWrites) {
  Ok({"mkdir", file, "in/fine.txt"});  // a folder where a file of the tree goes
  const auto before = ReadWholeFile(file);
  Fails({"import", file, tree.string(), "in", "--skip-invalid"}, kConflict, {"in/fine.txt exists as a folder"});
  EXPECT_EQ(ReadWholeFile(file), before);
}

// A container written elsewhere may hold any name the format allows.
TEST_F(Names, ExportSkipsNamesThatCannotBeFileNamesAndWritesTheRest) {
  {
    aoStorage* storage = aoStorage::Open(file.c_str(), kAoModeEdit, 0, 0);
    ASSERT_NE(storage, nullptr);
    for (const char* name : {"..", "a\\b", "x\ny", "good"}) {
      aoStream* stream = storage->CreateStream(name, 0, kAoModeEdit);
      ASSERT_NE(stream, nullptr) << name;
      stream->Write("data", 4, false, nullptr);
      stream->Release();
    }
    storage->Release();
  }
  EXPECT_EQ(Ok({"ls", file}), "..\na\\b\ngood\n\"x\\ny\"\n");  // shown, one per line
  const std::string out = Path("out");
  ToolRun run = Fails({"export", file, out}, kInvalidName,
                      {"skipped ..: the name is", "skipped a\\b: the name holds '\\'", "skipped \"x\\ny\""});
  EXPECT_TRUE(Contains(run.out, "exported 1 stream (4 bytes)")) << run.out;
  EXPECT_TRUE(Contains(run.out, "skipped 3 names that cannot be file names here")) << run.out;
  EXPECT_EQ(ReadWholeFile(out + "/good"), std::vector<unsigned char>({'d', 'a', 't', 'a'}));
  EXPECT_EQ(std::distance(fs::directory_iterator(out), fs::directory_iterator()), 1);
  run = Run({"export", file, Path("again"), "--skip-invalid"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(fs::exists(Path("again/good")));
}

}  // namespace
