#include "storage/page_rewrites.h"

#include <algorithm>

namespace ao {

PageRewrites::~PageRewrites() {
  for (Page& page : pages_) Unmap(page);
}

void PageRewrites::Forget() {
  for (Page& page : pages_) {
    Unmap(page);
    page = Page{};
  }
}

bool PageRewrites::Store(FileHandle file, int64_t offset, const void* bytes, int64_t count) {
  if (offset < 0 || count < 1 || count > kMaxSmall) return false;
  const int64_t end = offset + count;
  const int64_t index = offset / kPageSize;
  // A write call that crosses into the next page may be cut between the two
  // pages by a kill, leaving a field half old and half new: such bytes are
  // stored at once, never written.
  const bool crossing = (end - 1) / kPageSize != index;
  // A view made for the page before may hold the bytes already.
  for (Page& page : pages_) {
    if (page.view.base != nullptr && page.view.offset <= offset && end <= page.mappedEnd) {
      page.lastUse = ++clock_;
      return StoreInto(page, offset, bytes, count);
    }
  }
  Page& page = Entry(index);
  page.lastUse = ++clock_;
  if (page.writes < kWritesBeforeMapping) ++page.writes;
  // The first store into a page costs a page fault, more than a write call:
  // a page the backend keeps mapped takes stores from its second small
  // write on (the header of a block linked once is written, not stored).
  if ((crossing || page.writes >= kWritesBeforeStoring) &&
      platform::Files().StoreAt(file, bytes, static_cast<size_t>(count), offset))
    return true;
  if (!viewsAllowed_) return false;
  // The file may have grown into the second page since the view was made.
  if (crossing && page.view.base != nullptr && end > page.mappedEnd) Unmap(page);
  if (page.view.base == nullptr) {
    if (page.unmappable) return false;
    if ((!crossing && page.writes < kWritesBeforeMapping) || !Map(file, page, end)) return false;
  }
  return end <= page.mappedEnd && StoreInto(page, offset, bytes, count);
}

bool PageRewrites::Write(FileHandle file, int64_t offset, const void* bytes, int64_t count) {
  return Store(file, offset, bytes, count) || platform::WriteFully(file, bytes, count, offset);
}

bool PageRewrites::StoreInto(Page& page, int64_t offset, const void* bytes, int64_t count) {
  if (platform::StoreToView(page.view.base + (offset - page.view.offset), bytes, static_cast<size_t>(count)))
    return true;
  // The page is no longer backed by the file: it was cut elsewhere.
  Unmap(page);
  page.unmappable = true;
  return false;
}

PageRewrites::Page& PageRewrites::Entry(int64_t index) {
  for (Page& page : pages_)
    if (page.index == index) return page;
  Page& oldest = *std::min_element(pages_.begin(), pages_.end(),
                                   [](const Page& a, const Page& b) { return a.lastUse < b.lastUse; });
  Unmap(oldest);
  oldest = Page{};
  oldest.index = index;
  return oldest;
}

bool PageRewrites::Map(FileHandle file, Page& page, int64_t storeEnd) {
  platform::FileApi& files = platform::Files();
  const int64_t start = page.index * kPageSize;
  const int64_t size = files.Size(file);
  // A store beyond the file's end appends: that is the caller's write, and
  // the page is asked again only after as many more writes.
  if (size < storeEnd) {
    page.writes = 0;
    return false;
  }
  const int64_t mappedEnd = std::min(start + kViewPages * kPageSize, size);
  page.view = files.MapForWriting(file, start, static_cast<size_t>(mappedEnd - start));
  // A backend that does not map (or has mapped enough) is not asked again
  // for this page while it is kept.
  page.unmappable = page.view.base == nullptr;
  if (page.unmappable) return false;
  page.files = &files;
  page.mappedEnd = mappedEnd;
  return true;
}

void PageRewrites::Unmap(Page& page) {
  if (page.view.base != nullptr && page.files != nullptr) page.files->Unmap(page.view);
  page.view = {};
  page.files = nullptr;
}

}  // namespace ao
