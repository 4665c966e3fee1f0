// aoStorage's walks over the root directory: through the name map (sorted or
// in bucket order, optionally on a private snapshot), through the tables in
// physical order, and the sorted walk that opens nothing.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "storage/file_ref.h"
#include "storage/format.h"
#include "storage/internals.h"

namespace format = ao::format;

namespace {

using Assoc = CMapStringToStreamOffset::Assoc;

void* IndexPosition(int index) { return reinterpret_cast<void*>(static_cast<intptr_t>(index)); }
int PositionIndex(void* position) { return static_cast<int>(reinterpret_cast<intptr_t>(position)); }

}  // namespace

void aoStorage::EnableSorting(int enable, int mode) {
  m_sortingEnabled = enable;
  m_sortMode = mode;
}

void aoStorage::ReplaceSnapshot(int snapshot) {
  delete m_snapshot;
  m_snapshot = nullptr;
  if (snapshot == 0 || m_fileRef == nullptr) return;
  ao::StorageLockGuard guard(*this);
  m_snapshot = new CMapStringToStreamOffset(m_fileRef->rootMap);
}

aoStream* aoStorage::OpenMapEntry(const void* entry, uint32_t mode) {
  const auto* assoc = static_cast<const Assoc*>(entry);
  tag_aoStreamOffset where = assoc->value;
  return OpenStreamByOffset(where, assoc->key.c_str(), mode);
}

aoStream* aoStorage::OpenStreamFirst(void** position, uint32_t mode, int snapshot) {
  if (position == nullptr || m_fileRef == nullptr) return nullptr;
  ReplaceSnapshot(snapshot);
  CMapStringToStreamOffset& map = m_snapshot != nullptr ? *m_snapshot : m_fileRef->rootMap;
  if (m_sortingEnabled != 0) {
    *position = IndexPosition(-1);
    {
      ao::StorageLockGuard guard(*this);
      map.SetSortMode(m_sortMode);
      map.Sort();
    }
    const Assoc* first = map.GetSortedAt(0);
    if (first == nullptr) return nullptr;
    *position = IndexPosition(map.GetSortedCount() > 1 ? 1 : -1);
    return OpenMapEntry(first, mode);
  }
  const Assoc* first = map.GetFirstAssoc();
  *position = nullptr;
  if (first == nullptr) return nullptr;
  *position = const_cast<Assoc*>(map.GetNextAssoc(first));
  return OpenMapEntry(first, mode);
}

aoStream* aoStorage::OpenStreamNext(void** position, uint32_t mode) {
  if (position == nullptr || m_fileRef == nullptr) return nullptr;
  CMapStringToStreamOffset& map = m_snapshot != nullptr ? *m_snapshot : m_fileRef->rootMap;
  if (m_sortingEnabled != 0) {
    const int index = PositionIndex(*position);
    if (index < 0) return nullptr;
    *position = IndexPosition(index + 1 < map.GetSortedCount() ? index + 1 : -1);
    // A snapshot that shrank below the position takes nothing.
    const Assoc* entry = map.GetSortedAt(index);
    return entry != nullptr ? OpenMapEntry(entry, mode) : nullptr;
  }
  const auto* entry = static_cast<const Assoc*>(*position);
  if (entry == nullptr) return nullptr;
  if (!map.Contains(entry)) {
    *position = nullptr;  // the entry left the map since the last step
    return nullptr;
  }
  *position = const_cast<Assoc*>(map.GetNextAssoc(entry));
  return OpenMapEntry(entry, mode);
}

aoStream* aoStorage::FindRootOfKind(const char* name, bool folders, bool writeFirst) {
  const bool any = name == nullptr || name[0] == '\0';
  void* position = nullptr;
  aoStream* stream = OpenStreamFirst(&position, writeFirst ? kAoModeEdit : kAoModeInspect, 0);
  while (true) {
    if (stream != nullptr) {
      if ((stream->IsFolder() != 0) == folders && (any || std::strcmp(stream->GetName(), name) == 0)) return stream;
      stream->Release();
    }
    const bool atEnd = m_sortingEnabled != 0 ? PositionIndex(position) < 0 : position == nullptr;
    if (atEnd) return nullptr;
    stream = OpenStreamNext(&position, kAoModeInspect);
  }
}

