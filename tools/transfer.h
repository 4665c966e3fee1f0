// Copies between host directory trees and container trees, shared by the
// import and export commands and the demo.
#ifndef AOSTORE_TOOLS_TRANSFER_H
#define AOSTORE_TOOLS_TRANSFER_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "container.h"

namespace aotool {

// Something a copy left out, and why.
struct Skipped {
  std::string path;
  std::string reason;
};

struct TransferCounts {
  int64_t files = 0;
  int64_t folders = 0;
  int64_t bytes = 0;
};

// Which host entries (by name) to take; all when empty.
using HostFilter = std::function<bool(const std::string& name, bool directory)>;

// A host directory tree as import copies it, surveyed before anything is
// written: every name checked against the name rule.
struct HostTree {
  struct Node {
    std::string name;
    std::string hostPath;
    bool directory = false;
    int64_t size = 0;
    std::vector<Node> children;  // in name order
  };
  std::vector<Node> top;          // in name order
  TransferCounts counts;          // of what the nodes hold
  std::vector<Skipped> invalid;   // names the rule refuses; left out with what they hold
  std::vector<Skipped> specials;  // symbolic links and special files; left out
};

// Surveys the tree under dir (fails with kHostFile when it cannot be read).
// The container file, when it lies in the tree, is left out like a special
// file.
HostTree SurveyHostTree(const std::string& dir, const HostFilter& filter, const std::string& container = "");

// Calls visit for every node of tree, each folder before what it holds,
// with its path from the tree's top.
void VisitHostTree(const HostTree& tree, const std::function<void(const HostTree::Node&, const std::string&)>& visit);

// Fails with kConflict when a node of tree would land on a stream of the
// other kind in the folder at base (missing folders are fine).
void RequireNoKindConflict(const Container& container, const HostTree& tree, const std::vector<std::string>& base);

// Copies the surveyed tree into the folder at base (created when missing;
// the root when empty): folders for directories, streams for files, whose
// data is replaced.
TransferCounts ImportTree(const Container& container, const HostTree& tree, const std::vector<std::string>& base);

struct ExportOptions {
  bool force = false;   // write over existing files
  bool dryRun = false;  // list what would be written to out, write nothing
};

struct ExportResult {
  TransferCounts counts;
  std::vector<Skipped> skipped;  // streams whose names cannot be file names here
  int64_t unreadable = 0;        // streams or folders that could not be read whole (each said on standard error)
};

// Copies the folder (or the single stream) at base into dir, created when
// missing. Existing files are written over only with force; otherwise
// nothing is written and it fails with kConflict. A stream whose name cannot
// be a file name here is skipped with what it holds; one that cannot be
// read whole is written as far as it can be read, said, and counted.
ExportResult ExportTree(const Container& container, const std::vector<std::string>& base, const std::string& dir,
                        const ExportOptions& options, std::ostream& out);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_TRANSFER_H
