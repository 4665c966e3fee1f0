// The shared index of a folder's records: built from one pass over the
// folder's data, kept with the file's shared reference, and told of every
// record the library writes.
#include <cstring>
#include <memory>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "storage/file_ref.h"
#include "storage/folder_index.h"
#include "storage/folder_scanner.h"
#include "storage/format.h"
#include "storage/internals.h"

namespace format = ao::format;

namespace {

ao::FolderIndex::Signature SignatureOf(const t_aoStreamU& header) {
  return {header.firstBlock, header.lastBlock, header.dataLength};
}

}  // namespace

ao::FolderIndex* aoStream::FolderRecords() {
  if (m_storage == nullptr || m_storage->m_inMemory || IsFolder() == 0) return nullptr;
  t_FileRef* ref = ao::StorageInternals::FileRef(*m_storage);
  if (ref == nullptr) return nullptr;
  // Another object on the file may have added children since this one read
  // the folder's record.
  RefreshOwnRecord();
  ao::FolderIndexes& folders = ref->folders;
  const int64_t key = m_where.recordOffset;
  ao::FolderIndex* index = folders.Find(key);
  if (index != nullptr && index->signature() == SignatureOf(m_header)) return index;

  ao::FolderScanner scan(*this);
  // A folder whose blocks could not all be read is scanned each time, as
  // far as it can be read then.
  if (!scan.complete() || !scan.ReadHead()) {
    folders.Drop(key);
    return nullptr;
  }
  const int size = RecordSize();
  // How many whole records the data holds, also beyond the count.
  const int64_t whole = (scan.reachable() - 4) / size;
  auto built = std::make_unique<ao::FolderIndex>(scan.count(), scan.reachable() > 4 + whole * size,
                                                 SignatureOf(m_header));
  built->Reserve(static_cast<size_t>(whole));
  t_aoStreamU record;
  tag_aoStreamOffset where;
  for (int64_t number = 0; number < whole; ++number) {
    // A read the system failed is not the end of the data: nothing is kept.
    if (!scan.NextRecord(record, where)) {
      folders.Drop(key);
      return nullptr;
    }
    built->AddRecord(record.name, record.marker == format::kRecordMarker, where.recordOffset);
  }
  return folders.Keep(key, std::move(built));
}

void aoStream::ForgetFolderRecords() {
  if (m_storage == nullptr) return;
  t_FileRef* ref = ao::StorageInternals::FileRef(*m_storage);
  if (ref == nullptr) return;
  ao::StorageLockGuard guard(*m_storage);
  ref->folders.Drop(m_where.recordOffset);
}

void aoStream::NoteRecordInFolder() {
  if (m_storage == nullptr) return;
  t_FileRef* ref = ao::StorageInternals::FileRef(*m_storage);
  if (ref == nullptr) return;
  ao::StorageLockGuard guard(*m_storage);
  // A freed record takes no folder's index with it to the next stream.
  if (m_header.name[0] == '\0') ref->folders.Drop(m_where.recordOffset);
  if (m_parent == nullptr) return;
  const int64_t folder = m_parent->m_where.recordOffset;
  ao::FolderIndex* index = ref->folders.Find(folder);
  if (index == nullptr) return;
  const int64_t record = index->RecordAt(m_where.recordOffset);
  if (record < 0) {
    ref->folders.Drop(folder);
    return;
  }
  const bool marked = m_header.marker == format::kRecordMarker;
  if (!index->Holds(static_cast<uint32_t>(record), m_header.name, marked))
    index->SetRecord(static_cast<uint32_t>(record), m_header.name, marked, m_where.recordOffset);
}

bool aoStream::ReadRecordNumber(uint32_t record, t_aoStreamU& found, tag_aoStreamOffset& where) {
  ao::FolderScanner scan(*this);
  return scan.ReadRecordAt(4 + static_cast<int64_t>(record) * RecordSize(), found, where);
}
