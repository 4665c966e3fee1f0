// aoStream as a folder: finding, adding, creating and opening children. A
// folder's data is a u32 child count followed by its children's records.
#include <cstring>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "storage/file_ref.h"
#include "storage/folder_index.h"
#include "storage/folder_scanner.h"
#include "storage/format.h"
#include "storage/internals.h"

namespace format = ao::format;

namespace {

bool ValidChildName(const char* name) {
  return name != nullptr && name[0] != '\0' && format::NameLength(name) <= static_cast<size_t>(kAoMaxNameLength);
}

// The position record of a child: no table, duration in seconds.
void FinishChildWhere(const t_aoStreamU& record, tag_aoStreamOffset& where) {
  where.tableOffset = 0;
  where.slotCount = 0;
  where.duration = static_cast<uint32_t>(record.duration) * 60u;
  where.childInfo = record.childInfo;
  where.mark = record.mark;
}

}  // namespace

bool aoStream::FindStream(const char* name, t_aoStreamU& record, tag_aoStreamOffset& where) {
  if (name == nullptr || name[0] == '\0') return false;
  if (m_preloaded != nullptr) {
    t_aoStreamWithOffset found;
    if (!m_preloaded->Lookup(name, found)) return false;
    record = found.record;
    where = found.where;
    return true;
  }
  if (IsFolder() == 0) return false;
  if (m_storage != nullptr) {
    ao::StorageLockGuard guard(*m_storage);
    if (ao::FolderIndex* index = FolderRecords()) {
      const int64_t number = index->Find(name);
      if (number < 0) return false;
      if (ReadRecordNumber(static_cast<uint32_t>(number), record, where) && std::strcmp(record.name, name) == 0)
        return true;
      // The data no longer says what the index does: read it afresh.
      ForgetFolderRecords();
    }
  }
  ao::FolderScanner scan(*this);
  if (!scan.ReadHead()) return false;
  t_aoStreamU candidate;
  tag_aoStreamOffset at;
  // Bounded by the count, and by the data: a count larger than the data
  // ends at the first short read.
  for (uint32_t index = 0; index < scan.count(); ++index) {
    if (!scan.NextRecord(candidate, at)) return false;
    if (std::strcmp(candidate.name, name) == 0) {
      record = candidate;
      where = at;
      return true;
    }
  }
  return false;
}

bool aoStream::AppendRecord(int64_t at, const t_aoStreamU& record, tag_aoStreamOffset& where) {
  const int size = RecordSize();
  {
    ao::FolderScanner scan(*this);
    if (!scan.PlaceFolderAt(at)) return false;
  }
  const bool atEnd = at == m_header.dataLength;
  // A chain that goes on past the end of the data (blocks kept from a removed
  // stream) may hold blocks smaller than a record; a record that cannot fit
  // where it starts goes to a block of its own instead, so that it never lies
  // in more than two pieces.
  if (atEnd && m_blockNext != 0 && m_blockEnd - m_posInBlock < size) {
    m_blockNext = 0;
    if (!WriteBlockHeader()) return false;
  }
  unsigned char bytes[92];
  format::EncodeRecord(record, m_b64, bytes);
  tag_aoStreamOffset written;
  if (WriteChunks(bytes, size, false, nullptr, size, &written) != size) {
    m_layout.reset();  // the blocks may have changed in part
    return false;
  }
  if (atEnd) {
    ao::FolderScanner::NoteAppended(*this, at, size);
    where.recordOffset = written.recordOffset;
    where.splitAt = written.splitAt;
    where.continuation = written.continuation;
    return true;
  }
  // Written over records past the count: their layout says where it lies.
  ao::FolderScanner after(*this);
  return after.Locate(at, where);
}

bool aoStream::AddStreamHeader(const char* name, uint32_t attributes, t_aoStreamU& record, tag_aoStreamOffset& where,
                               int reuseFree) {
  bool appended = false;
  return AddRecord(name, attributes, record, where, reuseFree, appended);
}

