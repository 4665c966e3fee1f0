// import and export: directory trees of the host into folders and streams,
// and back.
#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "transfer.h"

namespace aotool {

int RunImport(const Words& words, std::ostream& out) {
  const Arguments args(words, {});
  args.ExpectCount(2, 3, "import FILE DIR [PATH]");
  const std::vector<std::string> base = SplitPath(args.count() > 2 ? args[2] : "");
  Container container = Container::OpenOrCreate(args[0]);
  const TransferCounts counts = ImportTree(container, args[1], base, nullptr);
  out << "imported " << counts.files << " files (" << counts.bytes << " bytes) in " << counts.folders
      << " folders into " << args[0];
  if (!base.empty()) out << " at " << JoinPath(base, base.size());
  out << '\n';
  if (counts.skipped > 0) out << "skipped " << counts.skipped << " entries that are neither files nor folders\n";
  return 0;
}

int RunExport(const Words& words, std::ostream& out) {
  const Arguments args(words, {});
  args.ExpectCount(2, 3, "export FILE [PATH] DIR");
  const std::string& dir = args[args.count() - 1];
  const std::vector<std::string> base = SplitPath(args.count() > 2 ? args[1] : "");
  Container container = Container::Open(args[0], Access::kRead);
  const TransferCounts counts = ExportTree(container, base, dir);
  out << "exported " << counts.files << " streams (" << counts.bytes << " bytes) in " << counts.folders
      << " folders to " << dir << '\n';
  return 0;
}

}  // namespace aotool