aoStream* aoStorage::FindRootStream(const char* name) { return FindRootOfKind(name, false, false); }

aoStream* aoStorage::FindRootStorage(const char* name) { return FindRootOfKind(name, true, false); }

// Deliberately the first candidate is opened for writing, the later ones not.
aoStream* aoStorage::FindRootStorageWrite(const char* name) { return FindRootOfKind(name, true, true); }

aoStream* aoStorage::OpenStreamFirst2(int* position, uint32_t mode) {
  if (position == nullptr) return nullptr;
  m_names.clear();
  WalkRootTables([this](int64_t, uint32_t slotCount, const unsigned char* bytes) {
    for (uint32_t slot = 0; slot < slotCount; ++slot) {
      const t_aoStreamU record =
          format::DecodeRecord(bytes + TableHeaderSize() + static_cast<size_t>(slot) * RecordSize(), m_b64);
      if (record.name[0] != '\0') m_names.emplace_back(record.name);
    }
    return true;
  });
  if (m_names.empty()) return nullptr;
  *position = 0;
  return OpenStream(m_names[0].c_str(), mode);
}

aoStream* aoStorage::OpenStreamNext2(int* position, uint32_t mode) {
  if (position == nullptr || *position < 0) return nullptr;
  const size_t next = static_cast<size_t>(*position) + 1;
  if (next >= m_names.size()) return nullptr;
  *position = static_cast<int>(next);
  return OpenStream(m_names[next].c_str(), mode);
}

CMapStringToStreamOffset* aoStorage::CreateSortedStreamList() {
  if (m_fileRef == nullptr) return nullptr;
  CMapStringToStreamOffset* list;
  {
    ao::StorageLockGuard guard(*this);
    list = new CMapStringToStreamOffset(m_fileRef->rootMap);
  }
  list->SetSortMode(1);  // descending, whatever EnableSorting says
  list->Sort();
  return list;
}

void aoStorage::DestroySortedStreamList(CMapStringToStreamOffset* list) { delete list; }

int aoStorage::IterateSortedStreamsNoOPENS(CIterateSortedStreams* iterate, int snapshot) {
  if (iterate == nullptr || m_fileRef == nullptr) return 0;
  int index = 0;
  if (iterate->m_bFirst != 0) {
    ReplaceSnapshot(snapshot);
    iterate->m_bFirst = 0;
    CMapStringToStreamOffset& map = m_snapshot != nullptr ? *m_snapshot : m_fileRef->rootMap;
    ao::StorageLockGuard guard(*this);
    map.SetSortMode(iterate->m_nSortMode);
    map.Sort();
    if (map.GetSortedCount() == 0) return 0;
  } else {
    if (iterate->m_nPos < 0) return 0;
    index = iterate->m_nPos;
  }
  CMapStringToStreamOffset& map = m_snapshot != nullptr ? *m_snapshot : m_fileRef->rootMap;
  const Assoc* entry = map.GetSortedAt(index);
  if (entry == nullptr) return 0;
  const int count = map.GetSortedCount();
  iterate->m_strName = entry->key;
  iterate->m_offset = entry->value;
  iterate->m_nPos = index + 1 < count ? index + 1 : -1;

  if (iterate->m_nFixedSpan != 0) iterate->m_nSpan = iterate->m_nFixedSpan;
  if (iterate->m_nSpan != 0) return 1;
  // Spans are measured between names that are 8 hexadecimal digits (times).
  if (iterate->m_strName.size() != 8) return 1;
  const auto current = static_cast<uint32_t>(std::strtoul(iterate->m_strName.c_str(), nullptr, 16));
  uint32_t span = iterate->m_nLastSpan;
  for (int next = iterate->m_nPos; next >= 0 && next < count; ++next) {
    const Assoc* candidate = map.GetSortedAt(next);
    if (candidate == nullptr || candidate->key.size() != 8) continue;
    span = static_cast<uint32_t>(std::strtoul(candidate->key.c_str(), nullptr, 16)) - current;
    if (span > 86400) span = iterate->m_nLastSpan;
    break;
  }
  if (span == 0) span = 3600;
  iterate->m_nLastSpan = span;
  iterate->m_nSpan = span;
  return 1;
}

aoStream* aoStorage::OpenStreamFirst(uint32_t mode) { return CreateStreamHelper(nullptr, 0, mode, false, true); }
