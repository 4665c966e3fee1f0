#include "tree.h"

#include <algorithm>

namespace aotool {
namespace {

TreeEntry Describe(const t_aoStreamU& record) {
  TreeEntry entry;
  entry.name = record.name;
  entry.folder = (record.flags & kAoFlagFolder) != 0;
  entry.length = record.dataLength;
  entry.duration = record.duration;
  entry.flags = record.flags;
  entry.childInfo = record.childInfo;
  entry.firstBlock = record.firstBlock;
  return entry;
}

// Deeper than this, a tree read from a file is taken for one that loops.
constexpr size_t kMaxDepth = 256;

// trail holds where the data of each folder above starts: a folder that
// starts at one of them holds itself.
void WalkLevel(const Container& container, aoStream* folder, const std::string& prefix, std::vector<int64_t>& trail,
               bool recursive, const TreeVisitor& visit, const UnopenedFolder& unopened) {
  for (TreeEntry& entry : ListChildren(container, folder)) {
    entry.path = prefix.empty() ? entry.name : prefix + "/" + entry.name;
    visit(entry, folder);
    if (!entry.folder || !recursive) continue;
    const bool loops =
        trail.size() >= kMaxDepth ||
        (entry.firstBlock != 0 && std::find(trail.begin(), trail.end(), entry.firstBlock) != trail.end());
    const HeldStream child(loops ? nullptr : OpenChild(container, folder, entry.name, kAoModeInspect));
    if (child.get() == nullptr) {
      if (!unopened) FailWithDiagnosis(container.file(), Exit::kUnreadable, "cannot open " + entry.path);
      unopened(entry);
      continue;
    }
    trail.push_back(entry.firstBlock);
    WalkLevel(container, child.get(), entry.path, trail, recursive, visit, unopened);
    trail.pop_back();
  }
}

}  // namespace

aoStream* OpenChild(const Container& container, aoStream* parent, const std::string& name, uint32_t mode) {
  return parent == nullptr ? container.storage().OpenStream(name.c_str(), mode)
                           : parent->OpenStream(name.c_str(), mode);
}

std::vector<TreeEntry> ListChildren(const Container& container, aoStream* folder) {
  std::vector<TreeEntry> entries;
  if (folder == nullptr) {
    // A step whose open is refused yields null although entries remain: the
    // position alone tells the end.
    void* position = nullptr;
    aoStream* stream = container.storage().OpenStreamFirst(&position, kAoModeInspect, 1);
    while (true) {
      if (stream != nullptr) {
        entries.push_back(Describe(stream->GetHeader()));
        stream->Release();
      }
      if (position == nullptr) break;
      stream = container.storage().OpenStreamNext(&position, kAoModeInspect);
    }
  } else if (folder->IsFolder() != 0) {
    // The records are read once into the folder's map, without opening a
    // child, and later opens by name are one look-up each.
    folder->PreloadChildren();
    void* position = nullptr;
    t_aoStreamWithOffset child;
    std::string name;
    for (int more = folder->GetPreloadChildrenOffsetFirst(&position, kAoModeInspect, child, name); more != 0;
         more = folder->GetPreloadChildrenOffsetNext(&position, kAoModeInspect, child, name)) {
      entries.push_back(Describe(child.record));
    }
  }
  std::sort(entries.begin(), entries.end(), [](const TreeEntry& a, const TreeEntry& b) { return a.name < b.name; });
  return entries;
}

void WalkTree(const Container& container, aoStream* folder, bool recursive, const TreeVisitor& visit,
              const UnopenedFolder& unopened) {
  std::vector<int64_t> trail;
  if (folder != nullptr) trail.push_back(folder->GetHeader().firstBlock);
  WalkLevel(container, folder, "", trail, recursive, visit, unopened);
}

}  // namespace aotool
