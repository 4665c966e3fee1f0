// The base library stand-ins: identifiers, machine identity, the machine-bound
// password and its cipher, folders and the string split.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/base.h"
#include "platform/memory.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using namespace ao::platform;

namespace {

std::vector<unsigned char> Hex(const std::string& text) {
  std::vector<unsigned char> bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::vector<unsigned char> TakeBlock(unsigned char* block, uint32_t length) {
  std::vector<unsigned char> bytes(block, block + length);
  FreeBlock(block);
  return bytes;
}

std::vector<unsigned char> Password(const std::string& identifier) {
  unsigned char* block = GenerateSystemDependentPassword(
      reinterpret_cast<const unsigned char*>(identifier.data()), static_cast<uint32_t>(identifier.size()));
  if (block == nullptr) return {};
  return TakeBlock(block, kSystemPasswordLength);
}

bool Decrypt(const std::vector<unsigned char>& cipher, const std::vector<unsigned char>& key,
             std::vector<unsigned char>* plain) {
  unsigned char* out = nullptr;
  uint32_t length = 0;
  if (!AES256Decrypt(cipher.data(), static_cast<uint32_t>(cipher.size()), key.data(), &out, &length)) return false;
  *plain = TakeBlock(out, length);
  return true;
}

std::vector<unsigned char> Encrypt(const std::vector<unsigned char>& plain, const std::vector<unsigned char>& key) {
  unsigned char* out = nullptr;
  uint32_t length = 0;
  EXPECT_TRUE(AES256Encrypt(plain.data(), static_cast<uint32_t>(plain.size()), key.data(), &out, &length));
  return out == nullptr ? std::vector<unsigned char>{} : TakeBlock(out, length);
}

}  // namespace

TEST(QoUUID, IsRandomVersion4WithCanonicalText) {
  QoUUID a{}, b{};
  ASSERT_TRUE(MakeQoUUID(&a));
  ASSERT_TRUE(MakeQoUUID(&b));
  EXPECT_NE(a, b);
  EXPECT_EQ(a[6] >> 4, 4);
  EXPECT_EQ(a[8] & 0xC0, 0x80);
  const std::string text = MakeQoUUIDString(a);
  ASSERT_EQ(text.size(), 36u);
  EXPECT_EQ(text[14], '4');

  const QoUUID fixed = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                        0xF0, 0xE1, 0xD2, 0xC3, 0xB4, 0xA5, 0x96, 0x87};
  EXPECT_EQ(MakeQoUUIDString(fixed), "01234567-89ab-cdef-f0e1-d2c3b4a59687");
}

TEST(QoCStrSplitOnChar, SplitsAtTheFirstSeparator) {
  std::string first, second;
  EXPECT_TRUE(QoCStrSplitOnChar("Users/abc/def", '/', &first, &second));
  EXPECT_EQ(first, "Users");
  EXPECT_EQ(second, "abc/def");

  EXPECT_TRUE(QoCStrSplitOnChar("/tail", '/', &first, &second));
  EXPECT_EQ(first, "");
  EXPECT_EQ(second, "tail");

  EXPECT_FALSE(QoCStrSplitOnChar("Settings", '/', &first, &second));
  EXPECT_EQ(first, "Settings");
  EXPECT_EQ(second, "");

  EXPECT_FALSE(QoCStrSplitOnChar(nullptr, '/', &first, &second));
  EXPECT_EQ(first, "");
}

TEST(SystemIdentifier, TestHookReplacesAndRestoresTheMachine) {
  uint32_t length = 0;
  SetSystemIdentifierForTesting("machine-one");
  unsigned char* id = GetSystemIdentifier(&length);
  ASSERT_NE(id, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(id), length), "machine-one");
  FreeBlock(id);

  SetSystemIdentifierForTesting(nullptr);
  id = GetSystemIdentifier(&length);
  if (fs::exists("/etc/machine-id") || fs::exists("/var/lib/dbus/machine-id")) {
    ASSERT_NE(id, nullptr);
    const std::string text(reinterpret_cast<char*>(id), length);
    EXPECT_NE(text, "machine-one");
    EXPECT_EQ(text.find('\n'), std::string::npos);
  }
  FreeBlock(id);
}

TEST(SystemDependentPassword, IsHkdfSha256WithTheLibrarySalt) {
  // HKDF-SHA256, salt "aostore machine-bound password salt v1", info
  // "aostore local settings", computed outside the library.
  EXPECT_EQ(Password("0123456789abcdef0123456789abcdef"),
            Hex("5ac9c1bd2bebd6d1168c9e4023718805e23f00506f37f0b0fd8025c1e798d435"));
  EXPECT_NE(Password("0123456789abcdef0123456789abcdeg"), Password("0123456789abcdef0123456789abcdef"));
  EXPECT_EQ(GenerateSystemDependentPassword(nullptr, 4), nullptr);
}

