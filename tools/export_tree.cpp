// A container tree into a host directory tree.
#include <filesystem>
#include <fstream>

#include "progress.h"
#include "stream_data.h"
#include "transfer.h"
#include "tree.h"

namespace fs = std::filesystem;

namespace aotool {
namespace {

// Stream names are bytes; a host file name may not be empty, "." or "..",
// nor hold a separator or a NUL.
void CheckHostName(const std::string& name, const std::string& path) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
      name.find('\\') != std::string::npos) {
    Fail(Exit::kHostFile, "the stream " + path + " has a name that cannot be a file name");
  }
}

class Exporter {
 public:
  explicit Exporter(const Container& container) : container_(container) {}

  void Stream(aoStream& stream, const std::string& path, const fs::path& file, Progress& progress) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    if (!out) Fail(Exit::kHostFile, file.string() + ": cannot create the file");
    counts_.bytes += ReadWhole(container_, stream, path,
                               [&out](const unsigned char* bytes, size_t count) {
                                 out.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(count));
                               },
                               &progress);
    out.close();
    if (!out) Fail(Exit::kHostFile, file.string() + ": write error");
    ++counts_.files;
  }

  void Folder(aoStream* folder, const std::string& prefix, const fs::path& dir, Progress& progress) {
    for (const TreeEntry& entry : ListChildren(container_, folder)) {
      const std::string path = prefix.empty() ? entry.name : prefix + "/" + entry.name;
      const HeldStream child(OpenChild(container_, folder, entry.name, kAoModeInspect));
      if (child.get() == nullptr) FailWithDiagnosis(container_.file(), Exit::kUnreadable, "cannot open " + path);
      const fs::path target = dir / entry.name;
      if (entry.folder) {
        std::error_code error;
        fs::create_directory(target, error);
        if (error) Fail(Exit::kHostFile, target.string() + ": cannot create the folder");
        ++counts_.folders;
        Folder(child.get(), path, target, progress);
      } else {
        Stream(*child.get(), path, target, progress);
      }
    }
  }

  const TransferCounts& counts() const { return counts_; }

 private:
  const Container& container_;
  TransferCounts counts_;
};

}  // namespace

TransferCounts ExportTree(const Container& container, const std::vector<std::string>& base, const std::string& dir) {
  const StreamPath source = OpenPath(container, base, kAoModeInspect);
  const std::string prefix = JoinPath(base, base.size());
  int64_t total = 0;
  if (source.target() != nullptr && source.target()->IsFolder() == 0) {
    CheckHostName(base.back(), prefix);
    total = source.target()->GetLength();
  } else {
    WalkTree(container, source.target(), true, [&total, &prefix](const TreeEntry& entry, aoStream*) {
      CheckHostName(entry.name, prefix.empty() ? entry.path : prefix + "/" + entry.path);
      if (!entry.folder) total += entry.length;
    });
  }
  std::error_code error;
  fs::create_directories(dir, error);
  if (!fs::is_directory(dir, error)) Fail(Exit::kHostFile, dir + ": cannot create the folder");
  Exporter exporter(container);
  Progress progress("export", total);
  if (source.target() != nullptr && source.target()->IsFolder() == 0) {
    exporter.Stream(*source.target(), prefix, fs::path(dir) / base.back(), progress);
  } else {
    exporter.Folder(source.target(), prefix, dir, progress);
  }
  return exporter.counts();
}

}  // namespace aotool
