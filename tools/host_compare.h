// Compares two directory trees of the host byte for byte.
#ifndef AOSTORE_TOOLS_HOST_COMPARE_H
#define AOSTORE_TOOLS_HOST_COMPARE_H

#include <cstdint>
#include <string>

#include "transfer.h"

namespace aotool {

struct HostComparison {
  std::string difference;  // empty when the trees are the same
  int64_t files = 0;
  int64_t bytes = 0;
};

// The files and folders of source that filter takes (links and special
// files left out, as an import leaves them) against everything in copy.
HostComparison CompareHostTrees(const std::string& source, const std::string& copy, const HostFilter& filter);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_HOST_COMPARE_H
