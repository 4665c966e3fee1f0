#include "storage/page_rewrites.h"

#include <algorithm>

namespace ao {

PageRewrites::~PageRewrites() {
  for (Page& page : pages_) Unmap(page);
}

bool PageRewrites::Store(FileHandle file, uint64_t truncations, int64_t offset, const void* bytes, size_t count) {
  if (truncations != truncations_) {
    for (Page& page : pages_) {
      Unmap(page);
      page = Page{};
    }
    truncations_ = truncations;
  }
  if (offset < 0 || count == 0 || count > static_cast<size_t>(kPageSize)) return false;
  const int64_t end = offset + static_cast<int64_t>(count);
  const int64_t index = offset / kPageSize;
  // A write call that crosses into the next page may be cut between the two
  // pages by a kill, leaving a field half old and half new: such bytes are
  // stored through a view at once, and views span two pages for them.
  const bool crossing = (end - 1) / kPageSize != index;
  Page& page = Entry(index);
  page.lastUse = ++clock_;
  // The file may have grown into the second page since the view was made.
  if (crossing && page.view.base != nullptr && end > page.mappedEnd) Unmap(page);
  if (page.view.base == nullptr) {
    if (page.unmappable) return false;
    if (std::find(page.recent.begin(), page.recent.end(), offset) != page.recent.end()) {
      ++page.rewrites;
    } else {
      page.recent[page.nextRecent++ % page.recent.size()] = offset;
    }
    if ((!crossing && page.rewrites < kRewritesBeforeMapping) || !Map(file, page, end)) return false;
  }
  if (end > page.mappedEnd) return false;
  if (platform::StoreToView(page.view.base + (offset - page.view.offset), bytes, count)) return true;
  // The page is no longer backed by the file: it was cut elsewhere.
  Unmap(page);
  page.unmappable = true;
  return false;
}

bool PageRewrites::StoreSmall(std::unique_ptr<PageRewrites>& rewrites, FileHandle file, uint64_t truncations,
                              int64_t offset, const void* bytes, int64_t count) {
  if (count < 1 || count > kMaxSmall) return false;
  if (rewrites == nullptr) rewrites = std::make_unique<PageRewrites>();
  return rewrites->Store(file, truncations, offset, bytes, static_cast<size_t>(count));
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
  // A store beyond the file's end appends: that is the caller's write.
  if (size < storeEnd) return false;
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
