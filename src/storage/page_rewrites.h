// Small writes that keep landing on the same place of a container: the header
// of a block that grows with every Write, the length in a stream's record, a
// folder's child count. After a few of them have gone through system calls,
// the page is mapped and later writes to it are stores. The bytes reach the
// same page cache a write would, so every reader sees them at once and a
// crash of the process loses nothing that a write call would have kept.
#ifndef AOSTORE_STORAGE_PAGE_REWRITES_H
#define AOSTORE_STORAGE_PAGE_REWRITES_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/files.h"

namespace ao {

class PageRewrites {
 public:
  PageRewrites() = default;
  ~PageRewrites();
  PageRewrites(const PageRewrites&) = delete;
  PageRewrites& operator=(const PageRewrites&) = delete;

  // True when the bytes were stored through a mapped page; false leaves the
  // write to the caller (a page not yet rewritten often enough, bytes beyond
  // what the file held when the page was mapped, or no mapping available).
  // truncations: how often the file was cut so far (a change drops every
  // mapping). The caller holds the storage lock.
  bool Store(FileHandle file, uint64_t truncations, int64_t offset, const void* bytes, size_t count);

 private:
  static constexpr int64_t kPageSize = 4096;
  // A page is mapped once places in it have been written again this many
  // times. Fewer never pay for the mapping and unmapping: the header of a
  // block filled at once, for one, is written again at most twice (filled,
  // linked).
  static constexpr int kRewritesBeforeMapping = 3;

  struct Page {
    int64_t index = -1;
    // The places last written in the page: a folder's growing block header
    // and the child count beside it take turns, as do a stream's length and
    // its block header when both lie in one page.
    std::array<int64_t, 4> recent{-1, -1, -1, -1};
    size_t nextRecent = 0;
    int rewrites = 0;  // writes to a place in recent
    bool unmappable = false;
    uint64_t lastUse = 0;
    platform::FileApi* files = nullptr;  // the backend that mapped the view
    platform::FileView view;
    // The file's size when the page was mapped: only Create cuts a file
    // (and `truncations` then drops the view), so stores below it land
    // inside the file.
    int64_t mappedEnd = 0;
  };

  Page& Entry(int64_t index);
  bool Map(FileHandle file, Page& page);
  static void Unmap(Page& page);

  std::array<Page, 4> pages_;
  uint64_t clock_ = 0;
  uint64_t truncations_ = 0;
};

}  // namespace ao

#endif  // AOSTORE_STORAGE_PAGE_REWRITES_H
