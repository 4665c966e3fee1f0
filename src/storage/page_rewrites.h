// Small writes that keep landing in the same pages of a container: a root
// table takes each new stream's record, first block and length in turn, a
// folder's growing block its header and child count, a stream's record page
// its length at every Write. After a few of them have gone through system
// calls, the page is mapped and later writes to it are stores. The bytes
// reach the same page cache a write would, so every reader sees them at once
// and a crash of the process loses nothing that a write call would have kept.
//
// Small writes that cross from one page into the next are stored through a
// view from the first time on: a kill can cut a write call between pages,
// but never a store, so a length or link across a page boundary is never
// left half old and half new.
//
// A backend that keeps the whole file mapped stores such bytes itself; the
// views here serve the backends that do not.
//
// One object serves every container open on a path, under its storage lock.
#ifndef AOSTORE_STORAGE_PAGE_REWRITES_H
#define AOSTORE_STORAGE_PAGE_REWRITES_H

#include <array>
#include <cstddef>
#include <cstdint>

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

  // True when the count (up to kMaxSmall) bytes were stored through a mapped
  // page; false leaves the write to the caller (a larger write, a page not
  // yet written often enough, bytes beyond what the file held when the page
  // was mapped, or no mapping available). file: any descriptor of the path
  // open for writing.
  bool Store(FileHandle file, int64_t offset, const void* bytes, int64_t count);
  // Store, or a write call where Store declines; false when neither worked.
  bool Write(FileHandle file, int64_t offset, const void* bytes, int64_t count);
  // Drops every view: the file is about to be cut, and pages mapped before
  // may no longer be part of it.
  void Forget();
  // Where mapping is turned off, no view is ever made: every write is a
  // write call.
  void AllowViews(bool allowed) { viewsAllowed_ = allowed; }

 private:
  static constexpr int64_t kPageSize = 4096;
  // A view covers its page and the next, for stores that cross into it.
  static constexpr int64_t kViewPages = 2;
  // A page is mapped at the write that makes this many to it while it is
  // kept. Fewer never pay for the mapping and unmapping: the header of a
  // block filled at once is written again at most twice (filled, linked),
  // and a page of new child records sees each child's record fields and the
  // link to the next block of records, then no more.
  static constexpr int kWritesBeforeMapping = 6;
  // Through a mapping the backend keeps, a page takes stores from its
  // second small write on.
  static constexpr int kWritesBeforeStoring = 2;

  struct Page {
    int64_t index = -1;
    int writes = 0;  // small writes to the page, wherever in it
    bool unmappable = false;
    uint64_t lastUse = 0;
    platform::FileApi* files = nullptr;  // the backend that mapped the view
    platform::FileView view;
    // Where the view ends: the file's size when it was made, if that fell
    // inside the two pages. Only Create cuts a file (and calls Forget
    // first), so stores below it land inside the file.
    int64_t mappedEnd = 0;
  };

  Page& Entry(int64_t index);
  // Stores into a view that holds [offset, offset + count).
  bool StoreInto(Page& page, int64_t offset, const void* bytes, int64_t count);
  // storeEnd: the end of the store that asks for the view.
  bool Map(FileHandle file, Page& page, int64_t storeEnd);
  static void Unmap(Page& page);

  // Pages in use at once: the tail block's header, the record pages of the
  // streams being written, a folder's count and record area, the root table
  // taking new streams.
  std::array<Page, 8> pages_;
  uint64_t clock_ = 0;
  bool viewsAllowed_ = true;
};

}  // namespace ao

#endif  // AOSTORE_STORAGE_PAGE_REWRITES_H
