// ls: the streams and folders of the root or of a folder.
#include <cstdio>

#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "tree.h"

namespace aotool {
namespace {

std::string Flags(const TreeEntry& entry) {
  std::string flags;
  if ((entry.flags & kAoFlagSizePrefix) != 0) flags += 'p';
  if (entry.childInfo != 0) flags += 'i';
  return flags.empty() ? "-" : flags;
}

void Print(std::ostream& out, const TreeEntry& entry, bool longForm) {
  const std::string name = entry.path + (entry.folder ? "/" : "");
  if (!longForm) {
    out << name << '\n';
    return;
  }
  char line[96];
  std::snprintf(line, sizeof line, "%-6s %12lld %8u %-5s ", entry.folder ? "folder" : "stream",
                static_cast<long long>(entry.length), static_cast<unsigned>(entry.duration), Flags(entry).c_str());
  out << line << name << '\n';
}

}  // namespace

int RunLs(const Words& words, std::ostream& out) {
  const Arguments args(words, {{"-l", "-R"}, {}});
  args.ExpectCount(1, 2, "ls FILE [PATH] [-l] [-R]");
  const bool longForm = args.Has("-l");
  Container container = Container::Open(args[0], Access::kRead);
  const std::vector<std::string> names = SplitPath(args.count() > 1 ? args[1] : "");
  const StreamPath path = OpenPath(container, names, kAoModeInspect);
  aoStream* target = path.target();
  if (target != nullptr && target->IsFolder() == 0) {
    TreeEntry entry;
    entry.name = entry.path = names.back();
    entry.length = target->GetLength();
    entry.duration = target->GetDuration();
    entry.flags = target->GetHeader().flags;
    entry.childInfo = target->GetHeader().childInfo;
    Print(out, entry, longForm);
    return 0;
  }
  WalkTree(container, target, args.Has("-R"),
           [&out, longForm](const TreeEntry& entry, aoStream*) { Print(out, entry, longForm); });
  return 0;
}

}  // namespace aotool
