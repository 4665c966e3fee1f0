// aoStorage's root directory: the shared name map built from the table chain,
// free-slot search and table growth, and opening root streams by position.
#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <vector>

#include "aostore/recorder.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "platform/files.h"
#include "storage/file_ref.h"
#include "storage/format.h"
#include "storage/internals.h"

namespace format = ao::format;
namespace platform = ao::platform;

struct aoStorage::FreeSlot {
  int64_t tableOffset = 0;
  uint32_t slotCount = 0;
  uint32_t index = 0;
  int64_t recordOffset = 0;
  int64_t keptLast = 0;   // blocks left behind by a removed stream
  int64_t keptFirst = 0;
};

bool aoStorage::ReadAtFile(int64_t offset, void* buffer, int64_t count, bool zeroFirst) {
  if (offset <= 0 || count < 0) return false;
  if (zeroFirst) std::memset(buffer, 0, static_cast<size_t>(count));
  if (m_inMemory) {
    if (SetFilePointer(m_file, offset, 0) < 0) return false;
  } else {
    m_filePos = offset;
  }
  int64_t done = 0;
  return ReadFile(m_file, buffer, count, &done, nullptr) != 0 && done == count;
}

bool aoStorage::ReadRootTable(int64_t offset, std::vector<unsigned char>& bytes, uint32_t& slotCount, int64_t& next,
                              int64_t fileSize) {
  const int64_t whole = format::TableSize(m_b64, format::kSlotsPerTable);
  if (offset <= 0 || fileSize < 0 || offset + TableHeaderSize() > fileSize) return false;
  // A table is read whole in one transfer; only a table of an unusual size
  // needs a second read, bounded by what the file can hold.
  const int64_t first = std::min(whole, fileSize - offset);
  bytes.resize(static_cast<size_t>(first));
  // Read whole or not at all: the buffer is not cleared first.
  if (!ReadAtFile(offset, bytes.data(), first, false)) return false;
  const format::TableHeader header = format::DecodeTableHeader(bytes.data(), m_b64);
  if (header.marker != format::kTableMarker) return false;
  const int64_t actual = format::TableSize(m_b64, header.slotCount);
  if (offset + actual > fileSize) return false;
  if (actual != first) {
    bytes.resize(static_cast<size_t>(actual));
    if (!ReadAtFile(offset, bytes.data(), actual, false)) return false;
  }
  slotCount = header.slotCount;
  next = header.next;
  return true;
}

bool aoStorage::WalkRootTables(const std::function<bool(int64_t, uint32_t, const unsigned char*)>& visit) {
  // The tables lie in the file as it is now: its size is asked once.
  const int64_t fileSize = GetFileSize();
  std::set<int64_t> visited;  // a chain that comes back to a table is damaged
  std::vector<unsigned char> bytes;
  for (int64_t offset = m_headerLength; offset != 0;) {
    uint32_t slotCount = 0;
    int64_t next = 0;
    if (!visited.insert(offset).second || !ReadRootTable(offset, bytes, slotCount, next, fileSize)) return false;
    if (!visit(offset, slotCount, bytes.data())) return true;
    offset = next;
  }
  return true;
}

bool aoStorage::InitStreamMap() {
  if (m_fileRef == nullptr) return false;
  Lock();
  ao::RootTables& tables = m_fileRef->tables;
  tables.Reset();
  const int recordSize = RecordSize();
  const int tableHeader = TableHeaderSize();
  int loaded = 0;
  bool wellFormed = true;
  // One pass over the chain: the map grows as the tables come (its entries
  // never move, only its slots are laid out again as it doubles).
  const bool walked = WalkRootTables([&](int64_t table, uint32_t slotCount, const unsigned char* bytes) {
    // Every table must have exactly 64 slots, not only the first.
    if (slotCount != format::kSlotsPerTable) {
      wellFormed = false;
      return false;
    }
    // The table's names are all looked for in the index before any is
    // inserted, so that their slots come in together.
    std::array<const unsigned char*, format::kSlotsPerTable> named;
    std::array<char[kAoNameFieldSize], format::kSlotsPerTable> names;
    uint32_t count = 0;
    std::vector<bool> used(slotCount);
    for (uint32_t slot = 0; slot < slotCount; ++slot) {
      const unsigned char* record = bytes + tableHeader + static_cast<size_t>(slot) * recordSize;
      if (record[format::kRecordNameOffset] == 0) continue;
      used[slot] = true;
      if (format::GetU32(record) != format::kRecordMarker) continue;
      format::CopyRecordName(record, names[count]);
      m_fileRef->rootMap.Prefetch(names[count]);
      named[count++] = record;
    }
    m_fileRef->rootMap.Reserve(static_cast<size_t>(loaded) + count);
    for (uint32_t i = 0; i < count; ++i) {
      const unsigned char* record = named[i];
      tag_aoStreamOffset where;
      where.recordOffset = table + (record - bytes);
      where.tableOffset = table;
      where.slotCount = slotCount;
      format::DecodeDirectoryFields(record, where);
      m_fileRef->rootMap.SetAt(names[i], where);
      ++loaded;
    }
    tables.AddTable(table, slotCount, used);
    return true;
  });
  const bool ok = walked && wellFormed;
  if (ok) {
    tables.MarkKnown();
    m_fileRef->mapCount = loaded;
  } else {
    tables.Reset();
  }
  Unlock();
  return ok;
}

