// aostore: inspect and change container files from the command line.
#include <cstdio>
#include <exception>
#include <iostream>
#include <map>
#include <string>

#include "commands.h"
#include "container.h"
#include "errors.h"
#include "help.h"

namespace {

using Command = int (*)(const aotool::Words&, std::ostream&);

const std::map<std::string, Command>& Commands() {
  static const std::map<std::string, Command> commands = {
      {"create", aotool::RunCreate},   {"info", aotool::RunInfo},       {"ls", aotool::RunLs},
      {"cat", aotool::RunCat},         {"put", aotool::RunPut},         {"mkdir", aotool::RunMkdir},
      {"rm", aotool::RunRm},           {"mv", aotool::RunMv},           {"import", aotool::RunImport},
      {"export", aotool::RunExport},   {"entries", aotool::RunEntries}, {"check", aotool::RunCheck},
      {"compact", aotool::RunCompact}, {"stress", aotool::RunStress},   {"demo", aotool::RunDemo},
      {"help", aotool::RunHelp},
  };
  return commands;
}

bool IsHelp(const std::string& word) { return word == "--help" || word == "-h"; }

// "--help" among the options of a command (before a "--") asks for its help.
bool AsksForHelp(const aotool::Words& words) {
  for (const std::string& word : words) {
    if (word == "--") return false;
    if (IsHelp(word)) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  aotool::ApplyEnvironment();
  if (argc < 2) {
    std::fputs(aotool::GeneralHelp().c_str(), stderr);
    return static_cast<int>(aotool::Exit::kUsage);
  }
  const std::string name = argv[1];
  const aotool::Words words(argv + 2, argv + argc);
  if (IsHelp(name)) {
    std::fputs(aotool::GeneralHelp().c_str(), stdout);
    return 0;
  }
  if (name == "--version" || name == "-V") {
    std::printf("%s\n", aotool::VersionLine().c_str());
    return 0;
  }
  const auto command = Commands().find(name);
  if (command == Commands().end()) {
    std::fprintf(stderr, "aostore: unknown command \"%s\" (aostore --help lists them)\n", name.c_str());
    return static_cast<int>(aotool::Exit::kUsage);
  }
  if (AsksForHelp(words)) {
    std::fputs(aotool::CommandHelpText(*aotool::FindCommand(name)).c_str(), stdout);
    return 0;
  }
  aotool::SetCommandName(name);
  int status = 0;
  try {
    status = command->second(words, std::cout);
  } catch (const aotool::ToolError& error) {
    aotool::Warn(error.what());
    return static_cast<int>(error.status());
  } catch (const std::exception& error) {
    aotool::Warn(error.what());
    return static_cast<int>(aotool::Exit::kHostFile);
  }
  std::cout.flush();
  if (!std::cout) {
    aotool::Warn("cannot write to standard output");
    return static_cast<int>(aotool::Exit::kHostFile);
  }
  if (aotool::WritesLost()) return static_cast<int>(aotool::Exit::kWriteFailed);
  return status;
}
