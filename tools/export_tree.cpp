// A container tree into a host directory tree: planned whole (names, files
// in the way) before anything is written, then written as far as the
// container can be read.
#include <filesystem>
#include <ostream>
#include <set>

#include "host_files.h"
#include "names.h"
#include "progress.h"
#include "stream_data.h"
#include "transfer.h"
#include "tree.h"

namespace fs = std::filesystem;

namespace aotool {
namespace {

// One stream or folder to write, at its place in the host tree.
struct Planned {
  std::string path;  // inside the container, from the exported folder
  fs::path target;
  bool folder = false;
  int64_t length = 0;
};

std::string Parent(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash);
}

std::string ShownPath(const std::string& prefix, const std::string& path) {
  return Shown(prefix.empty() ? path : prefix + "/" + path);
}

// The streams and folders under a folder that export writes: every name
// checked, and what stands in the way on the host.
class Plan {
 public:
  Plan(const Container& container, aoStream* folder, const std::string& prefix, const fs::path& dir,
       ExportResult& result) {
    WalkTree(
        container, folder, true,
        [&](const TreeEntry& entry, aoStream*) {
          if (skipped_.count(Parent(entry.path)) != 0) {
            if (entry.folder) skipped_.insert(entry.path);
            return;
          }
          const std::string problem = HostNameProblem(entry.name);
          if (!problem.empty()) {
            result.skipped.push_back({prefix.empty() ? entry.path : prefix + "/" + entry.path, "the name " + problem});
            skipped_.insert(entry.path);
            return;
          }
          items_.push_back({entry.path, dir / fs::path(entry.path), entry.folder, entry.length});
          ++(entry.folder ? counts_.folders : counts_.files);
          if (!entry.folder) counts_.bytes += entry.length;
        },
        [](const TreeEntry&) {});  // said when the writing walk meets it
  }

  // A plan of nothing, or of one data stream.
  Plan() = default;
  Plan(const std::string& name, const fs::path& dir, int64_t length) {
    items_.push_back({name, dir / name, false, length});
    counts_ = {1, 0, length};
  }

  bool Skips(const std::string& path) const { return skipped_.count(path) != 0 || skipped_.count(Parent(path)) != 0; }
  const std::vector<Planned>& items() const { return items_; }
  const TransferCounts& counts() const { return counts_; }

  // Files that would be written over (unless force), and things of the
  // other kind where a folder or a file goes (always).
  std::vector<std::string> Obstacles(bool force) const {
    std::vector<std::string> obstacles;
    for (const Planned& item : items_) {
      std::error_code error;
      const fs::file_status status = fs::symlink_status(item.target, error);
      if (!fs::exists(status)) continue;
      if (item.folder && !fs::is_directory(status)) {
        obstacles.push_back(item.target.string() + ": exists and is not a folder");
      } else if (!item.folder && fs::is_directory(status)) {
        obstacles.push_back(item.target.string() + ": a folder is where a stream goes");
      } else if (!item.folder && !force) {
        obstacles.push_back(item.target.string() + ": exists");
      }
    }
    return obstacles;
  }

  void List(std::ostream& out) const {
    for (const Planned& item : items_) {
      std::error_code error;
      if (!item.folder) {
        out << "would write " << item.target.string() << " (" << item.length << " bytes)\n";
      } else if (!fs::is_directory(item.target, error)) {
        out << "would create " << item.target.string() << "/\n";
      }
    }
  }

 private:
  std::vector<Planned> items_;
  std::set<std::string> skipped_;  // folders left out, with everything below
  TransferCounts counts_;
};

class Writer {
 public:
  Writer(const Container& container, const std::string& prefix, ExportResult& result, Progress& progress)
      : container_(container), prefix_(prefix), result_(result), progress_(progress) {}

  void Folder(const fs::path& target) {
    std::error_code error;
    fs::create_directory(target, error);
    if (error) Fail(Exit::kHostFile, target.string() + ": " + error.message());
    ++result_.counts.folders;
  }

