// The global store in a fresh folder, and its file read from outside the
// store: its streams through the public file class, and its records
// deciphered by a small RC4 written here, independently of the library's.
#ifndef AOSTORE_TESTS_SETTINGS_SETTINGS_FILES_H
#define AOSTORE_TESTS_SETTINGS_SETTINGS_FILES_H

#include "platform/crypto.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "aostore/aostore.h"
#include "aostore/stream.h"
#include "aostore/vastrel_file.h"
#include "support/temp_dir.h"

namespace ao::test {

inline uint64_t Le(const std::vector<unsigned char>& bytes, size_t at, int width) {
  uint64_t value = 0;
  for (int i = width - 1; i >= 0; --i) value = (value << 8) | bytes.at(at + static_cast<size_t>(i));
  return value;
}

// The whole child stream, or nothing when it is missing.
inline std::vector<unsigned char> ReadChild(const std::string& path, const char* stream, const char* child) {
  CVastrelFile file;
  std::vector<unsigned char> bytes;
  if (file.Open(path.c_str(), 1) && file.OpenGenericStreams(stream, child) && file.GetChildStream() != nullptr) {
    bytes.resize(static_cast<size_t>(file.GetChildStreamSize()));
    const int64_t got = file.ReadGenericChildStream(bytes.data(), static_cast<int64_t>(bytes.size()));
    bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
  }
  file.Close();
  return bytes;
}

inline std::vector<std::string> ChildNames(const std::string& path, const char* stream) {
  CVastrelFile file;
  std::vector<std::string> names;
  if (file.Open(path.c_str(), 1) && file.OpenGenericStream(stream, 0)) file.GetGenericStream()->EnumStreams(names);
  file.Close();
  return names;
}

// The RC4 key of the file: MD5 of the unscrambled key material of the key
// record "System"/"Key".
inline std::vector<unsigned char> FileRc4Key(const std::string& path) {
  std::vector<unsigned char> record = ReadChild(path, "System", "Key");
  if (record.size() != 272) return {};
  std::vector<unsigned char> material(record.begin() + 16, record.end());
  for (unsigned char& byte : material) byte ^= 0x5C;
  namespace crypto = ao::platform;
  const crypto::CryptoHandle provider = crypto::AcquireCryptoProvider("SettingsTest");
  const crypto::CryptoHandle hash = crypto::CreateMd5Hash(provider);
  unsigned char digest[crypto::kMd5DigestSize] = {};
  crypto::HashData(hash, material.data(), material.size());
  crypto::GetHashValue(hash, digest);
  crypto::DestroyHash(hash);
  crypto::ReleaseCryptoProvider(provider);
  return {digest, digest + sizeof digest};
}

// A global store initialised in a fresh data folder for each test.
class GlobalStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dataFolder_ = temp_.File("data");
    ASSERT_EQ(store_->Initialize(dataFolder_.data()), 1);
  }
  std::string MiscPath() const { return dataFolder_ + "/System/misc.dat"; }

  TempDir temp_;
  std::string dataFolder_;
  std::unique_ptr<CGlobalSettingStgFile> store_ = std::make_unique<CGlobalSettingStgFile>();
};

// Permissions whose every word tells its row and column: row * 100 + column.
inline ZelvanorPermissionsStruct NumberedPermissions() {
  ZelvanorPermissionsStruct permissions{};
  for (int row = 0; row < ZelvanorPermissionsStruct::kRows; ++row)
    for (int column = 0; column < ZelvanorPermissionsStruct::kColumns; ++column)
      permissions.value[row][column] = static_cast<uint32_t>(row * 100 + column);
  return permissions;
}

// RC4 from the start of the key stream; enciphers and deciphers alike.
inline void Rc4(const std::vector<unsigned char>& key, unsigned char* data, size_t length) {
  unsigned char state[256];
  for (int i = 0; i < 256; ++i) state[i] = static_cast<unsigned char>(i);
  for (int i = 0, j = 0; i < 256; ++i) {
    j = (j + state[i] + key[static_cast<size_t>(i) % key.size()]) & 0xFF;
    std::swap(state[i], state[j]);
  }
  for (size_t n = 0, i = 0, j = 0; n < length; ++n) {
    i = (i + 1) & 0xFF;
    j = (j + state[i]) & 0xFF;
    std::swap(state[i], state[j]);
    data[n] ^= state[(state[i] + state[j]) & 0xFF];
  }
}

}  // namespace ao::test

#endif  // AOSTORE_TESTS_SETTINGS_SETTINGS_FILES_H
