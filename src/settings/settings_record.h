// The framing of the global settings store's records: an outer header, an
// inner header (enciphered with the data) and the data, each encoded field by
// field in little-endian.
#ifndef AOSTORE_SETTINGS_SETTINGS_RECORD_H
#define AOSTORE_SETTINGS_SETTINGS_RECORD_H

#include <cstddef>
#include <cstdint>

#include "aostore/settings.h"

namespace ao::settings {

inline constexpr size_t kOuterHeaderSize = 16;
inline constexpr size_t kInnerHeaderSize = 16;
// Outer flag: the inner header and the data are enciphered.
inline constexpr uint8_t kRecordEncrypted = 0x01;

struct OuterHeader {
  uint32_t kind = 0;        // 0x0B settings, 0x0A users
  uint16_t version = 0;
  uint8_t flags = 0;        // kRecordEncrypted
  uint64_t restLength = 0;  // inner header + data
};

struct InnerHeader {
  uint32_t type = 0;        // 2 settings, 1 users
  uint16_t version = 0;
  uint64_t dataLength = 0;
};

// Reads a record written by an older version of its kind into buffer (size
// bytes); non-zero on success. The child stream stands just after the inner
// header.
using RecordConverter = int (*)(CVastrelFile& file, const InnerHeader& header, int listNumber,
                                unsigned char* buffer, uint64_t size);

// Everything the reader and the writer share about one kind of record.
struct RecordDescriptor {
  int listNumber;
  uint32_t outerKind;
  const char* streamName;
  uint32_t recordType;
  uint16_t outerVersion;
  uint16_t currentVersion;
  uint32_t innerHeaderSize;
  uint32_t dataSize;
  RecordConverter convert;  // null: older versions are read as they stand
};

extern const RecordDescriptor kSettingsRecord;
extern const RecordDescriptor kUserRecord;

void EncodeOuterHeader(const OuterHeader& header, unsigned char* out);
OuterHeader DecodeOuterHeader(const unsigned char* in);
void EncodeInnerHeader(const InnerHeader& header, unsigned char* out);
InnerHeader DecodeInnerHeader(const unsigned char* in);

// The headers a writer puts in front of a record of this kind.
OuterHeader MakeOuterHeader(const RecordDescriptor& kind, bool encrypted);
InnerHeader MakeInnerHeader(const RecordDescriptor& kind);

// SettingsDbInfo::kStoredSize bytes.
void EncodeSettings(const SettingsDbInfo& settings, unsigned char* out);
SettingsDbInfo DecodeSettings(const unsigned char* in);
// GlobalUserEntry::kStoredSize bytes.
void EncodeUser(const GlobalUserEntry& user, unsigned char* out);
GlobalUserEntry DecodeUser(const unsigned char* in);

// Between the application's row order and the stored column order: stored
// word (column * 64 + row) is value[row][column].
void StorePermissions(const ZelvanorPermissionsStruct& permissions, unsigned char* stored);
void LoadPermissions(const unsigned char* stored, ZelvanorPermissionsStruct* permissions);
inline constexpr uint32_t kZelvanorPermissionsSize = 16;

}  // namespace ao::settings

#endif  // AOSTORE_SETTINGS_SETTINGS_RECORD_H
