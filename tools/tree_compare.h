// Compares two container trees: names, kinds and every byte of every stream.
#ifndef AOSTORE_TOOLS_TREE_COMPARE_H
#define AOSTORE_TOOLS_TREE_COMPARE_H

#include <string>

#include "container.h"
#include "progress.h"

namespace aotool {

// The trees under folderA of a and folderB of b (roots when null). Returns
// an empty string when they hold the same, else the first difference.
std::string CompareTrees(const Container& a, aoStream* folderA, const Container& b, aoStream* folderB,
                         Progress* progress);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_TREE_COMPARE_H