TEST(Aes256Gcm, DecryptsTheStandardVectors) {
  // GCM test cases 13 and 14 (zero key, zero nonce): nonce || cipher || tag.
  const std::vector<unsigned char> zeroKey(32, 0);
  std::vector<unsigned char> plain{1};
  ASSERT_TRUE(Decrypt(Hex("000000000000000000000000" "530f8afbc74536b9a963b4f1c4cb738b"), zeroKey, &plain));
  EXPECT_TRUE(plain.empty());
  ASSERT_TRUE(Decrypt(Hex("000000000000000000000000"
                          "cea7403d4d606b6e074ec5d3baf39d18"
                          "d0d1c8a799996bf0265b98b5d48ab919"),
                      zeroKey, &plain));
  EXPECT_EQ(plain, std::vector<unsigned char>(16, 0));
}

TEST(Aes256Gcm, RoundTripsWithAFreshNonceAndRefusesAlteredText) {
  const std::vector<unsigned char> key = Password("machine-one");
  const std::vector<unsigned char> plain = ao::test::Pattern(1000, 7);
  const std::vector<unsigned char> first = Encrypt(plain, key);
  const std::vector<unsigned char> second = Encrypt(plain, key);
  ASSERT_EQ(first.size(), plain.size() + kAesOverhead);
  EXPECT_NE(first, second);
  std::vector<unsigned char> back;
  ASSERT_TRUE(Decrypt(first, key, &back));
  EXPECT_EQ(back, plain);
  ASSERT_TRUE(Decrypt(second, key, &back));
  EXPECT_EQ(back, plain);

  // Another password, and every altered byte, are refused.
  const std::vector<unsigned char> cipher = Encrypt(ao::test::Pattern(40, 3), key);
  std::vector<unsigned char> untouched{0xAA};
  EXPECT_FALSE(Decrypt(cipher, Password("machine-two"), &untouched));
  for (size_t i = 0; i < cipher.size(); ++i) {
    std::vector<unsigned char> altered = cipher;
    altered[i] ^= 0x01;
    EXPECT_FALSE(Decrypt(altered, key, &untouched)) << "byte " << i;
  }
  EXPECT_EQ(untouched, std::vector<unsigned char>{0xAA});
  const std::vector<unsigned char> cut(cipher.begin(), cipher.begin() + kAesOverhead - 1);
  EXPECT_FALSE(Decrypt(cut, key, &untouched));
}

#if !defined(_WIN32)
TEST(Folders, VerifyOrCreateDirectoryMakesThePrivatePath) {
  ao::test::TempDir temp;
  const std::string deep = temp.File("a/b/c");
  EXPECT_TRUE(VerifyOrCreateDirectory(deep.c_str()));
  EXPECT_TRUE(fs::is_directory(deep));
  EXPECT_TRUE(VerifyOrCreateDirectory(deep.c_str()));
  for (const std::string& made : {temp.File("a"), temp.File("a/b"), deep}) {
    EXPECT_EQ(fs::status(made).permissions() & fs::perms::all, fs::perms::owner_all) << made;
  }

  ao::test::WriteWholeFile(temp.File("plain"), {1, 2});
  EXPECT_FALSE(VerifyOrCreateDirectory(temp.File("plain").c_str()));
  EXPECT_FALSE(VerifyOrCreateDirectory(temp.File("plain/below").c_str()));
  EXPECT_FALSE(VerifyOrCreateDirectory(""));
}

TEST(Folders, OwnerOnlyFiles) {
  ao::test::TempDir temp;
  const std::string path = temp.File("private.dat");
  ASSERT_TRUE(CreateOwnerOnlyFile(path.c_str()));
  EXPECT_FALSE(CreateOwnerOnlyFile(path.c_str()));
  const fs::perms ownerReadWrite = fs::perms::owner_read | fs::perms::owner_write;
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::all, ownerReadWrite);

  const std::string shared = temp.File("shared.dat");
  ao::test::WriteWholeFile(shared, {1});
  fs::permissions(shared, fs::perms::all);
  ASSERT_TRUE(RestrictFileToOwner(shared.c_str()));
  EXPECT_EQ(fs::status(shared).permissions() & fs::perms::all, ownerReadWrite);
}

TEST(Folders, MainModuleIsThisTestProgram) {
  std::string path;
  ASSERT_TRUE(GetMainModulePath(&path));
  EXPECT_EQ(fs::path(path).filename().string(), "aostore_platform_tests");
}
#endif

#if !defined(_WIN32)
TEST(Folders, AppDataFollowsXdgThenHome) {
  const char* savedXdg = std::getenv("XDG_DATA_HOME");
  const char* savedHome = std::getenv("HOME");
  const std::string xdg = savedXdg ? savedXdg : "";
  const std::string home = savedHome ? savedHome : "";

  std::string folder;
  setenv("XDG_DATA_HOME", "/data/xdg", 1);
  ASSERT_TRUE(GetAppDataFolder(&folder));
  EXPECT_EQ(folder, "/data/xdg");
  setenv("XDG_DATA_HOME", "relative/xdg", 1);
  setenv("HOME", "/home/someone", 1);
  ASSERT_TRUE(GetAppDataFolder(&folder));
  EXPECT_EQ(folder, "/home/someone/.local/share");
  unsetenv("XDG_DATA_HOME");
  unsetenv("HOME");
  EXPECT_FALSE(GetAppDataFolder(&folder));

  if (savedXdg) setenv("XDG_DATA_HOME", xdg.c_str(), 1);
  if (savedHome) setenv("HOME", home.c_str(), 1);
}
#endif
