#include "storage/format.h"

namespace ao::format {

void EncodeFileHeader(bool b64, unsigned char out[kFileHeaderSize]) {
  std::memset(out, 0, kFileHeaderSize);
  std::memcpy(out, kMagic, kMagicCompared);
  out[24] = static_cast<unsigned char>(b64 ? '2' : '1');
  PutU16(out + 26, kSlotsPerTable);
  PutU16(out + 28, kReservedSlots);
}

bool DecodeFileHeader(const unsigned char* bytes, size_t available, FileHeader& header) {
  if (available < static_cast<size_t>(kFileHeaderSize)) return false;
  if (std::memcmp(bytes, kMagic, kMagicCompared) != 0) return false;
  // The version byte is read as a signed char on purpose: every byte from
  // 0x80 up is negative and therefore below "1".
  const auto version = static_cast<signed char>(bytes[24]);
  header.version = static_cast<char>(version);
  if (version == '_') {
    header.legacy = true;
    header.b64 = false;
    header.slotsPerTable = kSlotsPerTable;
    header.reservedSlots = kLegacyReservedSlots;
    header.headerLength = kLegacyHeaderSize;
    return true;
  }
  if (version < '1') return false;
  header.legacy = false;
  header.b64 = version >= '2';
  header.slotsPerTable = GetU16(bytes + 26);
  header.reservedSlots = GetU16(bytes + 28);
  header.headerLength = kFileHeaderSize;
  return true;
}

void EncodeTableHeader(const TableHeader& table, bool b64, unsigned char* out) {
  std::memset(out, 0, static_cast<size_t>(TableHeaderSize(b64)));
  PutU32(out, table.marker);
  PutU32(out + 4, table.slotCount);
  PutWide(out + 8, table.next, b64);
}

TableHeader DecodeTableHeader(const unsigned char* in, bool b64) {
  TableHeader table;
  table.marker = GetU32(in);
  table.slotCount = GetU32(in + 4);
  table.next = GetWide(in + 8, b64);
  return table;
}

void EncodeBlockHeader(const BlockHeader& block, bool b64, unsigned char* out) {
  PutU32(out, block.marker);
  if (b64) {
    PutU32(out + 4, 0);
    PutU64(out + 8, static_cast<uint64_t>(block.dataEnd));
    PutU64(out + 16, static_cast<uint64_t>(block.blockEnd));
    PutU64(out + 24, static_cast<uint64_t>(block.prev));
    PutU64(out + 32, static_cast<uint64_t>(block.next));
  } else {
    PutU32(out + 4, static_cast<uint32_t>(block.dataEnd));
    PutU32(out + 8, static_cast<uint32_t>(block.blockEnd));
    PutU32(out + 12, static_cast<uint32_t>(block.prev));
    PutU32(out + 16, static_cast<uint32_t>(block.next));
  }
}

BlockHeader DecodeBlockHeader(const unsigned char* in, bool b64) {
  BlockHeader block;
  block.marker = GetU32(in);
  const int step = OffsetSize(b64);
  const unsigned char* field = in + (b64 ? 8 : 4);
  block.dataEnd = GetWide(field, b64);
  block.blockEnd = GetWide(field + step, b64);
  block.prev = GetWide(field + 2 * step, b64);
  block.next = GetWide(field + 3 * step, b64);
  return block;
}

void EncodeRecord(const t_aoStreamU& record, bool b64, unsigned char* out) {
  std::memset(out, 0, static_cast<size_t>(RecordSize(b64)));
  PutU32(out, record.marker);
  std::memcpy(out + kRecordNameOffset, record.name, kAoNameFieldSize);
  PutU64(out + 56, record.childInfo);
  out[64] = record.mark;
  PutU16(out + 65, record.duration);
  out[kRecordFlagsOffset] = record.flags;
  EncodeLengthPair(record.dataLength, record.lastBlock, b64, out + kRecordLengthOffset);
  PutWide(out + FirstBlockFieldOffset(b64), record.firstBlock, b64);
}

t_aoStreamU DecodeRecord(const unsigned char* in, bool b64) {
  t_aoStreamU record;
  record.marker = GetU32(in);
  // A stored name always ends inside its field; a damaged one is cut there.
  CopyRecordName(in, record.name);
  record.childInfo = GetU64(in + 56);
  record.mark = in[64];
  record.duration = GetU16(in + 65);
  record.flags = in[kRecordFlagsOffset];
  const int step = OffsetSize(b64);
  record.dataLength = GetWide(in + kRecordLengthOffset, b64);
  record.lastBlock = GetWide(in + kRecordLengthOffset + step, b64);
  record.firstBlock = GetWide(in + FirstBlockFieldOffset(b64), b64);
  return record;
}

void EncodeLengthPair(int64_t length, int64_t lastBlock, bool b64, unsigned char* out) {
  PutWide(out, length, b64);
  PutWide(out + OffsetSize(b64), lastBlock, b64);
}

t_aoStreamU MakeRecord(const char* name) {
  t_aoStreamU record;
  record.marker = kRecordMarker;
  SetRecordName(record, name);
  return record;
}

size_t NameLength(const char* name) {
  size_t length = 0;
  while (length < static_cast<size_t>(kAoNameFieldSize) && name[length] != '\0') ++length;
  return length;
}

void SetRecordName(t_aoStreamU& record, const char* name) {
  std::memset(record.name, 0, sizeof record.name);
  if (name == nullptr) return;
  const size_t length = NameLength(name);
  std::memcpy(record.name, name, length > static_cast<size_t>(kAoMaxNameLength) ? kAoMaxNameLength : length);
}

}  // namespace ao::format
