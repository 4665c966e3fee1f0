// A fixture for tests of the aostore tool: a temporary folder holding an
// empty container made by the tool itself, and the tool's exit statuses.
#ifndef AOSTORE_TESTS_TOOLS_TOOL_FIXTURE_H
#define AOSTORE_TESTS_TOOLS_TOOL_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "tools/tool_runner.h"

namespace ao::test {

// Exit statuses of the tool, as the README's table gives them.
inline constexpr int kDamaged = 1, kUnreadable = 2, kNotContainer = 3, kNoSuchStream = 4, kConflict = 5,
                     kWriteFailed = 6, kHostFile = 7, kInvalidName = 10, kUsage = 64;

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override { Ok({"create", file}); }
  ToolRun Run(const std::vector<std::string>& args, const std::string& input = "") {
    return RunTool(dir, args, input);
  }
  // Runs a command that must succeed and returns its standard output.
  std::string Ok(const std::vector<std::string>& args, const std::string& input = "") {
    const ToolRun run = Run(args, input);
    EXPECT_EQ(run.status, 0) << args[0] << ": " << run.err;
    // Standard error is no terminal here: no progress bar, no noise.
    EXPECT_EQ(run.err, "") << args[0];
    return run.out;
  }
  // Runs a command that must fail with status, saying each of words on
  // standard error; returns the run.
  ToolRun Fails(const std::vector<std::string>& args, int status, const std::vector<std::string>& words) {
    const ToolRun run = Run(args);
    EXPECT_EQ(run.status, status) << args[0] << ": " << run.err;
    for (const std::string& word : words) EXPECT_NE(run.err.find(word), std::string::npos) << word << " in " << run.err;
    return run;
  }
  std::string Path(const std::string& name) const { return dir.File(name); }

  TempDir dir;
  const std::string file = dir.File("c.aostore");
};

inline bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace ao::test

#endif  // AOSTORE_TESTS_TOOLS_TOOL_FIXTURE_H