bool aoStorage::FindStreamOffset(const char* name, tag_aoStreamOffset& where) {
  if (name == nullptr || m_fileRef == nullptr) return false;
  Lock();
  const bool found = m_fileRef->rootMap.Lookup(name, where);
  Unlock();
  return found;
}

bool aoStorage::AppendRootTable(int64_t previousTable, FreeSlot& slot) {
  const int64_t end = GetFileSize();
  const uint32_t slots = m_slotsPerTable;
  const int64_t size = format::TableSize(m_b64, slots);
  if (slots == 0 || end <= 0 || end + size > FileLimit()) return false;
  std::vector<unsigned char> table(static_cast<size_t>(size), 0);
  format::EncodeTableHeader({format::kTableMarker, slots, 0}, m_b64, table.data());
  unsigned char link[8];
  format::PutWide(link, end, m_b64);
  if (!platform::WriteFully(m_file, table.data(), size, end) ||
      !WriteInPlace(previousTable + 8, link, format::OffsetSize(m_b64)))
    return false;
  // No block written before the new table counts as the tail block any more.
  m_tail = end + size;
  PublishTail();
  ao::RootTables& tables = m_fileRef->tables;
  if (tables.known()) tables.AddTable(end, slots);
  slot = FreeSlot{end, slots, 0, end + TableHeaderSize(), 0, 0};
  return true;
}

bool aoStorage::ScanTablesForFreeSlot(bool reserved, FreeSlot& slot) {
  bool found = false;
  bool first = true;
  int64_t lastTable = 0;
  const bool walked = WalkRootTables([&](int64_t table, uint32_t slotCount, const unsigned char* bytes) {
    lastTable = table;
    uint32_t from = 0, to = slotCount;
    if (first) {
      from = reserved ? 0 : m_reservedSlots;
      if (reserved) to = std::min<uint32_t>(m_reservedSlots, slotCount);
    }
    for (uint32_t index = from; index < to; ++index) {
      const unsigned char* raw = bytes + TableHeaderSize() + static_cast<size_t>(index) * RecordSize();
      const t_aoStreamU record = format::DecodeRecord(raw, m_b64);
      if (record.name[0] != '\0') continue;
      slot = FreeSlot{table, slotCount, index, table + TableHeaderSize() + static_cast<int64_t>(index) * RecordSize(),
                      record.lastBlock, record.firstBlock};
      found = true;
      return false;
    }
    first = false;
    return !reserved;  // reserved creation never looks past the first table
  });
  if (!walked) return false;
  if (found) return true;
  return !reserved && lastTable != 0 && AppendRootTable(lastTable, slot);
}

bool aoStorage::FindFreeSlot(bool reserved, FreeSlot& slot) {
  ao::RootTables& tables = m_fileRef->tables;
  if (!tables.known()) return ScanTablesForFreeSlot(reserved, slot);
  // The shared picture of the chain gives the slot the scan would take.
  const auto& known = tables.tables();
  ao::RootTables::Slot found;
  const bool any = tables.FirstFree({0, reserved ? 0u : m_reservedSlots}, found);
  if (reserved) {
    if (!any || found.first != 0 || found.second >= std::min<uint32_t>(m_reservedSlots, known[0].slotCount))
      return false;
  } else if (!any) {
    return AppendRootTable(known.back().offset, slot);
  }
  const ao::RootTables::Table& table = known[found.first];
  slot = FreeSlot{table.offset, table.slotCount, found.second,
                  table.offset + TableHeaderSize() + static_cast<int64_t>(found.second) * RecordSize(), 0, 0};
  unsigned char raw[92];
  if (!ReadAtFile(slot.recordOffset, raw, RecordSize())) return false;
  const t_aoStreamU record = format::DecodeRecord(raw, m_b64);
  slot.keptLast = record.lastBlock;
  slot.keptFirst = record.firstBlock;
  return true;
}