  void Stream(aoStream& stream, const std::string& path, const fs::path& target) {
    // An existing file (or a link) is replaced, never written through.
    std::error_code error;
    fs::remove(target, error);
    HostOutput file(target.string());
    const int64_t got = ReadAvailable(
        stream, [&file](const unsigned char* bytes, size_t count) { file.Write(bytes, count); }, &progress_);
    file.Close();
    result_.counts.bytes += got;
    ++result_.counts.files;
    if (got != stream.GetLength()) {
      Unreadable(ShownPath(prefix_, path) + ": only " + std::to_string(got) + " of its " +
                 std::to_string(stream.GetLength()) + " bytes could be read; " + target.string() + " holds them");
    }
  }

  void Unreadable(const std::string& message) {
    Warn(container_.file() + ": " + message);
    ++result_.unreadable;
  }

 private:
  const Container& container_;
  const std::string& prefix_;
  ExportResult& result_;
  Progress& progress_;
};

}  // namespace

ExportResult ExportTree(const Container& container, const std::vector<std::string>& base, const std::string& dir,
                        const ExportOptions& options, std::ostream& out) {
  ExportResult result;
  const StreamPath source = OpenPath(container, base, kAoModeInspect);
  const std::string prefix = JoinPath(base, base.size());
  aoStream* top = source.target();
  const bool single = top != nullptr && top->IsFolder() == 0;
  const std::string problem = single ? HostNameProblem(base.back()) : "";
  if (!problem.empty()) result.skipped.push_back({prefix, "the name " + problem});
  const Plan plan = single ? (problem.empty() ? Plan(base.back(), dir, top->GetLength()) : Plan())
                           : Plan(container, top, prefix, dir, result);
  for (const Skipped& skipped : result.skipped) Warn("skipped " + Shown(skipped.path) + ": " + skipped.reason);

  std::vector<std::string> obstacles;
  std::error_code error;
  const fs::file_status status = fs::status(dir, error);
  if (fs::exists(status) && !fs::is_directory(status)) obstacles.push_back(dir + ": exists and is not a folder");
  if (obstacles.empty()) obstacles = plan.Obstacles(options.force);
  if (!obstacles.empty()) {
    for (const std::string& obstacle : obstacles) Warn(obstacle);
    Fail(Exit::kConflict, std::to_string(obstacles.size()) + (obstacles.size() == 1 ? " file is" : " files are") +
                              " in the way; nothing was written" +
                              (options.force ? "" : " (--force writes over files)"));
  }
  if (options.dryRun) {
    plan.List(out);
    result.counts = plan.counts();
    return result;
  }
  fs::create_directories(dir, error);
  if (!fs::is_directory(dir, error)) Fail(Exit::kHostFile, dir + ": cannot create the folder: " + error.message());
  Progress progress("export", plan.counts().bytes);
  Writer writer(container, prefix, result, progress);
  if (single) {
    if (problem.empty()) writer.Stream(*top, base.back(), plan.items().front().target);
    return result;
  }
  WalkTree(
      container, top, true,
      [&](const TreeEntry& entry, aoStream* parent) {
        if (plan.Skips(entry.path)) return;
        const fs::path target = fs::path(dir) / fs::path(entry.path);
        if (entry.folder) {
          writer.Folder(target);
          return;
        }
        const HeldStream stream(OpenChild(container, parent, entry.name, kAoModeInspect));
        if (stream.get() == nullptr) {
          writer.Unreadable(ShownPath(prefix, entry.path) + ": cannot open the stream; it is not exported");
        } else {
          writer.Stream(*stream.get(), entry.path, target);
        }
      },
      [&](const TreeEntry& entry) {
        writer.Unreadable(ShownPath(prefix, entry.path) + ": cannot open the folder; what it holds is not exported");
      });
  return result;
}

}  // namespace aotool
