// CPathLoader: streams reached by "a/b/c" paths through a container's folders.
#include <stdexcept>

#include "aostore/file_adapter.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "aostore/types.h"

namespace {
constexpr char kSeparator = '/';

uint32_t ModeFor(int write) { return write != 0 ? kAoModeEdit : kAoModeInspect; }
}  // namespace

CPathLoader::~CPathLoader() { CloseOpenStorages(); }

std::string CPathLoader::GetNextFolder(std::string& path) {
  const size_t cut = path.find(kSeparator);
  std::string segment;
  if (cut == std::string::npos) {
    segment.swap(path);
  } else {
    segment = path.substr(0, cut);
    path.erase(0, cut + 1);
  }
  return segment;
}

aoStream* CPathLoader::GetStreamByPath(aoStorage* storage, std::string path, int write, int create) {
  if (storage == nullptr) return nullptr;
  const std::string segment = GetNextFolder(path);
  if (segment.empty()) return nullptr;
  aoStream* stream = create != 0 ? storage->OpenOrCreateStream(segment.c_str(), 1)
                                 : storage->OpenStream(segment.c_str(), ModeFor(write));
  if (stream == nullptr) return nullptr;
  m_streams.push_back(stream);
  return GetSubStreamByPath(stream, path, write, create);
}

aoStream* CPathLoader::GetSubStreamByPath(aoStream* start, std::string path, int write, int create) {
  if (path.empty()) return start;
  aoStream* current = start;
  while (current != nullptr) {
    const std::string segment = GetNextFolder(path);
    // An empty name would match (or make) a free record of the folder, which
    // is no stream at all.
    if (segment.empty()) return nullptr;
    aoStream* next = nullptr;
    if (create != 0) {
      // Every missing level is made a folder, the last one included.
      next = current->OpenOrCreateStream(segment.c_str(), 1u, ModeFor(write));
    } else if (current->IsFolder() != 0) {
      t_aoStreamU record;
      tag_aoStreamOffset where;
      if (current->FindStream(segment.c_str(), record, where))
        next = current->OpenStreamByOffset(record, where, segment.c_str(), ModeFor(write));
    }
    if (next == nullptr) return nullptr;
    m_streams.push_back(next);
    if (path.empty()) return next;
    current = next;
  }
  return nullptr;
}

int CPathLoader::DeleteStreamByPath(aoStorage* storage, std::string path) {
  int removed = 0;
  aoStream* target = GetStreamByPath(storage, path, 1, 0);
  // A successful Remove has released the stream itself: it leaves the array
  // without a second release.
  if (target != nullptr && target->Remove()) {
    m_streams.pop_back();
    removed = 1;
  }
  CloseOpenStorages();
  return removed;
}

void CPathLoader::CloseOpenStorages() {
  // Children go before their folders: a child's release reaches its parent.
  while (!m_streams.empty()) {
    aoStream* last = m_streams.back();
    m_streams.pop_back();
    last->Release();
  }
}

aoStream* CPathLoader::GetAt(size_t index) const {
  if (index >= m_streams.size()) throw std::invalid_argument("CPathLoader::GetAt: index out of range");
  return m_streams[index];
}