aoStream* aoStorage::CreateStreamHelper(const char* name, uint32_t attributes, uint32_t mode, bool reserved,
                                        bool openFirst) {
  if (openFirst) return OpenFirstOrdinarySlot(mode);
  if (name == nullptr || name[0] == '\0' || format::NameLength(name) > static_cast<size_t>(kAoMaxNameLength))
    return nullptr;
  if (m_fileRef == nullptr) return nullptr;
  ao::StorageLockGuard guard(*this);
  tag_aoStreamOffset existing;
  if (m_fileRef->rootMap.Lookup(name, existing) || !HasUsableFile()) return nullptr;
  FreeSlot slot;
  if (!FindFreeSlot(reserved, slot)) return nullptr;

  t_aoStreamU record = format::MakeRecord(name);
  record.mark = 1;
  record.duration = static_cast<uint16_t>(attributes >> 16);
  record.flags = (attributes & 0xFF) != 0 ? kAoFlagFolder : 0;
  record.lastBlock = slot.keptLast;
  record.firstBlock = slot.keptFirst;
  if (!WriteStreamHeader(slot.recordOffset, record)) return nullptr;

  tag_aoStreamOffset where;
  where.recordOffset = slot.recordOffset;
  where.tableOffset = slot.tableOffset;
  where.slotCount = slot.slotCount;
  where.duration = static_cast<uint32_t>(record.duration) * 60u;
  where.mark = 1;
  auto* stream = new aoStream(this, record, m_file, where);
  m_fileRef->rootMap.SetAt(name, where);
  if ((record.flags & kAoFlagFolder) != 0) {
    const unsigned char childCount[4] = {0, 0, 0, 0};
    stream->Write(childCount, 4, false, nullptr);
    stream->m_childCount = 0;
  }
  stream->m_mode = mode;
  stream->m_b64 = m_b64;
  PublishTail();
  return stream;
}

aoStream* aoStorage::OpenFirstOrdinarySlot(uint32_t mode) {
  // The record in the first table's first ordinary slot, whatever it holds:
  // the start of the record-by-record walk of the root directory.
  std::vector<unsigned char> bytes;
  uint32_t slotCount = 0;
  int64_t next = 0;
  if (!ReadRootTable(m_headerLength, bytes, slotCount, next, GetFileSize()) || m_reservedSlots >= slotCount)
    return nullptr;
  tag_aoStreamOffset where;
  where.recordOffset = m_headerLength + TableHeaderSize() + static_cast<int64_t>(m_reservedSlots) * RecordSize();
  where.tableOffset = m_headerLength;
  where.slotCount = slotCount;
  const t_aoStreamU record =
      format::DecodeRecord(bytes.data() + TableHeaderSize() + static_cast<size_t>(m_reservedSlots) * RecordSize(), m_b64);
  where.duration = static_cast<uint32_t>(record.duration) * 60u;
  where.childInfo = record.childInfo;
  where.mark = record.mark;
  return OpenStreamByOffset(where, record.name, mode);
}

aoStream* aoStorage::CreateStream(const char* name, uint32_t mode) { return CreateStreamHelper(name, 0, mode, false, false); }

aoStream* aoStorage::CreateStream(const char* name, uint32_t attributes, uint32_t mode) {
  return CreateStreamHelper(name, attributes, mode, false, false);
}

aoStream* aoStorage::CreateStreamFast(const char* name, uint32_t mode) {
  return CreateStreamHelper(name, 0, mode, true, false);
}

aoStream* aoStorage::CreateStreamFast(const char* name, uint32_t attributes, uint32_t mode) {
  return CreateStreamHelper(name, attributes, mode, true, false);
}

aoStream* aoStorage::OpenStreamByOffset(tag_aoStreamOffset& where, const char* name, uint32_t mode) {
  const bool named = name != nullptr && name[0] != '\0';
  t_OpenStream* open = named ? IsStreamOpen(name) : nullptr;
  if (open != nullptr) {
    if ((open->mode & kAoExclusive) != 0) return nullptr;
    if ((open->mode & kAoShareRead) != 0 && (mode & (kAoShareReadWrite | kAoExclusive)) != 0) return nullptr;
  }
  unsigned char raw[92];
  if (!ReadAtFile(where.recordOffset, raw, RecordSize())) return nullptr;
  t_aoStreamU record = format::DecodeRecord(raw, m_b64);
  if (record.marker != format::kRecordMarker) return nullptr;
  // A stream is opened to be read or written: its first block header is
  // wanted next, and can be on its way while the stream object is set up.
  if (!m_inMemory && record.firstBlock > 0)
    ao::platform::Files().WillRead(m_file, record.firstBlock, static_cast<size_t>(format::BlockHeaderSize(m_b64)));
  auto* stream = new aoStream(this, record, m_file, where);
  if (open != nullptr) {
    ++open->count;
  } else {
    AddNewOpenStream(name != nullptr ? name : "", mode);
  }
  stream->m_mode = mode;
  stream->m_b64 = m_b64;
  return stream;
}

