// The global settings store's answers from memory: logins, rights, and the
// updates of users and settings that are written back at once.
#include <cstring>
#include <memory>

#include "aostore/settings.h"
#include "platform/base.h"
#include "platform/memory.h"
#include "settings/login_time.h"
#include "settings/settings_record.h"

namespace {

constexpr size_t kNameCompared = GlobalUserEntry::kNameSize;
// Flag bits of SettingsDbInfo::flags.
constexpr uint32_t kFlagBit0 = 0x1;
constexpr uint32_t kFlagBit1 = 0x2;
constexpr uint32_t kFlagAuthenticateUsers = 0x4;
constexpr uint32_t kFlagBit3 = 0x8;

char FoldAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// User names match regardless of the case of ASCII letters, over at most
// the stored name's length.
bool NamesMatch(const char* stored, const char* name) {
  for (size_t i = 0; i < kNameCompared; ++i) {
    if (FoldAscii(stored[i]) != FoldAscii(name[i])) return false;
    if (stored[i] == '\0') return true;
  }
  return true;
}

bool PasswordsMatch(const char* stored, const char* password) {
  return std::strncmp(stored, password, kNameCompared) == 0;
}

// Copies at most 127 characters and clears the rest of the field, so that
// nothing of an older, longer value is stored.
void CopyField(char (&field)[GlobalUserEntry::kNameSize], const char* text) {
  std::memset(field, 0, sizeof field);
  if (text != nullptr) std::strncpy(field, text, sizeof field - 1);
}

void SetBit(uint32_t& flags, uint32_t bit, int value) {
  flags = (value & 1) != 0 ? (flags | bit) : (flags & ~bit);
}

// Puts the rights into the entry: the permissions structure when given,
// else the asset block.
void SetRights(GlobalUserEntry& user, const ZelvanorPermissionsStruct* permissions,
               const unsigned char* assetPermissions, int assetLength) {
  std::memset(user.permissions, 0, sizeof user.permissions);
  if (permissions != nullptr) {
    user.permissionsSize = ao::settings::kZelvanorPermissionsSize;
    ao::settings::StorePermissions(*permissions, user.permissions);
    user.userType = GlobalUserZelvanorPermissions;
  } else {
    user.permissionsSize = static_cast<uint32_t>(assetLength);
    if (assetLength > 0) std::memcpy(user.permissions, assetPermissions, static_cast<size_t>(assetLength));
    user.userType = GlobalUserAssetPermissions;
  }
}

}  // namespace

GlobalUserEntry* CGlobalSettingStgFile::FindUser(const char* name) {
  for (GlobalUserEntry& user : m_users) {
    // A null name stands for the first user, as the program requires.
    if (name == nullptr || NamesMatch(user.userName, name)) return &user;
  }
  return nullptr;
}

int CGlobalSettingStgFile::IsLastLoginTimeValid(uint32_t now, GlobalUserEntry* user) {
  if (user == nullptr) return 0;
  return ao::settings::LoginStillValid(now, m_settings.loginValidityHours, user->lastLoginTime) ? 1 : 0;
}

int CGlobalSettingStgFile::IsAuthenticateUsersEnabled() {
  return (m_settings.flags & kFlagAuthenticateUsers) != 0 ? 1 : 0;
}

int CGlobalSettingStgFile::TestUserProfile(const char* name, const char* password, GlobalUserTypeEnum* type) {
  const uint32_t now = ao::settings::CurrentTime32();
  std::lock_guard<std::mutex> listLock(m_userListMutex);
  GlobalUserEntry* user = FindUser(name);
  if (user == nullptr || IsLastLoginTimeValid(now, user) == 0) return 0;
  if (password != nullptr && !PasswordsMatch(user->password, password)) return 0;
  m_currentUser = *user;
  if (type != nullptr) *type = user->userType;
  return 1;
}

int CGlobalSettingStgFile::UpdateSettings(int bit0, int bit2, int bit1, int bit3, uint16_t hours) {
  std::lock_guard<std::mutex> settingsLock(m_settingsMutex);
  SetBit(m_settings.flags, kFlagBit0, bit0);
  SetBit(m_settings.flags, kFlagAuthenticateUsers, bit2);
  SetBit(m_settings.flags, kFlagBit1, bit1);
  SetBit(m_settings.flags, kFlagBit3, bit3);
  m_settings.loginValidityHours = hours;
  if (SaveSettingsInfo(m_settingsSaved, &m_settings) != 0) m_settingsSaved = 1;
  return 1;
}

int CGlobalSettingStgFile::UpdateUserProfile(const char* name, const char* password,
                                             ZelvanorPermissionsStruct* permissions, unsigned char* assetPermissions,
                                             int assetLength) {
  const uint32_t required = kFlagBit0 | kFlagBit1;
  if ((m_settings.flags & required) != required || assetLength > GlobalUserEntry::kPermissionsCapacity) return 0;
  if (permissions == nullptr && (assetLength < 0 || (assetLength > 0 && assetPermissions == nullptr))) return 0;

  std::lock_guard<std::mutex> listLock(m_userListMutex);
  const uint32_t now = ao::settings::CurrentTime32();
  GlobalUserEntry* user = FindUser(name);
  if (user != nullptr) {
    if (password != nullptr && !PasswordsMatch(user->password, password)) CopyField(user->password, password);
    SetRights(*user, permissions, assetPermissions, assetLength);
    user->lastLoginTime = now;
    return SaveUserInfo(0, user);
  }

  // A new user is written only; the list learns of it at the next Load.
  auto fresh = std::make_unique<GlobalUserEntry>();
  ao::platform::QoUUID uuid;
  if (!ao::platform::MakeQoUUID(&uuid)) return 0;
  std::memcpy(fresh->uuid, uuid.data(), uuid.size());
  CopyField(fresh->userName, name);
  CopyField(fresh->password, password);
  fresh->lastLoginTime = now;
  SetRights(*fresh, permissions, assetPermissions, assetLength);
  return SaveUserInfo(1, fresh.get());
}

int CGlobalSettingStgFile::GetZelvanorPermissions(ZelvanorPermissionsStruct* out) {
  if (out != nullptr && m_currentUser.userType == GlobalUserZelvanorPermissions && m_currentUser.permissionsSize >= 1) {
    ao::settings::LoadPermissions(m_currentUser.permissions, out);
  }
  // Callers learn of the copy from the current user's type, never from here.
  return 0;
}

int CGlobalSettingStgFile::GetAssetPermissions(unsigned char** out, uint32_t* length) {
  if (out == nullptr || length == nullptr) return 0;
  const uint32_t size = m_currentUser.permissionsSize;
  // The size came from the file: never copy more than the entry holds.
  if (m_currentUser.userType != GlobalUserAssetPermissions || size < 1 ||
      size > GlobalUserEntry::kPermissionsCapacity) {
    return 0;
  }
  auto* copy = static_cast<unsigned char*>(ao::platform::AllocZeroed(size));
  if (copy == nullptr) return 0;
  std::memcpy(copy, m_currentUser.permissions, size);
  *out = copy;
  *length = size;
  return 1;
}
