// import and export: directory trees of the host into folders and streams,
// and back.
#include <filesystem>

#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "names.h"
#include "transfer.h"

namespace aotool {
namespace {

std::string Counted(int64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string Summary(const TransferCounts& counts, const char* item, const char* items) {
  return Counted(counts.files, item, items) + " (" + std::to_string(counts.bytes) + " bytes) in " +
         Counted(counts.folders, "folder", "folders");
}

// Lists what a dry run would import, as paths inside the container.
void ListImport(const HostTree& tree, const std::string& base, std::ostream& out) {
  VisitHostTree(tree, [&](const HostTree::Node& node, const std::string& path) {
    out << "would import " << (base.empty() ? "" : base + "/") << path << (node.directory ? "/" : "") << '\n';
  });
}

bool FileExists(const std::string& file) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(file, error));
}

}  // namespace

int RunImport(const Words& words, std::ostream& out) {
  const Arguments args(words, "import");
  args.ExpectCount(2, 3);
  const std::string& file = args[0];
  const std::string& dir = args[1];
  const std::vector<std::string> base = SplitPath(args.count() > 2 ? args[2] : "");
  RequireValidNames(base);
  const bool skipInvalid = args.Has("--skip-invalid"), dryRun = args.Has("--dry-run");
  const HostTree tree = SurveyHostTree(dir, nullptr, file);
  const auto hostPath = [&dir](const std::string& path) { return (std::filesystem::path(dir) / path).string(); };
  for (const Skipped& invalid : tree.invalid)
    Warn(std::string(skipInvalid ? "skipped " : "") + Shown(hostPath(invalid.path)) + ": " + invalid.reason);
  if (!tree.invalid.empty() && !skipInvalid) {
    Fail(Exit::kInvalidName, Counted(static_cast<int64_t>(tree.invalid.size()), "name breaks", "names break") +
                                 " the name rule; nothing was written (--skip-invalid imports the rest)");
  }
  if (args.Has("-v"))
    for (const Skipped& special : tree.specials)
      Warn("skipped " + Shown(hostPath(special.path)) + ": " + special.reason);

  const std::string at = base.empty() ? "" : " at " + JoinPath(base, base.size());
  if (dryRun) {
    if (FileExists(file)) RequireNoKindConflict(Container::Open(file, Access::kRead), tree, base);
    ListImport(tree, JoinPath(base, base.size()), out);
    out << "would import " << Summary(tree.counts, "file", "files") << " into " << file << at << '\n';
  } else {
    Container container = Container::OpenOrCreate(file);
    RequireNoKindConflict(container, tree, base);
    const TransferCounts counts = ImportTree(container, tree, base);
    out << "imported " << Summary(counts, "file", "files") << " into " << file << at << '\n';
  }
  if (!tree.invalid.empty()) {
    out << "skipped " << Counted(static_cast<int64_t>(tree.invalid.size()), "name that breaks", "names that break")
        << " the name rule (listed on standard error)\n";
  }
  if (!tree.specials.empty()) {
    out << "skipped "
        << Counted(static_cast<int64_t>(tree.specials.size()), "symbolic link or special file",
                   "symbolic links and special files")
        << (args.Has("-v") ? " (listed on standard error)\n" : " (-v lists them)\n");
  }
  return 0;
}

int RunExport(const Words& words, std::ostream& out) {
  const Arguments args(words, "export");
  args.ExpectCount(2, 3);
  const std::string& file = args[0];
  const std::string& dir = args[args.count() - 1];
  const std::vector<std::string> base = SplitPath(args.count() > 2 ? args[1] : "");
  ExportOptions options;
  options.force = args.Has("--force");
  options.dryRun = args.Has("--dry-run");
  const ao::CheckReport health = CheckForReading(file);
  const Container container = Container::Open(file, health);
  ExportResult result;
  const int status = ReadChecked(file, health, [&]() -> int64_t {
    result = ExportTree(container, base, dir, options, out);
    out << (options.dryRun ? "would export " : "exported ") << Summary(result.counts, "stream", "streams") << " to "
        << dir << '\n';
    if (!result.skipped.empty()) {
      out << "skipped " << Counted(static_cast<int64_t>(result.skipped.size()), "name", "names")
          << " that cannot be file names here (listed on standard error)\n";
    }
    return result.unreadable;
  });
  if (status != 0 || result.skipped.empty() || args.Has("--skip-invalid")) return status;
  return static_cast<int>(Exit::kInvalidName);
}

}  // namespace aotool
