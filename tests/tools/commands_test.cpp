// The aostore commands run as a separate process on real files: what they
// print, what they leave in the container, and their exit statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "tools/tool_fixture.h"

namespace fs = std::filesystem;

namespace {

using ao::test::Pattern;
using ao::test::ReadWholeFile;
using ao::test::ToolRun;
using ao::test::WriteWholeFile;
using namespace ao::test;  // the exit statuses

using Tool = ao::test::ToolTest;

TEST_F(Tool, CreateMakesEmptyContainersOfBothWidths) {
  EXPECT_EQ(ao::test::FileSize(file), 5936);
  EXPECT_NE(Ok({"info", file}).find("version 2, 64-bit offsets"), std::string::npos);
  Ok({"create", Path("narrow.aostore"), "--32"});
  EXPECT_EQ(ao::test::FileSize(Path("narrow.aostore")), 5164);
  const std::string info = Ok({"info", Path("narrow.aostore")});
  EXPECT_NE(info.find("version 1, 32-bit offsets"), std::string::npos) << info;
  EXPECT_NE(info.find("health        clean"), std::string::npos) << info;
}

TEST_F(Tool, PutAndCatCarryBytesBothWaysAcrossBlocks) {
  const auto big = Pattern(3 << 20, 1);
  WriteWholeFile(Path("big.bin"), big);
  Ok({"put", file, "data/big.bin", Path("big.bin")});
  WriteWholeFile(Path("small.txt"), {'a', 'b', 'c'});
  Ok({"put", file, "note", "-"}, Path("small.txt"));  // from standard input
  Ok({"put", file, "data/big.bin", Path("small.txt"), "--append"});
  std::string expected(big.begin(), big.end());
  expected += "abc";
  EXPECT_EQ(Ok({"cat", file, "data/big.bin"}), expected);
  EXPECT_EQ(Ok({"cat", file, "/note"}), "abc");
  // Replacing with less data shortens the stream.
  Ok({"put", file, "data/big.bin", Path("small.txt")});
  EXPECT_EQ(Ok({"cat", file, "data/big.bin"}), "abc");
  EXPECT_EQ(Ok({"ls", file, "data", "-l"}), "stream            3        0 -     big.bin\n");
  EXPECT_EQ(Run({"check", file}).status, 0);
}

TEST_F(Tool, MkdirRmAndMvShapeTheTree) {
  Ok({"mkdir", file, "a/b/c"});
  Ok({"put", file, "a/b/c/f", "-"});
  Ok({"put", file, "a/g", "-"});
  EXPECT_EQ(Ok({"ls", file, "-R"}), "a/\na/b/\na/b/c/\na/b/c/f\na/g\n");
  Ok({"mv", file, "a/g", "h"});
  EXPECT_EQ(Run({"mv", file, "a/h", "b"}).status, kConflict);  // the folder b is there
  // A folder goes only with -r; --dry-run lists what would go.
  Fails({"rm", file, "a/b"}, kConflict, {"a/b is a folder", "rm -r"});
  EXPECT_EQ(Ok({"rm", file, "a/b", "-r", "--dry-run"}),
            "would remove folder a/b/c\nwould remove stream a/b/c/f\n"
            "would remove folder a/b with 1 folder, 1 stream\n");
  EXPECT_EQ(Ok({"ls", file, "a", "-R"}), "b/\nb/c/\nb/c/f\nh\n");
  EXPECT_EQ(Ok({"rm", file, "a/b", "-r"}), "removed folder a/b with 1 folder, 1 stream\n");
  EXPECT_EQ(Ok({"ls", file, "a"}), "h\n");
  EXPECT_EQ(Run({"rm", file, "a/b", "-r"}).status, kNoSuchStream);
  // A folder where a data stream is asked for, and the other way round.
  EXPECT_EQ(Run({"put", file, "a", "-"}).status, kConflict);
  EXPECT_EQ(Run({"mkdir", file, "a/h/x"}).status, kConflict);
  EXPECT_EQ(Run({"cat", file, "a"}).status, kConflict);
  EXPECT_EQ(Run({"check", file}).status, 0);
}

TEST_F(Tool, ImportAndExportRoundTripADirectoryTree) {
  const fs::path tree = Path("tree");
  fs::create_directories(tree / "sub" / "deeper");
  fs::create_directories(tree / "empty-folder");
  WriteWholeFile((tree / "one.bin").string(), Pattern(100000, 2));
  WriteWholeFile((tree / "empty.txt").string(), {});
  WriteWholeFile((tree / "sub" / "two.txt").string(), Pattern(77, 3));
  WriteWholeFile((tree / "sub" / "deeper" / "three").string(), Pattern(5000, 4));
  const std::string imported = Ok({"import", file, tree.string(), "in/here"});
  EXPECT_NE(imported.find("imported 4 files (105077 bytes) in 3 folders"), std::string::npos) << imported;
  EXPECT_EQ(Ok({"ls", file, "in/here", "-R"}),
            "empty-folder/\nempty.txt\none.bin\nsub/\nsub/deeper/\nsub/deeper/three\nsub/two.txt\n");
  Ok({"export", file, "in/here", Path("out")});
  for (const char* name : {"one.bin", "empty.txt", "sub/two.txt", "sub/deeper/three"})
    EXPECT_EQ(ReadWholeFile(Path("out/") + name), ReadWholeFile((tree / name).string())) << name;
  EXPECT_TRUE(fs::is_directory(Path("out/empty-folder")));
  // A single stream exports as one file.
  Ok({"export", file, "in/here/sub/two.txt", Path("single")});
  EXPECT_EQ(ReadWholeFile(Path("single/two.txt")), Pattern(77, 3));
  // Importing again replaces the data of streams that are there.
  WriteWholeFile((tree / "one.bin").string(), {'x'});
  Ok({"import", file, tree.string(), "in/here"});
  EXPECT_EQ(Ok({"cat", file, "in/here/one.bin"}), "x");
}

TEST_F(Tool, EntriesAreSetAndReadBackByType) {
  EXPECT_EQ(Ok({"entries", file, "cfg", "set", "count", "42"}), "set count = 42 (int)\n");
  Ok({"entries", file, "cfg", "set", "big", "1099511627776"});
  Ok({"entries", file, "cfg", "set", "ratio", "0.25"});
  Ok({"entries", file, "cfg", "set", "title", "two words"});
  Ok({"entries", file, "cfg", "set", "window", "1,2,3,4", "--type", "rect"});
  Ok({"entries", file, "cfg", "set", "tile", "5,6", "--type", "size"});
  Ok({"entries", file, "cfg", "set", "raw", "627974657321", "--type", "blob"});
  Ok({"entries", file, "set", "top", "7"});
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "count"}), "int 42\n");
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "big", "--type", "int64"}), "int64 1099511627776\n");
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "ratio", "--type", "double"}), "double 0.25\n");
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "title"}), "string \"two words\"\n");
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "window"}), "rect 1,2,3,4\n");
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "tile", "--type", "size"}), "size 5,6\n");
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "raw", "--type", "blob"}), "bytes!");
  EXPECT_EQ(Ok({"entries", file, "get", "top"}), "int 7\n");
  const std::string list = Ok({"entries", file, "cfg"});
  EXPECT_NE(list.find("title                            11  string \"two words\""), std::string::npos) << list;
  EXPECT_EQ(Run({"entries", file, "set", "cfg", "1"}).status, kConflict);  // a folder
  EXPECT_EQ(Run({"entries", file, "cfg", "get", "missing"}).status, kNoSuchStream);
  EXPECT_EQ(Run({"entries", file, "set", "r", "1,2,3,4", "--type", "rect"}).status, kUsage);
  EXPECT_EQ(Run({"entries", file, "cfg", "get", "count", "--type", "rect"}).status, kConflict);
}

