// Moving an open root stream object in place to the next record of the root
// directory: a walk of the tables record by record, without the name map.
#include <string>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "storage/format.h"

namespace format = ao::format;

bool aoStream::GoNext() {
  if (m_parent != nullptr || m_storage == nullptr || m_where.tableOffset <= 0 || m_where.slotCount == 0) return false;
  const int recordSize = RecordSize();
  const int tableHeader = format::TableHeaderSize(m_b64);
  const uint32_t next = static_cast<uint32_t>(m_where.recordOffset - m_where.tableOffset + tableHeader) /
                            static_cast<uint32_t>(recordSize) +
                        1;
  unsigned char raw[16 + 92];
  t_aoStreamU record;
  tag_aoStreamOffset where = m_where;
  if (next < m_where.slotCount) {
    const int64_t at = m_where.recordOffset + recordSize;
    if (!ReadAtFile(at, raw, recordSize)) return false;
    record = format::DecodeRecord(raw, m_b64);
    where.recordOffset = at;
  } else {
    unsigned char link[8];
    if (!ReadAtFile(m_where.tableOffset + 8, link, format::OffsetSize(m_b64))) return false;
    const int64_t table = format::GetWide(link, m_b64);
    if (table <= 0 || !ReadAtFile(table, raw, tableHeader + recordSize)) return false;
    const format::TableHeader head = format::DecodeTableHeader(raw, m_b64);
    if (head.marker != format::kTableMarker || head.slotCount == 0) return false;
    record = format::DecodeRecord(raw + tableHeader, m_b64);
    where.tableOffset = table;
    where.recordOffset = table + tableHeader;
    where.slotCount = head.slotCount;
  }
  // A free slot ends the walk, deliberately, even when later slots are used.
  if (record.marker != format::kRecordMarker || record.name[0] == '\0') return false;
  where.duration = static_cast<uint32_t>(record.duration) * 60u;
  where.childInfo = record.childInfo;
  where.mark = record.mark;

  const std::string previous = m_header.name;
  m_header = record;
  m_where = where;
  m_curBlock = record.firstBlock;
  m_posInBlock = 0;
  m_dataPos = 0;
  m_childCount = 0;
  // What was known of the previous stream's children does not hold here.
  delete m_preloaded;
  m_preloaded = nullptr;
  m_layout.reset();
  m_storage->CloseStream(previous.c_str());
  // A new entry, deliberately without looking for an existing one.
  m_storage->AddNewOpenStream(m_header.name, m_mode);
  return true;
}
