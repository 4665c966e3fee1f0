// The tool beside other processes: a container another process is writing
// is refused with its own status, and a file size limit fails a command
// cleanly instead of killing it.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "support/temp_dir.h"
#include "tools/tool_runner.h"

namespace {

using ao::test::Pattern;
using ao::test::RunTool;
using ao::test::TempDir;
using ao::test::ToolRun;
using ao::test::WriteWholeFile;

constexpr int kWriteFailed = 6, kBusy = 9;

// Runs the tool with the file size limit (the shell's ulimit -f) set to
// limit bytes; this process keeps its own.
ToolRun RunLimited(const TempDir& dir, rlim_t limit, const std::vector<std::string>& args) {
  struct rlimit saved {};
  ::getrlimit(RLIMIT_FSIZE, &saved);
  const struct rlimit lowered = {limit, saved.rlim_max};
  EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &lowered), 0);
  const ToolRun run = RunTool(dir, args);
  ::setrlimit(RLIMIT_FSIZE, &saved);
  return run;
}

TEST(ToolBesideOthers, AContainerAnotherProcessWritesIsRefusedWithItsOwnStatus) {
  TempDir dir;
  const std::string file = dir.File("c.ao");
  WriteWholeFile(dir.File("src"), Pattern(1000, 1));
  ASSERT_EQ(RunTool(dir, {"create", file}).status, 0);
  aoStorage* holder = aoStorage::Open(file.c_str(), kAoModeEdit, 0, 0);
  ASSERT_NE(holder, nullptr);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"put", file, "a", dir.File("src")}, {"ls", file}, {"mkdir", file, "x"}, {"create", file, "--force"}}) {
    const ToolRun run = RunTool(dir, args);
    EXPECT_EQ(run.status, kBusy) << args[0] << ": " << run.err;
    EXPECT_NE(run.err.find(file + ": is being written by another process"), std::string::npos) << run.err;
  }
  holder->Release();
  EXPECT_EQ(RunTool(dir, {"put", file, "a", dir.File("src")}).status, 0);
  EXPECT_EQ(RunTool(dir, {"cat", file, "a"}).out.size(), 1000u);
}

TEST(ToolBesideOthers, CommandsUnderAFileSizeLimitFailCleanlyAndKeepTheContainer) {
  TempDir dir;
  const std::string file = dir.File("c.ao");
  constexpr rlim_t kLimit = 512 * 1024;
  std::filesystem::create_directory(dir.File("tree"));
  for (int i = 0; i < 20; ++i) WriteWholeFile(dir.File("tree/f" + std::to_string(i)), Pattern(5000, i));
  WriteWholeFile(dir.File("small"), Pattern(100000, 50));
  WriteWholeFile(dir.File("large"), Pattern(1 << 20, 51));

  EXPECT_EQ(RunLimited(dir, kLimit, {"create", file}).status, 0);
  EXPECT_EQ(RunLimited(dir, kLimit, {"put", file, "small", dir.File("small")}).status, 0);
  EXPECT_EQ(RunLimited(dir, kLimit, {"import", file, dir.File("tree"), "tree"}).status, 0);
  EXPECT_LE(ao::test::FileSize(file), static_cast<int64_t>(kLimit));

  const ToolRun tooLarge = RunLimited(dir, kLimit, {"put", file, "large", dir.File("large")});
  EXPECT_EQ(tooLarge.status, kWriteFailed) << tooLarge.err;
  EXPECT_NE(tooLarge.err.find(file), std::string::npos) << tooLarge.err;
  EXPECT_EQ(RunTool(dir, {"check", file}).status, 0);
  EXPECT_EQ(RunTool(dir, {"cat", file, "small"}).out.size(), 100000u);
  EXPECT_EQ(RunTool(dir, {"cat", file, "tree/f19"}).out.size(), 5000u);
}

}  // namespace