TEST_F(Tool, EntryTypesAreToldByShapeAndAWrongTypeNamesWhatIsStored) {
  Ok({"entries", file, "cfg", "set", "ratio", "0.25"});
  Ok({"entries", file, "cfg", "set", "count", "42"});
  Fails({"entries", file, "cfg", "get", "ratio", "--type", "int"}, kConflict,
        {"ratio holds 8 bytes: an int64, a uint64, a double or a size, not an int"});
  Fails({"entries", file, "cfg", "get", "count", "--type", "string"}, kConflict,
        {"count holds 4 bytes: an int or a uint, not a string"});
  // 64-bit values both ways, and what does not fit.
  EXPECT_EQ(Ok({"entries", file, "cfg", "set", "big", "18446744073709551615"}),
            "set big = 18446744073709551615 (uint64)\n");
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "big", "--type", "uint64"}), "uint64 18446744073709551615\n");
  Ok({"entries", file, "cfg", "set", "low", "-9223372036854775808"});
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "low", "--type", "int64"}), "int64 -9223372036854775808\n");
  Fails({"entries", file, "cfg", "set", "x", "123456789012345678901"}, kUsage, {"does not fit 64 bits"});
  Fails({"entries", file, "cfg", "set", "x", "9223372036854775808", "--type", "int64"}, kUsage,
        {"does not fit an int64 (-9223372036854775808 to 9223372036854775807)"});
  Fails({"entries", file, "cfg", "set", "x", "-1", "--type", "uint"}, kUsage, {"does not fit a uint"});
  // Blobs from hexadecimal and from a file, read back as bytes.
  EXPECT_EQ(Ok({"entries", file, "cfg", "set", "key", "00ff10", "--type", "blob"}), "set key = 3 bytes (blob)\n");
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "key", "--type", "blob"}), std::string("\x00\xff\x10", 3));
  WriteWholeFile(Path("raw"), Pattern(5000, 7));
  Ok({"entries", file, "cfg", "set", "raw", "@" + Path("raw"), "--type", "blob"});
  const std::string raw = Ok({"entries", file, "cfg", "get", "raw", "--type", "blob"});
  EXPECT_EQ(std::vector<unsigned char>(raw.begin(), raw.end()), Pattern(5000, 7));
  Fails({"entries", file, "cfg", "set", "x", "0g", "--type", "blob"}, kUsage, {"hexadecimal"});
  Fails({"entries", file, "cfg", "get", "key", "--type", "int"}, kConflict,
        {"key holds a blob of 3 bytes after a size prefix, not an int"});
  Ok({"entries", file, "cfg", "set", "none", "", "--type", "blob"});
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "none", "--type", "blob"}), "");
  // A new value replaces the old one whole, whatever their types and lengths.
  Ok({"entries", file, "cfg", "set", "key", "a long string that is replaced"});
  Ok({"entries", file, "cfg", "set", "key", "5"});
  EXPECT_EQ(Ok({"entries", file, "cfg", "get", "key"}), "int 5\n");
  const std::string list = Ok({"entries", file, "cfg"});
  EXPECT_TRUE(Contains(list, "key                               4  int 5\n")) << list;
  EXPECT_TRUE(Contains(list, "none                              0  blob 0 bytes: \n")) << list;
}

