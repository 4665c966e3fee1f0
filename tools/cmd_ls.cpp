// ls: the streams and folders of the root or of a folder.
#include <cstdio>

#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "json.h"
#include "names.h"
#include "tree.h"

namespace aotool {
namespace {

std::string Flags(const TreeEntry& entry) {
  std::string flags;
  if ((entry.flags & kAoFlagSizePrefix) != 0) flags += 'p';
  if (entry.childInfo != 0) flags += 'i';
  return flags;
}

void PrintText(std::ostream& out, const TreeEntry& entry, bool longForm) {
  const std::string name = Shown(entry.path) + (entry.folder ? "/" : "");
  if (!longForm) {
    out << name << '\n';
    return;
  }
  const std::string flags = Flags(entry);
  char line[96];
  std::snprintf(line, sizeof line, "%-6s %12lld %8u %-5s ", entry.folder ? "folder" : "stream",
                static_cast<long long>(entry.length), static_cast<unsigned>(entry.duration),
                flags.empty() ? "-" : flags.c_str());
  out << line << name << '\n';
}

void PrintJson(std::ostream& out, const std::vector<TreeEntry>& entries) {
  out << '[';
  for (size_t i = 0; i < entries.size(); ++i) {
    const TreeEntry& e = entries[i];
    out << (i == 0 ? "\n" : ",\n") << "  {\"path\": " << JsonString(e.path) << ", \"name\": " << JsonString(e.name)
        << ", \"kind\": \"" << (e.folder ? "folder" : "stream") << "\", \"length\": " << e.length
        << ", \"duration\": " << e.duration << ", \"flags\": \"" << Flags(e) << "\", \"childInfo\": " << e.childInfo
        << '}';
  }
  out << (entries.empty() ? "]\n" : "\n]\n");
}

// The entry of a data stream that ls is asked about by its own path.
TreeEntry Describe(aoStream& stream, const std::string& name) {
  TreeEntry entry;
  entry.name = entry.path = name;
  entry.length = stream.GetLength();
  entry.duration = stream.GetDuration();
  entry.flags = stream.GetHeader().flags;
  entry.childInfo = stream.GetHeader().childInfo;
  return entry;
}

}  // namespace

int RunLs(const Words& words, std::ostream& out) {
  const Arguments args(words, "ls");
  args.ExpectCount(1, 2);
  const std::string& file = args[0];
  const std::vector<std::string> names = SplitPath(args.count() > 1 ? args[1] : "");
  const ao::CheckReport health = CheckForReading(file);
  const Container container = Container::Open(file, health);
  return ReadChecked(file, health, [&]() -> int64_t {
    const StreamPath path = OpenPath(container, names, kAoModeInspect);
    std::vector<TreeEntry> entries;
    std::vector<std::string> unopened;
    if (path.target() != nullptr && path.target()->IsFolder() == 0) {
      entries.push_back(Describe(*path.target(), names.back()));
    } else {
      WalkTree(
          container, path.target(), args.Has("-R"),
          [&entries](const TreeEntry& entry, aoStream*) { entries.push_back(entry); },
          [&unopened](const TreeEntry& entry) { unopened.push_back(entry.path); });
    }
    if (args.Has("--json")) {
      PrintJson(out, entries);
    } else {
      for (const TreeEntry& entry : entries) PrintText(out, entry, args.Has("-l"));
    }
    for (const std::string& folder : unopened)
      Warn(Shown(folder) + ": cannot open the folder; what it holds is not listed");
    return static_cast<int64_t>(unopened.size());
  });
}

}  // namespace aotool
