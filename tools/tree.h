// The tree of streams inside a container, visited in name order.
#ifndef AOSTORE_TOOLS_TREE_H
#define AOSTORE_TOOLS_TREE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "container.h"

namespace aotool {

struct TreeEntry {
  std::string name;
  std::string path;  // from the folder the walk started at, slash-separated
  bool folder = false;
  int64_t length = 0;
  uint16_t duration = 0;
  uint8_t flags = 0;
  uint64_t childInfo = 0;
  int64_t firstBlock = 0;  // where its data starts in the file; 0 for none
};

// The streams directly inside folder (the root when folder is null), sorted
// by name. A damaged folder lists what can be read of it.
std::vector<TreeEntry> ListChildren(const Container& container, aoStream* folder);

// Visits every stream inside folder (the root when null) depth first, each
// folder before what it holds, children in name order. parent is the
// folder holding the entry (null at the root), through which visit may
// open it. Without recursive only the direct children are visited. A folder
// that cannot be opened, or that a damaged file makes hold itself or one of
// the folders above it, is passed to unopened, and the walk goes on without
// what it holds; without unopened the walk fails there.
using TreeVisitor = std::function<void(const TreeEntry& entry, aoStream* parent)>;
using UnopenedFolder = std::function<void(const TreeEntry& entry)>;
void WalkTree(const Container& container, aoStream* folder, bool recursive, const TreeVisitor& visit,
              const UnopenedFolder& unopened = nullptr);

// Opens the child name of parent (the root when null) with mode; null when absent.
aoStream* OpenChild(const Container& container, aoStream* parent, const std::string& name, uint32_t mode);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_TREE_H