bool aoStream::AddRecord(const char* name, uint32_t attributes, t_aoStreamU& record, tag_aoStreamOffset& where,
                         int reuseFree, bool& appended) {
  appended = false;
  if (!ValidChildName(name) || IsFolder() == 0 || m_storage == nullptr) return false;
  ao::StorageLockGuard guard(*m_storage);
  ao::FolderIndex* index = FolderRecords();
  ao::FolderScanner scan(*this);
  if (!scan.ReadHead()) return false;
  const uint8_t flags = (attributes & 0xFFu) != 0 ? kAoFlagFolder : 0;
  const auto duration = static_cast<uint16_t>(attributes >> 16);

  // The record to take over, as the scan below would find it.
  auto takeOver = [&](t_aoStreamU candidate, tag_aoStreamOffset at) {
    // A free record is taken over in place; its blocks stay with it.
    format::SetRecordName(candidate, name);
    candidate.mark = 1;
    candidate.childInfo = 0;
    candidate.flags = flags;
    candidate.duration = duration;
    candidate.dataLength = 0;
    unsigned char bytes[92];
    format::EncodeRecord(candidate, m_b64, bytes);
    if (!WriteRecordAt(at, 0, bytes, RecordSize())) return false;
    FinishChildWhere(candidate, at);
    record = candidate;
    where = at;
    return true;
  };
  int64_t at = m_header.dataLength;  // without reuse the record goes to the end of the data
  if (reuseFree != 0 && index != nullptr) {
    const ao::FolderIndex::Placement placement = index->PlaceReusing();
    if (placement.kind == ao::FolderIndex::Placement::Kind::kFail) return false;
    if (placement.kind == ao::FolderIndex::Placement::Kind::kReuse) {
      t_aoStreamU candidate;
      tag_aoStreamOffset found;
      if (!ReadRecordNumber(placement.record, candidate, found) || candidate.marker != format::kRecordMarker ||
          candidate.name[0] != '\0') {
        ForgetFolderRecords();
        return false;
      }
      if (!takeOver(candidate, found)) return false;
      t_FileRef* ref = ao::StorageInternals::FileRef(*m_storage);
      ref->folders.Drop(found.recordOffset);  // the index of a folder that lived there
      index->SetRecord(placement.record, name, true, found.recordOffset);
      return true;
    }
    at = 4 + static_cast<int64_t>(placement.record) * RecordSize();
  } else if (reuseFree != 0) {
    t_aoStreamU candidate;
    tag_aoStreamOffset found;
    for (uint32_t number = 0; number < scan.count(); ++number) {
      if (!scan.NextRecord(candidate, found)) {
        if (scan.position() >= scan.reachable()) break;  // nothing more: the scan ends
        return false;                                    // a record cut short
      }
      if (candidate.marker != format::kRecordMarker) return false;
      if (candidate.name[0] == '\0') return takeOver(candidate, found);
    }
    // After a reuse scan the record goes after the last record the count covers.
    at = scan.position();
  }
  t_aoStreamU fresh = format::MakeRecord(name);
  fresh.mark = 1;
  fresh.flags = flags;
  fresh.duration = duration;
  tag_aoStreamOffset placed;
  if (!AppendRecord(at, fresh, placed)) {
    ForgetFolderRecords();
    return false;
  }
  appended = true;
  ++m_childCount;
  if (index != nullptr) {
    // The index follows only a record appended where it numbers records.
    const int64_t number = (at - 4) / RecordSize();
    if ((at - 4) % RecordSize() == 0 && number <= index->records()) {
      index->SetRecord(static_cast<uint32_t>(number), name, true, placed.recordOffset);
      index->SetSignature({m_header.firstBlock, m_header.lastBlock, m_header.dataLength});
      ao::StorageInternals::FileRef(*m_storage)->folders.NoteGrowth(m_where.recordOffset);
    } else {
      ForgetFolderRecords();
    }
  }
  FinishChildWhere(fresh, placed);
  record = fresh;
  where = placed;
  return true;
}

bool aoStream::WriteChildCount() {
  unsigned char bytes[4];
  format::PutU32(bytes, m_childCount);
  if (SeekRight(0, true) != 0) return false;
  if (m_storage == nullptr) return false;
  ao::StorageLockGuard guard(*m_storage);
  t_FileRef* ref = ao::StorageInternals::FileRef(*m_storage);
  ao::FolderIndex* index = ref != nullptr ? ref->folders.Find(m_where.recordOffset) : nullptr;
  const bool current = index != nullptr && index->signature() == ao::FolderIndex::Signature{
                                                                     m_header.firstBlock, m_header.lastBlock,
                                                                     m_header.dataLength};
  const bool written = WriteChunks(bytes, sizeof bytes, false, nullptr, 0, nullptr) == 4;
  if (current && written) {
    index->SetCount(m_childCount);
    index->SetSignature({m_header.firstBlock, m_header.lastBlock, m_header.dataLength});
  } else if (index != nullptr) {
    ref->folders.Drop(m_where.recordOffset);
  }
  return written;
}

