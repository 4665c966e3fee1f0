// A host directory tree into a container.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "progress.h"
#include "stream_data.h"
#include "transfer.h"
#include "tree.h"

namespace fs = std::filesystem;

namespace aotool {
namespace {

struct HostEntry {
  std::string name;
  fs::path path;
  bool directory = false;
};

class Importer {
 public:
  Importer(const Container& container, const HostFilter& filter) : container_(container), filter_(filter) {}

  // The entries of dir that are taken, in name order; links and special
  // files are counted as skipped.
  std::vector<HostEntry> List(const fs::path& dir) {
    std::vector<HostEntry> entries;
    std::error_code error;
    for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error)) {
      const fs::file_status status = it->symlink_status(error);
      if (error) break;
      const std::string name = it->path().filename().string();
      const bool directory = fs::is_directory(status);
      if (!directory && !fs::is_regular_file(status)) {
        ++counts_.skipped;
        continue;
      }
      if (!filter_ || filter_(name, directory)) entries.push_back({name, it->path(), directory});
    }
    if (error) Fail(Exit::kHostFile, dir.string() + ": cannot read the folder (" + error.message() + ")");
    std::sort(entries.begin(), entries.end(), [](const HostEntry& a, const HostEntry& b) { return a.name < b.name; });
    return entries;
  }

  // Checks every name and sums the file sizes before anything is written.
  int64_t Survey(const fs::path& dir) {
    int64_t bytes = 0;
    for (const HostEntry& entry : List(dir)) {
      if (entry.name.size() > static_cast<size_t>(kAoMaxNameLength)) {
        Fail(Exit::kHostFile, entry.path.string() + ": the name is longer than the " +
                                  std::to_string(kAoMaxNameLength) + " bytes a stream name may have");
      }
      std::error_code error;
      bytes += entry.directory ? Survey(entry.path) : static_cast<int64_t>(fs::file_size(entry.path, error));
    }
    return bytes;
  }

  void Run(aoStream* folder, const fs::path& dir, const std::string& prefix, Progress& progress) {
    // With the folder's children in its map, each look-up is one probe and
    // each new child is appended without a scan of the folder.
    if (folder != nullptr) folder->PreloadChildren();
    for (const HostEntry& entry : List(dir)) {
      const std::string path = prefix.empty() ? entry.name : prefix + "/" + entry.name;
      const HeldStream child(Child(folder, entry.name, entry.directory, path));
      if (entry.directory) {
        ++counts_.folders;
        Run(child.get(), entry.path, path, progress);
      } else {
        std::ifstream in(entry.path, std::ios::binary);
        if (!in) Fail(Exit::kHostFile, entry.path.string() + ": cannot read the file");
        counts_.bytes += WriteWhole(
            container_, *child.get(), path, false,
            [&in](unsigned char* buffer, size_t capacity) {
              in.read(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(capacity));
              return static_cast<size_t>(in.gcount());
            },
            &progress);
        if (in.bad()) Fail(Exit::kHostFile, entry.path.string() + ": read error");
        ++counts_.files;
      }
    }
  }

  const TransferCounts& counts() const { return counts_; }

 private:
  aoStream* Child(aoStream* folder, const std::string& name, bool asFolder, const std::string& path) {
    aoStream* child = OpenChild(container_, folder, name, kAoModeEdit);
    if (child != nullptr && (child->IsFolder() != 0) != asFolder) {
      child->Release();
      Fail(Exit::kConflict, container_.file() + ": " + path + " exists as a " + (asFolder ? "data stream" : "folder"));
    }
    if (child == nullptr) {
      const uint32_t attributes = asFolder ? 1 : 0;
      child = folder == nullptr ? container_.storage().CreateStream(name.c_str(), attributes, kAoModeEdit)
                                : folder->CreateStream(name.c_str(), attributes, kAoModeEdit, 0);
    }
    if (child == nullptr) FailWithDiagnosis(container_.file(), Exit::kWriteFailed, "cannot create " + path);
    return child;
  }

  const Container& container_;
  const HostFilter& filter_;
  TransferCounts counts_;
};

}  // namespace

TransferCounts ImportTree(const Container& container, const std::string& dir, const std::vector<std::string>& base,
                          const HostFilter& filter) {
  std::error_code error;
  if (!fs::is_directory(dir, error)) Fail(Exit::kHostFile, dir + ": not a folder");
  // The survey counts what it skips too; the import counts afresh.
  const int64_t total = Importer(container, filter).Survey(dir);
  Importer writer(container, filter);
  const StreamPath target = OpenOrCreatePath(container, base, true);
  Progress progress("import", total);
  writer.Run(target.target(), dir, JoinPath(base, base.size()), progress);
  return writer.counts();
}

}  // namespace aotool
