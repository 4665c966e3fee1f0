// help: the list of commands, one command's help, the manual page and the
// completion script.
#include "arguments.h"
#include "commands.h"
#include "errors.h"
#include "help.h"

namespace aotool {

int RunHelp(const Words& words, std::ostream& out) {
  const Arguments args(words, "help");
  args.ExpectCount(0, 1);
  if (args.Has("--man") || args.Has("--bash-completion")) {
    if (args.count() != 0 || (args.Has("--man") && args.Has("--bash-completion"))) args.FailUsage();
    out << (args.Has("--man") ? ManualPage() : BashCompletion());
    return 0;
  }
  if (args.count() == 0) {
    out << GeneralHelp();
    return 0;
  }
  const CommandHelp* command = FindCommand(args[0]);
  if (command == nullptr) Fail(Exit::kUsage, "unknown command \"" + args[0] + "\" (aostore help lists them)");
  out << CommandHelpText(*command);
  return 0;
}

}  // namespace aotool
