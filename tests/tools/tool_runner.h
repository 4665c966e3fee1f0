// Runs the built aostore binary as a separate process, the way a person or
// a script would, and collects its exit status and output.
#ifndef AOSTORE_TESTS_TOOLS_TOOL_RUNNER_H
#define AOSTORE_TESTS_TOOLS_TOOL_RUNNER_H

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "support/temp_dir.h"

extern char** environ;

namespace ao::test {

// Exit status of a child that a sanitizer stopped: set apart from every
// status the tool itself uses.
inline constexpr int kSanitizerExit = 99;

struct ToolRun {
  int status = -1;  // the exit status; -1 when the process died of a signal
  std::string out;
  std::string err;
};

inline std::string ReadText(const std::string& path) {
  const std::vector<unsigned char> bytes = ReadWholeFile(path);
  return std::string(bytes.begin(), bytes.end());
}

// The environment for the child: this process's, with the sanitizers told
// to exit with kSanitizerExit.
inline std::vector<std::string> ChildEnvironment() {
  const std::string exit = ":exitcode=" + std::to_string(kSanitizerExit);
  std::vector<std::string> variables;
  bool asan = false, ubsan = false;
  for (char** at = environ; *at != nullptr; ++at) {
    std::string variable = *at;
    if (variable.rfind("ASAN_OPTIONS=", 0) == 0) {
      asan = true;
      variable += exit;
    } else if (variable.rfind("UBSAN_OPTIONS=", 0) == 0) {
      ubsan = true;
      variable += exit;
    }
    variables.push_back(variable);
  }
  if (!asan) variables.push_back("ASAN_OPTIONS=" + exit.substr(1));
  if (!ubsan) variables.push_back("UBSAN_OPTIONS=halt_on_error=1" + exit);
  return variables;
}

// Runs aostore with args in dir (for its output files); standard input
// comes from the file input (empty when none is given).
inline ToolRun RunTool(const TempDir& dir, const std::vector<std::string>& args, const std::string& input = "") {
  const std::string in = input.empty() ? dir.File(".stdin") : input;
  if (input.empty()) WriteWholeFile(in, {});
  const std::string out = dir.File(".stdout"), err = dir.File(".stderr");
  std::vector<std::string> words = {AOSTORE_TOOL};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<std::string> variables = ChildEnvironment();
  std::vector<char*> envp;
  for (std::string& variable : variables) envp.push_back(variable.data());
  envp.push_back(nullptr);
  pid_t pid = 0;
  ToolRun run;
  if (posix_spawn(&pid, AOSTORE_TOOL, &actions, nullptr, argv.data(), envp.data()) == 0) {
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
  }
  posix_spawn_file_actions_destroy(&actions);
  run.out = ReadText(out);
  run.err = ReadText(err);
  return run;
}

}  // namespace ao::test

#endif  // AOSTORE_TESTS_TOOLS_TOOL_RUNNER_H
