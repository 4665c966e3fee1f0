// Small writes that keep landing on the same place of a container: the header
// of a block that grows with every Write, the length in a stream's record, a
// folder's child count. After a few of them have gone through system calls,
// the page is mapped and later writes to it are stores. The bytes reach the
// same page cache a write would, so every reader sees them at once and a
// crash of the process loses nothing that a write call would have kept.
//
// Small writes that cross from one page into the next are stored through a
// view from the first time on: a kill can cut a write call between pages,
// but never a store, so a length or link across a page boundary is never
// left half old and half new.
#ifndef AOSTORE_STORAGE_PAGE_REWRITES_H
#define AOSTORE_STORAGE_PAGE_REWRITES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/files.h"

namespace ao {

class PageRewrites {
 public:
  // The largest write that may repeat at one place: a stream header record.
  static constexpr int64_t kMaxSmall = 92;

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

  // Store for a write of up to kMaxSmall bytes, with the object made on
  // first use; false for larger writes and for whatever Store declines.
  static bool StoreSmall(std::unique_ptr<PageRewrites>& rewrites, FileHandle file, uint64_t truncations,
                         int64_t offset, const void* bytes, int64_t count);

 private:
  static constexpr int64_t kPageSize = 4096;
  // A view covers its page and the next, for stores that cross into it.
  static constexpr int64_t kViewPages = 2;
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
    // Where the view ends: the file's size when it was made, if that fell
    // inside the two pages. Only Create cuts a file (and `truncations` then
    // drops the view), so stores below it land inside the file.
    int64_t mappedEnd = 0;
  };

  Page& Entry(int64_t index);
  // storeEnd: the end of the store that asks for the view.
  bool Map(FileHandle file, Page& page, int64_t storeEnd);
  static void Unmap(Page& page);

  std::array<Page, 4> pages_;
  uint64_t clock_ = 0;
  uint64_t truncations_ = 0;
};

}  // namespace ao

#endif  // AOSTORE_STORAGE_PAGE_REWRITES_H
