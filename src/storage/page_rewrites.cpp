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
  if ((end - 1) / kPageSize != index) return false;
  Page& page = Entry(index);
  page.lastUse = ++clock_;
  if (page.view.base == nullptr) {
    if (page.unmappable) return false;
    if (std::find(page.recent.begin(), page.recent.end(), offset) != page.recent.end()) {
      ++page.rewrites;
    } else {
      page.recent[page.nextRecent++ % page.recent.size()] = offset;
    }
    if (page.rewrites < kRewritesBeforeMapping || !Map(file, page)) return false;
  }
  if (end > page.mappedEnd) return false;
  if (platform::CopyWithMapping(page.view.base + (offset - page.view.offset), bytes, count)) return true;
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

bool PageRewrites::Map(FileHandle file, Page& page) {
  platform::FileApi& files = platform::Files();
  const int64_t start = page.index * kPageSize;
  const int64_t size = files.Size(file);
  const int64_t mappedEnd = std::min(start + kPageSize, size);
  if (mappedEnd > start) page.view = files.MapForWriting(file, start, static_cast<size_t>(mappedEnd - start));
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
