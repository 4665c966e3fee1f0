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

struct TransferCounts {
  int64_t files = 0;
  int64_t folders = 0;
  int64_t bytes = 0;
  int64_t skipped = 0;  // host entries that are neither files nor folders (links, devices)
};

// Which host entries (by name) to take; all when empty.
using HostFilter = std::function<bool(const std::string& name, bool directory)>;

// Copies the tree under dir into the folder at base (created when missing;
// the root when empty): folders for directories, streams for files, whose
// data is replaced. Every name is checked before anything is written.
TransferCounts ImportTree(const Container& container, const std::string& dir, const std::vector<std::string>& base,
                          const HostFilter& filter);

// Copies the folder (or the single stream) at base into dir, created when
// missing; existing files of the same names are overwritten. Every name is
// checked before anything is written.
TransferCounts ExportTree(const Container& container, const std::vector<std::string>& base, const std::string& dir);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_TRANSFER_H
