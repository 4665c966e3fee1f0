// A folder's children loaded once into an in-memory map: look-ups by name
// without scanning, and walks over the children (sorted or in bucket order),
// opening them or only handing out their records.
#include <cstdint>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "storage/folder_scanner.h"
#include "storage/internals.h"

namespace {

using Assoc = CMapStringToStreamWithOffset::Assoc;

// A sorted walk keeps the next index in the position, -1 at the end.
void* IndexPosition(int index) { return reinterpret_cast<void*>(static_cast<intptr_t>(index)); }
int PositionIndex(void* position) { return static_cast<int>(reinterpret_cast<intptr_t>(position)); }
void* NextIndexPosition(int index, int count) { return IndexPosition(index + 1 < count ? index + 1 : -1); }

aoStream* OpenEntry(aoStream& folder, const Assoc* entry, uint32_t mode) {
  t_aoStreamU record = entry->value.record;
  tag_aoStreamOffset where = entry->value.where;
  return folder.OpenStreamByOffset(record, where, entry->key.c_str(), mode);
}

}  // namespace

void aoStream::PreloadChildren() {
  if (m_preloaded != nullptr || m_storage == nullptr || IsFolder() == 0) return;
  ao::StorageLockGuard guard(*m_storage);
  ao::FolderScanner scan(*this);
  // Without a readable count there is no map; a later call tries again.
  if (!scan.ReadHead()) return;
  m_preloaded = new CMapStringToStreamWithOffset;
  // Free records are passed over and not counted: the load runs until the
  // count's worth of named records, or the end of the data.
  uint32_t named = 0;
  t_aoStreamWithOffset entry;
  while (named < scan.count() && scan.NextRecord(entry.record, entry.where)) {
    if (entry.record.name[0] == '\0') continue;
    // Deliberately the loaded position carries 0 and 1, not the record's own
    // child information and mark.
    entry.where.childInfo = 0;
    entry.where.mark = 1;
    m_preloaded->SetAt(entry.record.name, entry);
    ++named;
  }
}

void aoStream::EnableSorting(int enable, int mode) {
  m_sortingEnabled = enable;
  m_sortMode = mode;
}

aoStream* aoStream::OpenPreloadChildrenFirst(void** position, uint32_t mode) {
  if (m_preloaded == nullptr || position == nullptr) return nullptr;
  const Assoc* entry = nullptr;
  if (m_sortingEnabled != 0) {
    *position = IndexPosition(-1);
    m_preloaded->SetSortMode(m_sortMode);
    m_preloaded->Sort();
    entry = m_preloaded->GetSortedAt(0);
    if (entry == nullptr) return nullptr;
    *position = NextIndexPosition(0, m_preloaded->GetSortedCount());
  } else {
    *position = nullptr;
    entry = m_preloaded->GetFirstAssoc();
    if (entry == nullptr) return nullptr;
    *position = const_cast<Assoc*>(m_preloaded->GetNextAssoc(entry));
  }
  return OpenEntry(*this, entry, mode);
}

aoStream* aoStream::OpenPreloadChildrenNext(void** position, uint32_t mode) {
  if (m_preloaded == nullptr || position == nullptr) return nullptr;
  // The position advances even when the open is refused.
  if (m_sortingEnabled != 0) {
    const int index = PositionIndex(*position);
    if (index < 0) return nullptr;
    *position = NextIndexPosition(index, m_preloaded->GetSortedCount());
    const Assoc* entry = m_preloaded->GetSortedAt(index);
    return entry != nullptr ? OpenEntry(*this, entry, mode) : nullptr;
  }
  const auto* entry = static_cast<const Assoc*>(*position);
  if (entry == nullptr) return nullptr;
  if (!m_preloaded->Contains(entry)) {
    *position = nullptr;  // replaced in the map since the last step
    return nullptr;
  }
  *position = const_cast<Assoc*>(m_preloaded->GetNextAssoc(entry));
  return OpenEntry(*this, entry, mode);
}

aoStream* aoStream::OpenPreloadChildrenByOffset(t_aoStreamU& record, tag_aoStreamOffset& where, const char* name,
                                                uint32_t mode) {
  return OpenStreamByOffset(record, where, name, mode);
}

int aoStream::GetPreloadChildrenOffsetFirst(void** position, uint32_t mode, t_aoStreamWithOffset& out,
                                            std::string& name) {
  (void)mode;  // nothing is opened
  out = t_aoStreamWithOffset{};
  name.clear();
  if (m_preloaded == nullptr || position == nullptr) return 0;
  const Assoc* entry = nullptr;
  if (m_sortingEnabled != 0) {
    m_preloaded->SetSortMode(m_sortMode);
    m_preloaded->Sort();
    entry = m_preloaded->GetSortedAt(0);
    if (entry == nullptr) return 0;
    *position = NextIndexPosition(0, m_preloaded->GetSortedCount());
  } else {
    entry = m_preloaded->GetFirstAssoc();
    if (entry == nullptr) return 0;
    *position = const_cast<Assoc*>(m_preloaded->GetNextAssoc(entry));
  }
  name = entry->key;
  out = entry->value;
  return 1;
}

int aoStream::GetPreloadChildrenOffsetNext(void** position, uint32_t mode, t_aoStreamWithOffset& out,
                                           std::string& name) {
  (void)mode;  // nothing is opened
  out = t_aoStreamWithOffset{};
  name.clear();
  if (m_preloaded == nullptr || position == nullptr) return 0;
  const Assoc* entry = nullptr;
  if (m_sortingEnabled != 0) {
    const int index = PositionIndex(*position);
    if (index < 0) return 0;
    const int count = m_preloaded->GetSortedCount();
    if (index >= count) {
      // Nothing to copy, yet a step was made; the walk ends here.
      *position = IndexPosition(-1);
      return 1;
    }
    entry = m_preloaded->GetSortedAt(index);
    *position = NextIndexPosition(index, count);
  } else {
    entry = static_cast<const Assoc*>(*position);
    if (entry == nullptr) return 0;
    if (!m_preloaded->Contains(entry)) {
      *position = nullptr;
      return 0;
    }
    *position = const_cast<Assoc*>(m_preloaded->GetNextAssoc(entry));
  }
  name = entry->key;
  out = entry->value;
  return 1;
}
