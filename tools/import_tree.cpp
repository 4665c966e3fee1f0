// A host directory tree into a container.
#include <algorithm>
#include <filesystem>

#include "host_files.h"
#include "names.h"
#include "progress.h"
#include "stream_data.h"
#include "transfer.h"
#include "tree.h"

namespace fs = std::filesystem;

namespace aotool {
namespace {

std::string Join(const std::string& prefix, const std::string& name) {
  return prefix.empty() ? name : prefix + "/" + name;
}

class Surveyor {
 public:
  Surveyor(HostTree& tree, const HostFilter& filter, const std::string& container)
      : tree_(tree), filter_(filter), container_(container) {}

  // The taken entries of dir, in name order; prefix is dir's path from the top.
  std::vector<HostTree::Node> Survey(const fs::path& dir, const std::string& prefix) {
    std::vector<HostTree::Node> nodes;
    std::error_code error;
    for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error)) {
      const fs::file_status status = it->symlink_status(error);
      if (error) break;
      const std::string name = it->path().filename().string();
      const std::string path = Join(prefix, name);
      const bool directory = fs::is_directory(status);
      if (!directory && !fs::is_regular_file(status)) {
        tree_.specials.push_back({path, fs::is_symlink(status) ? "a symbolic link" : "neither a file nor a folder"});
        continue;
      }
      if (filter_ && !filter_(name, directory)) continue;
      if (!directory && IsContainer(it->path())) {
        tree_.specials.push_back({path, "the container itself"});
        continue;
      }
      const std::string problem = NameProblem(name);
      if (!problem.empty()) {
        tree_.invalid.push_back({path, "the name " + problem});
        continue;
      }
      HostTree::Node node{name, it->path().string(), directory, 0, {}};
      if (directory) {
        ++tree_.counts.folders;
      } else {
        std::error_code sizeError;
        node.size = static_cast<int64_t>(fs::file_size(it->path(), sizeError));
        if (sizeError) node.size = 0;
        ++tree_.counts.files;
        tree_.counts.bytes += node.size;
      }
      nodes.push_back(std::move(node));
    }
    if (error) Fail(Exit::kHostFile, dir.string() + ": cannot read the folder: " + error.message());
    std::sort(nodes.begin(), nodes.end(),
              [](const HostTree::Node& a, const HostTree::Node& b) { return a.name < b.name; });
    for (HostTree::Node& node : nodes)
      if (node.directory) node.children = Survey(node.hostPath, Join(prefix, node.name));
    return nodes;
  }

 private:
  bool IsContainer(const fs::path& file) const {
    std::error_code error;
    return !container_.empty() && file.filename() == container_.filename() && fs::equivalent(file, container_, error);
  }

  HostTree& tree_;
  const HostFilter& filter_;
  const fs::path container_;
};

void Visit(const std::vector<HostTree::Node>& nodes, const std::string& prefix,
           const std::function<void(const HostTree::Node&, const std::string&)>& visit) {
  for (const HostTree::Node& node : nodes) {
    const std::string path = Join(prefix, node.name);
    visit(node, path);
    Visit(node.children, path, visit);
  }
}

// Where nodes land: fails on an existing stream of the other kind.
void CheckLevel(const Container& container, aoStream* folder, const std::vector<HostTree::Node>& nodes,
                const std::string& prefix) {
  for (const HostTree::Node& node : nodes) {
    const std::string path = Join(prefix, node.name);
    const HeldStream existing(OpenChild(container, folder, node.name, kAoModeInspect));
    if (existing.get() == nullptr) continue;
    if ((existing->IsFolder() != 0) != node.directory) {
      Fail(Exit::kConflict, container.file() + ": " + Shown(path) + " exists as a " +
                                (node.directory ? "data stream" : "folder") + "; nothing was imported");
    }
    if (node.directory) CheckLevel(container, existing.get(), node.children, path);
  }
}

class Importer {
 public:
  explicit Importer(const Container& container) : container_(container) {}

  void Run(aoStream* folder, const std::vector<HostTree::Node>& nodes, const std::string& prefix, Progress& progress) {
    // With the folder's children in its map, each look-up is one probe and
    // each new child is appended without a scan of the folder.
    if (folder != nullptr) folder->PreloadChildren();
    for (const HostTree::Node& node : nodes) {
      const std::string path = Join(prefix, node.name);
      const HeldStream child(Child(folder, node.name, node.directory, path));
      if (node.directory) {
        ++counts_.folders;
        Run(child.get(), node.children, path, progress);
        continue;
      }
      HostInput in(node.hostPath);
      counts_.bytes += WriteWhole(
          container_, *child.get(), path, false,
          [&in](unsigned char* buffer, size_t capacity) { return in.Read(buffer, capacity); }, &progress);
      ++counts_.files;
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
  TransferCounts counts_;
};

}  // namespace

HostTree SurveyHostTree(const std::string& dir, const HostFilter& filter, const std::string& container) {
  std::error_code error;
  const fs::file_status status = fs::status(dir, error);
  if (error) Fail(Exit::kHostFile, dir + ": " + error.message());
  if (!fs::is_directory(status)) Fail(Exit::kHostFile, dir + ": not a folder");
  HostTree tree;
  tree.top = Surveyor(tree, filter, container).Survey(dir, "");
  return tree;
}

void VisitHostTree(const HostTree& tree, const std::function<void(const HostTree::Node&, const std::string&)>& visit) {
  Visit(tree.top, "", visit);
}

void RequireNoKindConflict(const Container& container, const HostTree& tree, const std::vector<std::string>& base) {
  StreamPath path;
  for (size_t level = 0; level < base.size(); ++level) {
    aoStream* stream = OpenChild(container, path.target(), base[level], kAoModeInspect);
    if (stream == nullptr) return;  // created empty: nothing there to conflict with
    path.Push(stream);
    if (stream->IsFolder() == 0)
      Fail(Exit::kConflict,
           container.file() + ": " + Shown(JoinPath(base, level + 1)) + " is a data stream, not a folder");
  }
  CheckLevel(container, path.target(), tree.top, JoinPath(base, base.size()));
}

TransferCounts ImportTree(const Container& container, const HostTree& tree, const std::vector<std::string>& base) {
  Importer importer(container);
  const StreamPath target = OpenOrCreatePath(container, base, true);
  Progress progress("import", tree.counts.bytes);
  importer.Run(target.target(), tree.top, JoinPath(base, base.size()), progress);
  return importer.counts();
}

}  // namespace aotool
