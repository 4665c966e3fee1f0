// The global settings store through its public interface, on real files in a
// temporary folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "settings_files.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using ao::test::ChildNames;
using ao::test::Le;
using ao::test::ReadChild;

namespace {

class GlobalSettings : public ao::test::GlobalStoreTest {
 protected:
  // Settings bits 0 and 1 allow profiles to be written.
  void AllowProfiles(uint16_t hours) { store_->UpdateSettings(1, 0, 1, 0, hours); }
  std::unique_ptr<CGlobalSettingStgFile> Reopened() {
    auto store = std::make_unique<CGlobalSettingStgFile>();
    EXPECT_EQ(store->Initialize(dataFolder_.data()), 1);
    return store;
  }
};

// A user record in clear, framed by hand: of the given record type, record
// version and data length (8480 for the current version).
std::vector<unsigned char> ClearUserRecord(uint32_t recordType, const std::string& name, const std::string& password,
                                           uint16_t version = 1, uint32_t dataLength = 8480) {
  std::vector<unsigned char> data(std::max<uint32_t>(dataLength, 8480), 0);
  data[0] = 0x77;  // a UUID of its own
  std::copy(name.begin(), name.end(), data.begin() + 16);
  std::copy(password.begin(), password.end(), data.begin() + 144);
  const uint32_t now = static_cast<uint32_t>(std::time(nullptr));
  for (int i = 0; i < 4; ++i) data[276 + i] = static_cast<unsigned char>(now >> (8 * i));
  data[280] = 2;  // asset permissions, none of them
  const unsigned char outer[16] = {0x0A, 0, 0, 0, 1, 0, 0x00, 0, 0x30, 0x21, 0, 0, 0, 0, 0, 0};
  const unsigned char inner[16] = {static_cast<unsigned char>(recordType), 0, 0, 0,
                                   static_cast<unsigned char>(version), 0, 0, 0,
                                   static_cast<unsigned char>(dataLength), static_cast<unsigned char>(dataLength >> 8),
                                   0, 0, 0, 0, 0, 0};
  std::vector<unsigned char> bytes(outer, outer + 16);
  for (unsigned char byte : inner) bytes.push_back(byte);
  bytes.insert(bytes.end(), data.begin(), data.begin() + dataLength);
  return bytes;
}

void WriteUsersChild(const std::string& path, const char* child, std::vector<unsigned char> bytes) {
  CVastrelFile file;
  ASSERT_EQ(file.Open(path.c_str(), 2), 1);
  ASSERT_EQ(file.OpenOrCreateGenericStream("Users", 0, 1), 1);
  ASSERT_EQ(file.WriteGenericChildStream(child, bytes.data(), static_cast<int32_t>(bytes.size()), 0, 0), 1);
  file.Close();
}

}  // namespace

