#include "settings/settings_record.h"

#include <cstring>

#include "storage/format.h"

namespace ao::settings {

using format::GetU16;
using format::GetU32;
using format::GetU64;
using format::PutU16;
using format::PutU32;
using format::PutU64;

const RecordDescriptor kSettingsRecord = {
    0, 0x0B, "Settings", 2, 1, 1, kInnerHeaderSize, SettingsDbInfo::kStoredSize, nullptr,
};
const RecordDescriptor kUserRecord = {
    1, 0x0A, "Users", 1, 1, 1, kInnerHeaderSize, GlobalUserEntry::kStoredSize, nullptr,
};

void EncodeOuterHeader(const OuterHeader& header, unsigned char* out) {
  std::memset(out, 0, kOuterHeaderSize);
  PutU32(out, header.kind);
  PutU16(out + 4, header.version);
  out[6] = header.flags;
  PutU64(out + 8, header.restLength);
}

OuterHeader DecodeOuterHeader(const unsigned char* in) {
  OuterHeader header;
  header.kind = GetU32(in);
  header.version = GetU16(in + 4);
  header.flags = in[6];
  header.restLength = GetU64(in + 8);
  return header;
}

void EncodeInnerHeader(const InnerHeader& header, unsigned char* out) {
  std::memset(out, 0, kInnerHeaderSize);
  PutU32(out, header.type);
  PutU16(out + 4, header.version);
  PutU64(out + 8, header.dataLength);
}

InnerHeader DecodeInnerHeader(const unsigned char* in) {
  InnerHeader header;
  header.type = GetU32(in);
  header.version = GetU16(in + 4);
  header.dataLength = GetU64(in + 8);
  return header;
}

OuterHeader MakeOuterHeader(const RecordDescriptor& kind, bool encrypted) {
  OuterHeader header;
  header.kind = kind.outerKind;
  header.version = kind.outerVersion;
  header.flags = encrypted ? kRecordEncrypted : 0;
  header.restLength = uint64_t{kind.innerHeaderSize} + kind.dataSize;
  return header;
}

InnerHeader MakeInnerHeader(const RecordDescriptor& kind) {
  InnerHeader header;
  header.type = kind.recordType;
  header.version = kind.currentVersion;
  header.dataLength = kind.dataSize;
  return header;
}

void EncodeSettings(const SettingsDbInfo& settings, unsigned char* out) {
  PutU32(out, settings.flags);
  PutU16(out + 4, settings.loginValidityHours);
  std::memcpy(out + 6, settings.rest, sizeof settings.rest);
}

SettingsDbInfo DecodeSettings(const unsigned char* in) {
  SettingsDbInfo settings{};
  settings.flags = GetU32(in);
  settings.loginValidityHours = GetU16(in + 4);
  std::memcpy(settings.rest, in + 6, sizeof settings.rest);
  return settings;
}

namespace {
constexpr size_t kUuidAt = 0;
constexpr size_t kNameAt = 16;
constexpr size_t kPasswordAt = kNameAt + GlobalUserEntry::kNameSize;
constexpr size_t kPermissionsSizeAt = kPasswordAt + GlobalUserEntry::kNameSize;
constexpr size_t kLastLoginAt = kPermissionsSizeAt + 4;
constexpr size_t kUserTypeAt = kLastLoginAt + 4;
constexpr size_t kReservedAt = kUserTypeAt + 4;
constexpr size_t kPermissionsAt = kReservedAt + 4;
static_assert(kPermissionsAt + GlobalUserEntry::kPermissionsCapacity == GlobalUserEntry::kStoredSize);
}  // namespace

void EncodeUser(const GlobalUserEntry& user, unsigned char* out) {
  std::memcpy(out + kUuidAt, user.uuid, sizeof user.uuid);
  std::memcpy(out + kNameAt, user.userName, sizeof user.userName);
  std::memcpy(out + kPasswordAt, user.password, sizeof user.password);
  PutU32(out + kPermissionsSizeAt, user.permissionsSize);
  PutU32(out + kLastLoginAt, user.lastLoginTime);
  PutU32(out + kUserTypeAt, user.userType);
  PutU32(out + kReservedAt, user.reserved);
  std::memcpy(out + kPermissionsAt, user.permissions, sizeof user.permissions);
}

GlobalUserEntry DecodeUser(const unsigned char* in) {
  GlobalUserEntry user{};
  std::memcpy(user.uuid, in + kUuidAt, sizeof user.uuid);
  std::memcpy(user.userName, in + kNameAt, sizeof user.userName);
  std::memcpy(user.password, in + kPasswordAt, sizeof user.password);
  // A name or password read from a file may lack its terminator; the store
  // compares them as C strings.
  user.userName[GlobalUserEntry::kNameSize - 1] = '\0';
  user.password[GlobalUserEntry::kNameSize - 1] = '\0';
  user.permissionsSize = GetU32(in + kPermissionsSizeAt);
  user.lastLoginTime = GetU32(in + kLastLoginAt);
  user.userType = static_cast<GlobalUserTypeEnum>(GetU32(in + kUserTypeAt));
  user.reserved = GetU32(in + kReservedAt);
  std::memcpy(user.permissions, in + kPermissionsAt, sizeof user.permissions);
  return user;
}

void StorePermissions(const ZelvanorPermissionsStruct& permissions, unsigned char* stored) {
  constexpr int rows = ZelvanorPermissionsStruct::kRows;
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < ZelvanorPermissionsStruct::kColumns; ++column) {
      PutU32(stored + 4 * (column * rows + row), permissions.value[row][column]);
    }
  }
}

void LoadPermissions(const unsigned char* stored, ZelvanorPermissionsStruct* permissions) {
  constexpr int rows = ZelvanorPermissionsStruct::kRows;
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < ZelvanorPermissionsStruct::kColumns; ++column) {
      permissions->value[row][column] = GetU32(stored + 4 * (column * rows + row));
    }
  }
}

}  // namespace ao::settings
