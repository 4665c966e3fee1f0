// Runs the built aostore binary as a separate process, the way a person or
// a script would, and collects its exit status and output.
#ifndef AOSTORE_TESTS_TOOLS_TOOL_RUNNER_H
#define AOSTORE_TESTS_TOOLS_TOOL_RUNNER_H

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

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

// The environment for the child: this process's, with extra in place of
// variables of the same names, and the sanitizers told to exit with
// kSanitizerExit.
inline std::vector<std::string> ChildEnvironment(const std::vector<std::string>& extra = {}) {
  const std::string exit = ":exitcode=" + std::to_string(kSanitizerExit);
  std::vector<std::string> variables;
  bool asan = false, ubsan = false;
  for (char** at = environ; *at != nullptr; ++at) {
    std::string variable = *at;
    const std::string name = variable.substr(0, variable.find('=') + 1);
    bool replaced = false;
    for (const std::string& other : extra) replaced = replaced || other.rfind(name, 0) == 0;
    if (replaced) continue;
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
  variables.insert(variables.end(), extra.begin(), extra.end());
  return variables;
}

// Starts program with args; standard input, output and error are set up by actions.
inline pid_t Spawn(const std::string& program, const std::vector<std::string>& args,
                   posix_spawn_file_actions_t* actions, const std::vector<std::string>& environment) {
  std::vector<std::string> words = {program};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::vector<std::string> variables = ChildEnvironment(environment);
  std::vector<char*> envp;
  for (std::string& variable : variables) envp.push_back(variable.data());
  envp.push_back(nullptr);
  pid_t pid = 0;
  return posix_spawn(&pid, program.c_str(), actions, nullptr, argv.data(), envp.data()) == 0 ? pid : -1;
}

inline int ExitStatusOf(pid_t pid) {
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

// Runs program with args in dir (for its output files); standard input
// comes from the file input (empty when none is given). environment adds
// variables ("NAME=value").
inline ToolRun RunProgram(const TempDir& dir, const std::string& program, const std::vector<std::string>& args,
                          const std::string& input = "", const std::vector<std::string>& environment = {}) {
  const std::string in = input.empty() ? dir.File(".stdin") : input;
  if (input.empty()) WriteWholeFile(in, {});
  const std::string out = dir.File(".stdout"), err = dir.File(".stderr");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ToolRun run;
  run.status = ExitStatusOf(Spawn(program, args, &actions, environment));
  posix_spawn_file_actions_destroy(&actions);
  run.out = ReadText(out);
  run.err = ReadText(err);
  return run;
}

// Runs aostore, as RunProgram does.
inline ToolRun RunTool(const TempDir& dir, const std::vector<std::string>& args, const std::string& input = "",
                       const std::vector<std::string>& environment = {}) {
  return RunProgram(dir, AOSTORE_TOOL, args, input, environment);
}

// Runs aostore with its standard error on a pseudo-terminal, as in a
// person's shell; err is what was drawn there.
inline ToolRun RunToolOnTerminal(const TempDir& dir, const std::vector<std::string>& args,
                                 const std::vector<std::string>& environment = {}) {
  ToolRun run;
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) return run;
  const std::string out = dir.File(".stdout");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, ptsname(terminal), O_RDWR | O_NOCTTY, 0);
  const pid_t pid = Spawn(AOSTORE_TOOL, args, &actions, environment);
  posix_spawn_file_actions_destroy(&actions);
  // Read while the child runs, so that it never waits on a full terminal.
  char piece[4096];
  int status = 0;
  bool running = pid > 0;
  while (running) {
    pollfd ready{terminal, POLLIN, 0};
    if (poll(&ready, 1, 20) > 0 && (ready.revents & POLLIN) != 0) {
      const ssize_t got = read(terminal, piece, sizeof piece);
      if (got > 0) run.err.append(piece, static_cast<size_t>(got));
    }
    running = waitpid(pid, &status, WNOHANG) == 0;
  }
  for (pollfd ready{terminal, POLLIN, 0}; poll(&ready, 1, 0) > 0 && (ready.revents & POLLIN) != 0;) {
    const ssize_t got = read(terminal, piece, sizeof piece);
    if (got <= 0) break;
    run.err.append(piece, static_cast<size_t>(got));
  }
  close(terminal);
  if (pid > 0 && WIFEXITED(status)) run.status = WEXITSTATUS(status);
  run.out = ReadText(out);
  return run;
}

}  // namespace ao::test

#endif  // AOSTORE_TESTS_TOOLS_TOOL_RUNNER_H
