// aostore: inspect and change container files from the command line.
#include <cstdio>
#include <exception>
#include <iostream>
#include <map>
#include <string>

#include "commands.h"
#include "container.h"
#include "errors.h"

namespace {

const char kHelp[] =
    "usage: aostore COMMAND ARGUMENTS\n"
    "\n"
    "Paths inside a container are slash-separated (\"docs/notes/today\").\n"
    "\n"
    "  create FILE [--32]                 a new empty container (64-bit offsets unless --32)\n"
    "  info FILE                          version, tables, tree, space in use and reclaimable\n"
    "  ls FILE [PATH] [-l] [-R]           names (-l: kinds, lengths, durations, flags; -R: recursive)\n"
    "  cat FILE PATH                      a stream's data to standard output\n"
    "  put FILE PATH [SRC] [--append]     a file's (or standard input's) bytes into a stream\n"
    "  mkdir FILE PATH                    folders along PATH\n"
    "  rm FILE PATH                       a stream, or a folder with everything in it\n"
    "  mv FILE PATH NEWNAME               renames a stream or folder in its folder\n"
    "  import FILE DIR [PATH]             a directory tree into folders and streams\n"
    "  export FILE [PATH] DIR             folders and streams into a directory tree\n"
    "  entries FILE [PATH]                typed entries of the root or a folder\n"
    "  entries FILE [PATH] get NAME [--type T]\n"
    "  entries FILE [PATH] set NAME VALUE [--type T]\n"
    "                                     T: int, int64, double, string, rect (l,t,r,b), size (cx,cy), blob\n"
    "  check FILE [--json]                verifies the whole structure\n"
    "  compact FILE                       rebuilds the container without unused space\n"
    "  stress [--threads N] [--passes N] [--path P]\n"
    "                                     concurrent write test, every stream verified\n"
    "  demo [DIR]                         a tour: import, inspect, record and replay, check, export\n"
    "\n"
    "Exit status: 0 success, 1 damaged container (check: problems found), 2 file missing or\n"
    "unreadable, 3 not a container, 4 no such stream, 5 wrong kind or already exists, 6 write\n"
    "failed, 7 outside file or folder failed, 8 verification failed, 9 another process is\n"
    "writing the container, 64 wrong command line.\n";

using Command = int (*)(const aotool::Words&, std::ostream&);

const std::map<std::string, Command>& Commands() {
  static const std::map<std::string, Command> commands = {
      {"create", aotool::RunCreate},   {"info", aotool::RunInfo},       {"ls", aotool::RunLs},
      {"cat", aotool::RunCat},         {"put", aotool::RunPut},         {"mkdir", aotool::RunMkdir},
      {"rm", aotool::RunRm},           {"mv", aotool::RunMv},           {"import", aotool::RunImport},
      {"export", aotool::RunExport},   {"entries", aotool::RunEntries}, {"check", aotool::RunCheck},
      {"compact", aotool::RunCompact}, {"stress", aotool::RunStress},   {"demo", aotool::RunDemo},
  };
  return commands;
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  aotool::ApplyEnvironment();
  if (argc < 2) {
    std::fputs(kHelp, stderr);
    return static_cast<int>(aotool::Exit::kUsage);
  }
  const std::string name = argv[1];
  if (name == "help" || name == "--help" || name == "-h") {
    std::fputs(kHelp, stdout);
    return 0;
  }
  const auto command = Commands().find(name);
  if (command == Commands().end()) {
    std::fprintf(stderr, "aostore: unknown command \"%s\" (aostore help lists them)\n", name.c_str());
    return static_cast<int>(aotool::Exit::kUsage);
  }
  int status = 0;
  try {
    status = command->second(aotool::Words(argv + 2, argv + argc), std::cout);
  } catch (const aotool::ToolError& error) {
    std::cout.flush();
    std::fprintf(stderr, "aostore %s: %s\n", name.c_str(), error.what());
    return static_cast<int>(error.status());
  } catch (const std::exception& error) {
    std::cout.flush();
    std::fprintf(stderr, "aostore %s: %s\n", name.c_str(), error.what());
    return static_cast<int>(aotool::Exit::kHostFile);
  }
  std::cout.flush();
  if (!std::cout) {
    std::fprintf(stderr, "aostore %s: cannot write to standard output\n", name.c_str());
    return static_cast<int>(aotool::Exit::kHostFile);
  }
  if (aotool::WritesLost()) return static_cast<int>(aotool::Exit::kWriteFailed);
  return status;
}
