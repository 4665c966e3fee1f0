// What every command does and takes, written once: the text of --help,
// the options each command accepts, the manual page and the bash
// completion are all made from this table, so they cannot drift apart.
#ifndef AOSTORE_TOOLS_HELP_H
#define AOSTORE_TOOLS_HELP_H

#include <string>
#include <vector>

namespace aotool {

struct OptionHelp {
  const char* name;   // "--json", "-l"
  const char* value;  // what follows an option that takes a value ("N"); null for a flag
  const char* text;
};

struct CommandHelp {
  const char* name;
  std::vector<const char*> synopses;  // without "aostore "
  const char* summary;                // one line for the list of commands
  const char* text;                   // paragraphs split by blank lines; lines indented by two spaces are examples
  std::vector<OptionHelp> options;
  // Which operand (from 0) is a path inside the container, for completion; -1 for none.
  int pathOperand;
};

const std::vector<CommandHelp>& AllCommands();
// The command's entry; null for an unknown name.
const CommandHelp* FindCommand(const std::string& name);

// aostore --help: the commands, the name rule and the exit statuses.
std::string GeneralHelp();
// aostore COMMAND --help.
std::string CommandHelpText(const CommandHelp& command);
// The manual page, aostore(1), in troff.
std::string ManualPage();
// A bash completion script for aostore.
std::string BashCompletion();
// "aostore 1.2.3".
std::string VersionLine();

}  // namespace aotool

#endif  // AOSTORE_TOOLS_HELP_H
