// The bytes of the global settings file's records, deciphered here with an
// RC4 of the test's own and compared field by field.
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "settings_files.h"

using ao::test::Le;
using ao::test::ReadChild;

namespace {

class StoredRecords : public ao::test::GlobalStoreTest {
 protected:
  // The record of stream/child with everything after the outer header
  // deciphered.
  std::vector<unsigned char> Deciphered(const char* stream, const char* child) {
    std::vector<unsigned char> record = ReadChild(MiscPath(), stream, child);
    const std::vector<unsigned char> key = ao::test::FileRc4Key(MiscPath());
    EXPECT_EQ(key.size(), 16u);
    if (record.size() > 16 && key.size() == 16) ao::test::Rc4(key, record.data() + 16, record.size() - 16);
    return record;
  }
};

}  // namespace

TEST_F(StoredRecords, SettingsRecordFraming) {
  store_->UpdateSettings(1, 1, 0, 1, 0x1234);
  const std::vector<unsigned char> record = Deciphered("Settings", "UserInfo");
  ASSERT_EQ(record.size(), 16u + 16u + 96u);
  const std::vector<unsigned char> headers = {
      0x0B, 0, 0, 0, 1, 0, 0x01, 0, 112, 0, 0, 0, 0, 0, 0, 0,  // outer: kind, version, encrypted, rest
      0x02, 0, 0, 0, 1, 0, 0, 0, 96, 0, 0, 0, 0, 0, 0, 0,      // inner: type, version, data length
  };
  EXPECT_EQ(std::vector<unsigned char>(record.begin(), record.begin() + 32), headers);
  // Flags: bits 0, 2 and 3; then the hours; then zeros.
  const std::vector<unsigned char> data = {0x0D, 0, 0, 0, 0x34, 0x12};
  EXPECT_EQ(std::vector<unsigned char>(record.begin() + 32, record.begin() + 38), data);
  EXPECT_EQ(std::vector<unsigned char>(record.begin() + 38, record.end()), std::vector<unsigned char>(90, 0));
}

TEST_F(StoredRecords, UserRecordFraming) {
  store_->UpdateSettings(1, 0, 1, 0, 24);
  ZelvanorPermissionsStruct permissions = ao::test::NumberedPermissions();
  const uint32_t before = static_cast<uint32_t>(std::time(nullptr));
  ASSERT_EQ(store_->UpdateUserProfile("Admin", "Secret", &permissions, nullptr, 0), 1);
  const uint32_t after = static_cast<uint32_t>(std::time(nullptr));

  const std::vector<std::string> names = ao::test::ChildNames(MiscPath(), "Users");
  ASSERT_EQ(names.size(), 1u);
  const std::vector<unsigned char> record = Deciphered("Users", names[0].c_str());
  ASSERT_EQ(record.size(), 16u + 16u + 8480u);
  const std::vector<unsigned char> headers = {
      0x0A, 0, 0, 0, 1, 0, 0x01, 0, 0x30, 0x21, 0, 0, 0, 0, 0, 0,  // rest 8496
      0x01, 0, 0, 0, 1, 0, 0, 0, 0x20, 0x21, 0, 0, 0, 0, 0, 0,     // data 8480
  };
  EXPECT_EQ(std::vector<unsigned char>(record.begin(), record.begin() + 32), headers);

  const size_t data = 32;
  // The UUID's text names the child.
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += digits[record[data + i] >> 4];
    text += digits[record[data + i] & 0x0F];
  }
  EXPECT_EQ(text, names[0]);
  EXPECT_EQ(record[data + 6] >> 4, 4);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&record[data + 16])), "Admin");
  EXPECT_EQ(record[data + 16 + 127], 0);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&record[data + 144])), "Secret");
  EXPECT_EQ(Le(record, data + 272, 4), 16u);  // permissions size of type 1
  const uint64_t lastLogin = Le(record, data + 276, 4);
  EXPECT_GE(lastLogin, before);
  EXPECT_LE(lastLogin, after);
  EXPECT_EQ(Le(record, data + 280, 4), 1u);  // user type
  EXPECT_EQ(Le(record, data + 284, 4), 0u);  // reserved
  // Column by column: stored word (column * 64 + row) is value[row][column].
  const size_t words = data + 288;
  EXPECT_EQ(Le(record, words + 4 * 0, 4), 0u);
  EXPECT_EQ(Le(record, words + 4 * 1, 4), 100u);     // row 1, column 0
  EXPECT_EQ(Le(record, words + 4 * 64, 4), 1u);      // row 0, column 1
  EXPECT_EQ(Le(record, words + 4 * (15 * 64 + 63), 4), 6315u);
  EXPECT_EQ(Le(record, words + 4096, 4), 0u);        // nothing past the structure
}