TEST_F(Tool, ExportNeverWritesOverFilesWithoutForce) {
  WriteWholeFile(Path("hundred"), Pattern(100, 3));
  Ok({"put", file, "f/a", Path("hundred")});
  Ok({"put", file, "f/b", "-"});
  const std::string out = Path("out");
  std::filesystem::create_directories(out + "/f");
  WriteWholeFile(out + "/f/a", {'o', 'l', 'd'});
  Fails({"export", file, out}, kConflict, {out + "/f/a: exists", "nothing was written", "--force"});
  EXPECT_FALSE(std::filesystem::exists(out + "/f/b"));
  EXPECT_EQ(ReadWholeFile(out + "/f/a"), std::vector<unsigned char>({'o', 'l', 'd'}));
  // A dry run lists the files and writes none of them.
  EXPECT_EQ(Ok({"export", file, out, "--dry-run", "--force"}),
            "would write " + out + "/f/a (100 bytes)\nwould write " + out + "/f/b (0 bytes)\n" +
                "would export 2 streams (100 bytes) in 1 folder to " + out + "\n");
  EXPECT_FALSE(std::filesystem::exists(out + "/f/b"));
  Ok({"export", file, out, "--force"});
  EXPECT_EQ(ReadWholeFile(out + "/f/a"), Pattern(100, 3));
  // Something of the other kind is in the way even with --force.
  std::filesystem::remove_all(out);
  std::filesystem::create_directories(out);
  WriteWholeFile(out + "/f", {});
  Fails({"export", file, out, "--force"}, kConflict, {out + "/f: exists and is not a folder"});
}

TEST_F(Tool, EachKindOfFailureHasItsStatusAndOneLineNamingTheFile) {
  WriteWholeFile(Path("text.txt"), std::vector<unsigned char>(6000, 'x'));
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string named;
  };
  const std::vector<Case> cases = {
      {{"ls", Path("absent.aostore")}, kUnreadable, Path("absent.aostore")},
      {{"cat", Path("text.txt"), "a"}, kNotContainer, Path("text.txt")},
      {{"cat", file, "nothing/here"}, kNoSuchStream, file},
      {{"ls", file, "a", "b", "c"}, kUsage, "usage"},
      {{"ls", file, "--bogus"}, kUsage, "--bogus"},
      {{"frobnicate"}, kUsage, "frobnicate"},
      {{"export", file, Path("text.txt") + "/below"}, kHostFile, "below"},
  };
  for (const Case& c : cases) {
    const ToolRun run = Run(c.args);
    EXPECT_EQ(run.status, c.status) << c.args[0] << ": " << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_NE(run.err.find(c.named), std::string::npos) << run.err;
    EXPECT_TRUE(run.out.empty()) << run.out;
  }
}

