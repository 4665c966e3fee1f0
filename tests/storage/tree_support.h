// Helpers for the folder, preload and rebuild tests: children written and
// read whole, and a listing of a tree.
#ifndef AOSTORE_TESTS_STORAGE_TREE_SUPPORT_H
#define AOSTORE_TESTS_STORAGE_TREE_SUPPORT_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "aostore/aostore.h"
#include "support/container_test.h"

namespace ao::test {

inline Bytes Text(const char* text) { return {text, text + std::strlen(text)}; }

inline uint64_t GetLe64(const Bytes& bytes, int64_t at) {
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = (value << 8) | bytes[static_cast<size_t>(at + i)];
  return value;
}

// Creates a child (unique) holding bytes; with `nested`, a folder of that
// name holding the child instead.
inline void WriteChild(aoStream* folder, const char* name, const Bytes& bytes, const char* nested = nullptr) {
  aoStream* child = folder->CreateStream(name, nested != nullptr ? 1 : 0, kAoModeEdit, 1);
  ASSERT_NE(child, nullptr) << name;
  if (nested != nullptr) {
    WriteChild(child, nested, bytes);
  } else if (!bytes.empty()) {
    ASSERT_EQ(child->Write(bytes.data(), static_cast<int64_t>(bytes.size()), true, nullptr),
              static_cast<int64_t>(bytes.size()));
  }
  child->Release();
}

inline std::vector<std::string> Names(aoStream* folder) {
  std::vector<std::string> names;
  folder->EnumStreams(names);
  return names;
}

// One line per stream of a tree: its path, kind, record traits and bytes.
using TreeListing = std::vector<std::pair<std::string, std::string>>;

inline void ListStream(aoStream* stream, const std::string& path, TreeListing& out) {
  const t_aoStreamU& record = stream->GetHeader();
  std::string line = std::to_string(record.flags) + " " + std::to_string(record.duration) + " " +
                     std::to_string(record.childInfo) + " ";
  if (stream->IsFolder() == 0) {
    const Bytes bytes = ReadWhole(stream);
    line.append(bytes.begin(), bytes.end());
  }
  out.emplace_back(path, line);
  int64_t position = 0;
  for (aoStream* child = stream->IsFolder() != 0 ? stream->OpenStreamFirst(&position, kAoModeInspect) : nullptr;
       child != nullptr; child = stream->OpenStreamNext(&position, kAoModeInspect)) {
    ListStream(child, path + "/" + child->GetName(), out);
    child->Release();
  }
}

// Every stream of the container, root streams in name order.
inline TreeListing ListTree(aoStorage* storage) {
  TreeListing out;
  storage->EnableSorting(1, 0);
  void* position = nullptr;
  for (aoStream* root = storage->OpenStreamFirst(&position, kAoModeInspect, 0); root != nullptr;
       root = storage->OpenStreamNext(&position, kAoModeInspect)) {
    ListStream(root, root->GetName(), out);
    root->Release();
  }
  return out;
}

}  // namespace ao::test

#endif  // AOSTORE_TESTS_STORAGE_TREE_SUPPORT_H
