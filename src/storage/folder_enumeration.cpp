// Walking a folder's children in physical record order, with a caller-held
// position (a byte offset into the folder's data), and the folders above a
// stream.
#include "aostore/stream.h"
#include "storage/folder_scanner.h"
#include "storage/format.h"

namespace format = ao::format;

aoStream* aoStream::OpenStreamFirst(int64_t* position, uint32_t mode) {
  if (position == nullptr || IsFolder() == 0) return nullptr;
  ao::FolderScanner scan(*this);
  scan.ReadHead();
  *position = 4;
  t_aoStreamU record;
  tag_aoStreamOffset where;
  // The first named child must come within the count's worth of records.
  for (uint32_t index = 0; index < scan.count(); ++index) {
    if (!scan.NextRecord(record, where) || record.marker != format::kRecordMarker) return nullptr;
    *position += RecordSize();
    if (record.name[0] != '\0') return OpenStreamByOffset(record, where, record.name, mode);
  }
  return nullptr;
}

aoStream* aoStream::OpenStreamNext(int64_t* position, uint32_t mode) {
  if (position == nullptr || IsFolder() == 0) return nullptr;
  ao::FolderScanner scan(*this);
  if (!scan.SeekTo(*position)) return nullptr;
  t_aoStreamU record;
  tag_aoStreamOffset where;
  // Not bounded by the count: the walk ends at the end of the data or at a
  // record without its marker.
  while (scan.NextRecord(record, where) && record.marker == format::kRecordMarker) {
    *position += RecordSize();
    if (record.name[0] != '\0') return OpenStreamByOffset(record, where, record.name, mode);
  }
  return nullptr;
}

void aoStream::EnumStreams(std::vector<std::string>& names) {
  if (IsFolder() == 0) return;
  // The names come from the records themselves: a child held open
  // exclusively elsewhere is listed too.
  ao::FolderScanner scan(*this);
  scan.ForEachChild([&names](const t_aoStreamU& record, const tag_aoStreamOffset&) {
    names.emplace_back(record.name);
    return true;
  });
}

int aoStream::GetChildrenOf(aoStream* ancestor, aoStream** out, int max) {
  int stored = 0;
  for (aoStream* folder = m_parent; folder != nullptr; folder = folder->m_parent) {
    if (folder == ancestor) return stored;
    if (out == nullptr || stored >= max) return -1;
    out[stored++] = folder;
  }
  return ancestor == nullptr ? stored : 0;
}