TEST_F(Tool, ReadOnlyCommandsLeaveTheFileAsItWas) {
  Ok({"put", file, "f/a", "-"});
  Ok({"entries", file, "f", "set", "n", "1"});
  const auto before = ReadWholeFile(file);
  const auto stamp = fs::last_write_time(file);
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"info", file}, {"ls", file, "-lR"}, {"cat", file, "f/a"},
                                             {"entries", file, "f"}, {"entries", file, "f", "get", "n"},
                                             {"check", file}, {"export", file, Path("out")}}) {
    Ok(args);
  }
  EXPECT_EQ(ReadWholeFile(file), before);
  EXPECT_EQ(fs::last_write_time(file), stamp);
  // A read-only file can be read.
  fs::permissions(file, fs::perms::owner_read, fs::perm_options::replace);
  Ok({"ls", file, "-R"});
}

TEST_F(Tool, ADamagedRootDirectoryIsReportedAndTheFileKept) {
  Ok({"put", file, "a", "-"});
  auto bytes = ReadWholeFile(file);
  bytes[36] = 63;  // the first root table's slot count
  WriteWholeFile(file, bytes);
  for (const char* command : {"ls", "info", "compact"}) {
    const ToolRun run = Run({command, file});
    EXPECT_EQ(run.status, kDamaged) << command << ": " << run.err;
    EXPECT_NE(run.err.find("damaged at offset 36"), std::string::npos) << run.err;
  }
  EXPECT_EQ(Run({"put", file, "b", "-"}).status, kDamaged);
  EXPECT_EQ(ReadWholeFile(file), bytes);
}

TEST_F(Tool, CompactGivesSpaceBackAndKeepsEveryByte) {
  WriteWholeFile(Path("chunk"), Pattern(20000, 5));
  for (int round = 0; round < 5; ++round) {
    Ok({"put", file, "keep/a", Path("chunk"), "--append"});
    Ok({"put", file, "keep/b", Path("chunk"), "--append"});
    Ok({"put", file, "gone/" + std::to_string(round), Path("chunk")});
  }
  Ok({"rm", file, "gone", "-r"});
  const std::string a = Ok({"cat", file, "keep/a"}), b = Ok({"cat", file, "keep/b"});
  const int64_t before = ao::test::FileSize(file);
  const std::string said = Ok({"compact", file});
  EXPECT_NE(said.find("compacted"), std::string::npos);
  EXPECT_LT(ao::test::FileSize(file), before - 5 * 20000);
  EXPECT_EQ(Ok({"cat", file, "keep/a"}), a);
  EXPECT_EQ(Ok({"cat", file, "keep/b"}), b);
  EXPECT_EQ(Ok({"ls", file, "-R"}), "keep/\nkeep/a\nkeep/b\n");
  EXPECT_EQ(Run({"check", file}).status, 0);
  EXPECT_FALSE(fs::exists(file + "_tmp"));
}

TEST_F(Tool, StressRunsVerifiedPassesOnAPathItOwns) {
  const std::string out = Ok({"stress", "--threads", "6", "--passes", "2", "--path", Path("stress.dat")});
  EXPECT_NE(out.find("streams verified 12, missing 0, differing 0, writers failed 0"), std::string::npos) << out;
  EXPECT_FALSE(fs::exists(Path("stress.dat")));
  EXPECT_EQ(Run({"stress", "--path", file}).status, kConflict);  // never a file of the user's
  EXPECT_TRUE(fs::exists(file));
  EXPECT_EQ(Run({"stress", "--threads", "0"}).status, kUsage);
}

TEST_F(Tool, DemoRunsEveryStepOnTheSourceTree) {
  const ToolRun run = Run({"demo", Path("demo")});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  for (const char* line : {"identical to the source, byte for byte", "the two containers now hold the same tree",
                           "replica.aostore: clean", "0 missing, 0 differing", "all steps passed"}) {
    EXPECT_NE(run.out.find(line), std::string::npos) << line;
  }
  EXPECT_TRUE(fs::exists(Path("demo/source.aostore")));
}

}  // namespace