aoStream* aoStream::CreateChild(const char* name, uint32_t attributes, uint32_t mode, int reuseFree) {
  t_aoStreamU record;
  tag_aoStreamOffset where;
  bool appended = false;
  if (!AddRecord(name, attributes, record, where, reuseFree, appended)) return nullptr;
  // The count goes to disk at once: a record beyond the count would be
  // silently taken over by the next creation.
  if (!WriteChildCount()) {
    if (appended) {
      // Nameless, the record the count does not cover is skipped by every
      // walk and taken over by the next creation.
      --m_childCount;
      const unsigned char none[kAoNameFieldSize] = {};
      WriteRecordAt(where, format::kRecordNameOffset, none, sizeof none);
      ForgetFolderRecords();
    }
    return nullptr;
  }
  if (m_preloaded != nullptr) m_preloaded->SetAt(record.name, t_aoStreamWithOffset{record, where});
  aoStream* child = OpenStreamByOffset(record, where, record.name, mode);
  if (child == nullptr) return nullptr;
  if ((record.flags & kAoFlagFolder) != 0) {
    const unsigned char empty[4] = {0, 0, 0, 0};
    if (child->WriteChunks(empty, sizeof empty, false, nullptr, 0, nullptr) != 4) {
      child->Release();
      return nullptr;
    }
    child->m_childCount = 0;
  }
  return child;
}

bool aoStream::RefreshOwnRecord() {
  unsigned char bytes[92] = {};
  const int size = RecordSize();
  const int split = static_cast<int>(m_where.splitAt);
  const bool read = split == 0 ? ReadAtFile(m_where.recordOffset, bytes, size)
                               : ReadAtFile(m_where.recordOffset, bytes, split) &&
                                     ReadAtFile(m_where.continuation, bytes + split, size - split);
  if (!read) return false;
  const t_aoStreamU record = format::DecodeRecord(bytes, m_b64);
  if (record.marker != format::kRecordMarker) return false;
  if (record.dataLength == m_header.dataLength && record.lastBlock == m_header.lastBlock &&
      record.firstBlock == m_header.firstBlock)
    return true;
  m_header.dataLength = record.dataLength;
  m_header.lastBlock = record.lastBlock;
  m_header.firstBlock = record.firstBlock;
  // The cached block position may describe data that has moved on.
  m_curBlock = m_header.firstBlock;
  m_posInBlock = 0;
  m_dataPos = 0;
  return true;
}

aoStream* aoStream::CreateStream(const char* name, uint32_t attributes, uint32_t mode, int unique) {
  if (m_storage == nullptr || IsFolder() == 0 || !ValidChildName(name)) return nullptr;
  ao::StorageLockGuard guard(*m_storage);
  // Another container object on the same file may have added children since
  // this folder was opened: start from the folder's record as it is on disk.
  RefreshOwnRecord();
  if (unique != 0) {
    t_aoStreamU existing;
    tag_aoStreamOffset where;
    if (FindStream(name, existing, where)) return nullptr;
  }
  // A duplicate name is accepted without unique, deliberately; free records
  // are then reused only while no preloaded map remembers them.
  const int reuseFree = unique != 0 || m_preloaded == nullptr ? 1 : 0;
  return CreateChild(name, attributes, mode, reuseFree);
}

aoStream* aoStream::OpenStream(const char* name, uint32_t mode) {
  if (IsFolder() == 0) return nullptr;
  t_aoStreamU record;
  tag_aoStreamOffset where;
  if (!FindStream(name, record, where)) return nullptr;
  return OpenStreamByOffset(record, where, name, mode);
}

aoStream* aoStream::OpenOrCreateStream(const char* name, int attributes) {
  if (m_storage == nullptr) return nullptr;
  ao::StorageLockGuard guard(*m_storage);
  RefreshOwnRecord();
  aoStream* stream = OpenStream(name, kAoModeEdit);
  return stream != nullptr ? stream : CreateStream(name, static_cast<uint32_t>(attributes), kAoModeEdit, 1);
}

aoStream* aoStream::OpenOrCreateStream(const char* name, uint32_t attributes, uint32_t mode) {
  if (m_storage == nullptr) return nullptr;
  ao::StorageLockGuard guard(*m_storage);
  RefreshOwnRecord();
  aoStream* stream = OpenStream(name, mode);
  // An existing child whose open is refused gets a namesake (unique 0).
  return stream != nullptr ? stream : CreateStream(name, attributes, mode, 0);
}

aoStream* aoStream::OpenStreamByOffset(t_aoStreamU& record, tag_aoStreamOffset& where, const char* name,
                                       uint32_t mode) {
  t_OpenStream* open = IsStreamOpen(name);
  if (open != nullptr) {
    if ((open->mode & kAoExclusive) != 0) return nullptr;
    if ((open->mode & kAoShareRead) != 0 && (mode & (kAoShareReadWrite | kAoExclusive)) != 0) return nullptr;
  }
  if (m_storage == nullptr || !ao::StorageInternals::HasUsableFile(*m_storage)) return nullptr;
  auto* child = new aoStream(this, record, m_file, where);
  child->m_mode = mode;
  if (open != nullptr) {
    ++open->count;
  } else {
    AddNewOpenStream(name, mode);  // refuses an empty name: such a child is never listed
  }
  return child;
}

uint32_t aoStream::GetNumChildren() {
  if (IsFolder() == 0) return 0;
  ao::FolderScanner scan(*this);
  scan.ReadHead();
  return m_childCount;
}