TEST_F(GlobalSettings, FirstInitializeWritesPrivateFileWithDefaultSettings) {
#if !defined(_WIN32)
  EXPECT_EQ(fs::status(MiscPath()).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(fs::status(dataFolder_ + "/System").permissions() & fs::perms::all, fs::perms::owner_all);
#endif
  EXPECT_EQ(ReadChild(MiscPath(), "Settings", "UserInfo").size(), 16u + 112u);
  EXPECT_EQ(store_->IsAuthenticateUsersEnabled(), 0);
  EXPECT_EQ(store_->Initialize(dataFolder_.data()), 0);
}

TEST_F(GlobalSettings, SettingsSurviveReopeningAndBitsMapToTheirArguments) {
  store_->UpdateSettings(0, 1, 0, 0, 5);
  EXPECT_EQ(store_->IsAuthenticateUsersEnabled(), 1);
  auto reopened = Reopened();
  EXPECT_EQ(reopened->IsAuthenticateUsersEnabled(), 1);
  // Bit 1 comes from the third argument: with it alone, profiles stay locked.
  reopened->UpdateSettings(0, 0, 1, 0, 5);
  EXPECT_EQ(reopened->UpdateUserProfile("A", "p", nullptr, nullptr, 0), 0);
  reopened->UpdateSettings(1, 0, 1, 0, 5);
  EXPECT_EQ(reopened->UpdateUserProfile("A", "p", nullptr, nullptr, 0), 1);
}

TEST_F(GlobalSettings, LoginFoldsNameCaseButNotPasswordCase) {
  AllowProfiles(24);
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  ASSERT_EQ(store_->UpdateUserProfile("Admin", "Secret", nullptr, nullptr, 0), 1);
  GlobalUserTypeEnum type{};
  // Written, but not in memory until the next Load.
  EXPECT_EQ(store_->TestUserProfile("Admin", "Secret", &type), 0);
  EXPECT_EQ(store_->Load(), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");

  EXPECT_EQ(store_->TestUserProfile("ADMIN", "Secret", &type), 1);
  EXPECT_EQ(type, GlobalUserAssetPermissions);
  EXPECT_EQ(store_->TestUserProfile("admin", "Secret", &type), 1);
  EXPECT_EQ(store_->TestUserProfile("admin", "secret", &type), 0);
  EXPECT_EQ(store_->TestUserProfile("Admin", "Secret ", &type), 0);
  EXPECT_EQ(store_->TestUserProfile("Admins", "Secret", &type), 0);
  EXPECT_EQ(store_->TestUserProfile("Admin", nullptr, &type), 1);
  EXPECT_EQ(store_->TestUserProfile(nullptr, "Secret", &type), 1);

  auto reopened = Reopened();
  EXPECT_EQ(reopened->TestUserProfile("aDmIn", "Secret", &type), 1);
}

TEST_F(GlobalSettings, LapsedLoginsFailAndLeaveMemoryOnLoad) {
  AllowProfiles(24);
  ASSERT_EQ(store_->UpdateUserProfile("Admin", "Secret", nullptr, nullptr, 0), 1);
  store_->Load();
  GlobalUserTypeEnum type{};
  ASSERT_EQ(store_->TestUserProfile("Admin", "Secret", &type), 1);

  AllowProfiles(0);
  EXPECT_EQ(store_->TestUserProfile("Admin", "Secret", &type), 0);
  store_->Load();  // every login has lapsed: the list empties
  AllowProfiles(24);
  EXPECT_EQ(store_->TestUserProfile("Admin", "Secret", &type), 0);
  // The file deletion looks for a child named "Admin", not the UUID name of
  // the record, so the record is still there for the next Load.
  EXPECT_EQ(ChildNames(MiscPath(), "Users").size(), 1u);
  store_->Load();
  EXPECT_EQ(store_->TestUserProfile("Admin", "Secret", &type), 1);
}

TEST_F(GlobalSettings, LoginValidityUsesThirtyTwoBitArithmetic) {
  store_->UpdateSettings(0, 0, 0, 0, 1);
  GlobalUserEntry user{};
  user.lastLoginTime = 1000;
  EXPECT_EQ(store_->IsLastLoginTimeValid(4599, &user), 1);
  EXPECT_EQ(store_->IsLastLoginTimeValid(4600, &user), 0);
  user.lastLoginTime = 0xFFFFFFF0u;  // plus one hour wraps to 3584
  EXPECT_EQ(store_->IsLastLoginTimeValid(3583, &user), 1);
  EXPECT_EQ(store_->IsLastLoginTimeValid(0xFFFFFFF5u, &user), 0);
}

TEST_F(GlobalSettings, UpdateUserProfileGuards) {
  store_->UpdateSettings(1, 1, 0, 1, 24);
  EXPECT_EQ(store_->UpdateUserProfile("Admin", "Secret", nullptr, nullptr, 0), 0);
  EXPECT_TRUE(ChildNames(MiscPath(), "Users").empty());

  AllowProfiles(24);
  std::vector<unsigned char> assets = ao::test::Pattern(8193, 5);
  EXPECT_EQ(store_->UpdateUserProfile("Admin", "Secret", nullptr, assets.data(), 8193), 0);
  EXPECT_TRUE(ChildNames(MiscPath(), "Users").empty());
  EXPECT_EQ(store_->UpdateUserProfile("Admin", "Secret", nullptr, assets.data(), 8192), 1);
  EXPECT_EQ(ChildNames(MiscPath(), "Users").size(), 1u);
}

TEST_F(GlobalSettings, PermissionsOfTheCurrentUser) {
  AllowProfiles(24);
  ZelvanorPermissionsStruct permissions = ao::test::NumberedPermissions();
  std::vector<unsigned char> assets = ao::test::Pattern(100, 9);
  ASSERT_EQ(store_->UpdateUserProfile("Boss", "b", &permissions, nullptr, 0), 1);
  ASSERT_EQ(store_->UpdateUserProfile("Viewer", "v", nullptr, assets.data(), 100), 1);
  store_->Load();

  GlobalUserTypeEnum type{};
  ASSERT_EQ(store_->TestUserProfile("boss", "b", &type), 1);
  EXPECT_EQ(type, GlobalUserZelvanorPermissions);
  ZelvanorPermissionsStruct out{};
  // Filled, and still 0: callers look at the user's type.
  EXPECT_EQ(store_->GetZelvanorPermissions(&out), 0);
  EXPECT_EQ(std::memcmp(&out, &permissions, sizeof out), 0);
  unsigned char* copy = nullptr;
  uint32_t length = 0;
  EXPECT_EQ(store_->GetAssetPermissions(&copy, &length), 0);

  ASSERT_EQ(store_->TestUserProfile("viewer", "v", &type), 1);
  EXPECT_EQ(type, GlobalUserAssetPermissions);
  ASSERT_EQ(store_->GetAssetPermissions(&copy, &length), 1);
  EXPECT_EQ(std::vector<unsigned char>(copy, copy + length), assets);
  aoFreeBuffer(copy);
  ZelvanorPermissionsStruct untouched{};
  EXPECT_EQ(store_->GetZelvanorPermissions(&untouched), 0);
  EXPECT_EQ(untouched.value[1][0], 0u);
}

TEST_F(GlobalSettings, UpdatingAUserRewritesItsOwnRecord) {
  AllowProfiles(24);
  ASSERT_EQ(store_->UpdateUserProfile("Admin", "Secret", nullptr, nullptr, 0), 1);
  store_->Load();
  ASSERT_EQ(store_->UpdateUserProfile("ADMIN", "Changed", nullptr, nullptr, 0), 1);
  EXPECT_EQ(ChildNames(MiscPath(), "Users").size(), 1u);
  GlobalUserTypeEnum type{};
  EXPECT_EQ(store_->TestUserProfile("Admin", "Changed", &type), 1);
  auto reopened = Reopened();
  EXPECT_EQ(reopened->TestUserProfile("Admin", "Secret", &type), 0);
  EXPECT_EQ(reopened->TestUserProfile("Admin", "Changed", &type), 1);
}

TEST_F(GlobalSettings, LoadDeletesUnreadableUserRecordsAndReadsClearOnes) {
  AllowProfiles(24);
  ASSERT_EQ(store_->UpdateUserProfile("Admin", "Secret", nullptr, nullptr, 0), 1);
  WriteUsersChild(MiscPath(), "wrongtype", ClearUserRecord(2, "Intruder", "x"));
  WriteUsersChild(MiscPath(), "stub", {0x0A, 0, 0, 0, 1});
  WriteUsersChild(MiscPath(), "plain", ClearUserRecord(1, "PlainUser", "pw"));
  ASSERT_EQ(ChildNames(MiscPath(), "Users").size(), 4u);

  store_->Load();
  std::vector<std::string> names = ChildNames(MiscPath(), "Users");
  EXPECT_EQ(names.size(), 2u);
  EXPECT_EQ(std::count(names.begin(), names.end(), "wrongtype"), 0);
  EXPECT_EQ(std::count(names.begin(), names.end(), "stub"), 0);
  EXPECT_EQ(std::count(names.begin(), names.end(), "plain"), 1);
  GlobalUserTypeEnum type{};
  EXPECT_EQ(store_->TestUserProfile("intruder", "x", &type), 0);
  EXPECT_EQ(store_->TestUserProfile("plainuser", "pw", &type), 1);
  EXPECT_EQ(store_->TestUserProfile("admin", "Secret", &type), 1);
}

TEST_F(GlobalSettings, RecordVersionRules) {
  AllowProfiles(24);
  // Newer: more data than this version knows; its first 8480 bytes are read.
  WriteUsersChild(MiscPath(), "newer", ClearUserRecord(1, "Newer", "n", 2, 8480 + 100));
  // Older without a converter: a shorter record is read as far as it goes.
  WriteUsersChild(MiscPath(), "older", ClearUserRecord(1, "Older", "o", 0, 300));
  // Current version: the length must be exact.
  WriteUsersChild(MiscPath(), "short", ClearUserRecord(1, "Short", "s", 1, 8479));
  WriteUsersChild(MiscPath(), "long", ClearUserRecord(1, "Long", "l", 1, 8481));
  store_->Load();

  GlobalUserTypeEnum type{};
  EXPECT_EQ(store_->TestUserProfile("newer", "n", &type), 1);
  EXPECT_EQ(store_->TestUserProfile("older", "o", &type), 1);
  EXPECT_EQ(store_->TestUserProfile("short", "s", &type), 0);
  EXPECT_EQ(store_->TestUserProfile("long", "l", &type), 0);
  std::vector<std::string> names = ChildNames(MiscPath(), "Users");
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"newer", "older"}));
}
