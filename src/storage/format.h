// Encoding and decoding of every on-disk record of a container, field by
// field in little-endian, for both offset widths and the legacy header.
#ifndef AOSTORE_STORAGE_FORMAT_H
#define AOSTORE_STORAGE_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "aostore/types.h"

namespace ao::format {

inline constexpr uint32_t kTableMarker = 0xFBFBFBFBu;
inline constexpr uint32_t kRecordMarker = 0xFCFCFCFCu;
inline constexpr uint32_t kBlockMarker = 0xFAFAFAFAu;
inline constexpr char kMagic[] = "@_QO_Structured_Storage@_";
inline constexpr int kMagicCompared = 24;
inline constexpr int kFileHeaderSize = 32;
inline constexpr int kLegacyHeaderSize = 26;
inline constexpr uint16_t kSlotsPerTable = 64;
inline constexpr uint16_t kReservedSlots = 6;
inline constexpr uint16_t kLegacyReservedSlots = 2;
inline constexpr int64_t kLimit32 = 0xFFFFFFFFLL;

// Record field offsets.
inline constexpr int kRecordNameOffset = 4;
inline constexpr int kRecordFlagsOffset = 67;
inline constexpr int kRecordLengthOffset = 68;

constexpr int RecordSize(bool b64) { return b64 ? 92 : 80; }
constexpr int BlockHeaderSize(bool b64) { return b64 ? 40 : 20; }
constexpr int TableHeaderSize(bool b64) { return b64 ? 16 : 12; }
constexpr int FirstBlockFieldOffset(bool b64) { return b64 ? 84 : 76; }
constexpr int OffsetSize(bool b64) { return b64 ? 8 : 4; }
// Bytes of the length and last-block pair rewritten together at offset 68.
constexpr int LengthPairSize(bool b64) { return b64 ? 16 : 8; }
constexpr int64_t TableSize(bool b64, uint32_t slots) {
  return TableHeaderSize(b64) + static_cast<int64_t>(slots) * RecordSize(b64);
}

inline void PutU16(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
}
inline void PutU32(unsigned char* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
inline void PutU64(unsigned char* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
inline uint16_t GetU16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t GetU32(const unsigned char* p) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}
inline uint64_t GetU64(const unsigned char* p) {
  uint64_t v = 0;
  for (int i = 7; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}

// A record that the root directory's name map lists: marked, with a name.
inline bool IsNamedRecord(const unsigned char* record) {
  return GetU32(record) == kRecordMarker && record[kRecordNameOffset] != 0;
}

// An offset or length of the file's width: u32 in 32-bit files, i64 in 64-bit files.
inline void PutWide(unsigned char* p, int64_t v, bool b64) {
  if (b64) {
    PutU64(p, static_cast<uint64_t>(v));
  } else {
    PutU32(p, static_cast<uint32_t>(v));
  }
}
inline int64_t GetWide(const unsigned char* p, bool b64) {
  return b64 ? static_cast<int64_t>(GetU64(p)) : static_cast<int64_t>(GetU32(p));
}

struct FileHeader {
  char version = '2';
  bool legacy = false;
  bool b64 = true;
  uint16_t slotsPerTable = kSlotsPerTable;
  uint16_t reservedSlots = kReservedSlots;
  int64_t headerLength = kFileHeaderSize;
};

// The 32 header bytes of a new container.
void EncodeFileHeader(bool b64, unsigned char out[kFileHeaderSize]);
// False when the bytes are not a container header.
bool DecodeFileHeader(const unsigned char* bytes, size_t available, FileHeader& header);

struct TableHeader {
  uint32_t marker = kTableMarker;
  uint32_t slotCount = 0;
  int64_t next = 0;
};
void EncodeTableHeader(const TableHeader& table, bool b64, unsigned char* out);
TableHeader DecodeTableHeader(const unsigned char* in, bool b64);

struct BlockHeader {
  uint32_t marker = kBlockMarker;
  int64_t dataEnd = 0;
  int64_t blockEnd = 0;
  int64_t prev = 0;
  int64_t next = 0;
};
void EncodeBlockHeader(const BlockHeader& block, bool b64, unsigned char* out);
BlockHeader DecodeBlockHeader(const unsigned char* in, bool b64);

// RecordSize(b64) bytes.
void EncodeRecord(const t_aoStreamU& record, bool b64, unsigned char* out);
t_aoStreamU DecodeRecord(const unsigned char* in, bool b64);
// The data length and last-block fields, LengthPairSize(b64) bytes.
void EncodeLengthPair(int64_t length, int64_t lastBlock, bool b64, unsigned char* out);

// A record's name as a string that ends inside the name field (a damaged
// name without its terminator is cut there, as DecodeRecord does).
inline void CopyRecordName(const unsigned char* record, char (&name)[kAoNameFieldSize]) {
  std::memcpy(name, record + kRecordNameOffset, kAoNameFieldSize);
  name[kAoMaxNameLength] = '\0';
}
// The fields of a record that the root directory keeps: the child-stream
// information, the mark and the duration (in seconds).
inline void DecodeDirectoryFields(const unsigned char* record, tag_aoStreamOffset& where) {
  where.childInfo = GetU64(record + 56);
  where.mark = record[64];
  where.duration = static_cast<uint32_t>(GetU16(record + 65)) * 60u;
}

// A fresh record carrying only its marker and the given name.
t_aoStreamU MakeRecord(const char* name);
// Name length bounded by the name field; 52 means no terminator was found.
size_t NameLength(const char* name);
// Copies name into a record's name field (at most 51 bytes, NUL-padded).
void SetRecordName(t_aoStreamU& record, const char* name);

}  // namespace ao::format

#endif  // AOSTORE_STORAGE_FORMAT_H