aoStream* aoStorage::OpenStream(const char* name, uint32_t mode) {
  tag_aoStreamOffset where;
  if (!FindStreamOffset(name, where)) return nullptr;
  return OpenStreamByOffset(where, name, mode);
}

aoStream* aoStorage::OpenStreamFast(const char* name, uint32_t mode) {
  if (name == nullptr) return nullptr;
  // Only the head of the first table, holding the reserved slots, is read.
  const int64_t size = GetFileSize();
  unsigned char head[16] = {};
  if (size < 0 || !ReadAtFile(m_headerLength, head, TableHeaderSize())) return nullptr;
  const format::TableHeader table = format::DecodeTableHeader(head, m_b64);
  if (table.marker != format::kTableMarker) return nullptr;
  const uint32_t slots = std::min<uint32_t>(m_reservedSlots, table.slotCount);
  const int64_t area = TableHeaderSize() + static_cast<int64_t>(slots) * RecordSize();
  if (m_headerLength + area > size) return nullptr;
  std::vector<unsigned char> bytes(static_cast<size_t>(area));
  if (!ReadAtFile(m_headerLength, bytes.data(), area)) return nullptr;
  for (uint32_t index = 0; index < slots; ++index) {
    const t_aoStreamU record =
        format::DecodeRecord(bytes.data() + TableHeaderSize() + static_cast<size_t>(index) * RecordSize(), m_b64);
    if (std::strcmp(record.name, name) != 0) continue;
    tag_aoStreamOffset where;
    where.recordOffset = m_headerLength + TableHeaderSize() + static_cast<int64_t>(index) * RecordSize();
    where.tableOffset = m_headerLength;
    where.slotCount = table.slotCount;
    return OpenStreamByOffset(where, name, mode);
  }
  return nullptr;
}

aoStream* aoStorage::OpenOrCreateStream(const char* name, int attributes) {
  ao::StorageLockGuard guard(*this);
  tag_aoStreamOffset where;
  if (FindStreamOffset(name, where)) return OpenStreamByOffset(where, name, kAoModeEdit);
  return CreateStreamHelper(name, static_cast<uint32_t>(attributes), kAoModeEdit, false, false);
}

aoStream* aoStorage::OpenOrCreateStreamFast(const char* name, int append) {
  aoStream* stream = OpenStreamFast(name, kAoModeEdit);
  if (stream == nullptr) stream = CreateStreamHelper(name, 0, kAoModeEdit, true, false);
  if (stream == nullptr) return nullptr;
  if (append != 0) stream->SeekLeft(0, true);
  if (m_recorder != nullptr) m_recorder->OpEnterFast(name, append, stream);
  return stream;
}

bool aoStorage::RemoveStream(const char* name) {
  if (name == nullptr || m_fileRef == nullptr) return false;
  ao::StorageLockGuard guard(*this);
  return m_fileRef->rootMap.RemoveKey(name);
}

int aoStorage::RenameStreamHeaderName(int64_t recordOffset, char* name, uint32_t length) {
  // Only the name field may change: a longer write would reach other fields.
  if (name == nullptr || length > static_cast<uint32_t>(kAoNameFieldSize) || m_inMemory) return 0;
  ao::StorageLockGuard guard(*this);
  if (!WriteInPlace(recordOffset + format::kRecordNameOffset, name, length)) return 0;
  if (length > 0 && m_fileRef != nullptr)
    m_fileRef->tables.NoteRecordWritten(recordOffset, name[0] != '\0', TableHeaderSize(), RecordSize());
  return 1;
}

uint32_t aoStorage::GetSubfolderCount(const char* name) {
  aoStream* stream = OpenStream(name, kAoModeInspect);
  if (stream == nullptr) return 0;
  const uint32_t count = stream->GetNumChildren();
  stream->Release();
  return count;
}

t_OpenStream* aoStorage::IsStreamOpen(const char* name) {
  if (name == nullptr || name[0] == '\0') return nullptr;
  return m_openStreams.Find(name);
}

t_OpenStream* aoStorage::AddNewOpenStream(const char* name, uint32_t mode) {
  return m_openStreams.Add(name != nullptr ? name : "", mode);
}

int aoStorage::CloseStream(const char* name) { return name == nullptr ? -1 : m_openStreams.Close(name); }
