// Key records and key derivation over real container files in a temporary
// folder. The key record's exact bytes and the deciphering of buffered
// children against the openssl tool's cipher texts are checked by the
// compatibility fixtures (tests/compat), which every build runs.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "genfile/known_answers.h"
#include "platform/crypto.h"
#include "support/temp_dir.h"

namespace {


constexpr char kFileName[] = "misc.dat";
constexpr uint32_t kFolderType = 1;

StreamKeyBuf KnownKey() {
  StreamKeyBuf key;
  std::vector<unsigned char> material = ao::test::KnownMaterial();
  std::memcpy(key.bytes, material.data(), kStreamKeyLength);
  return key;
}

// A Qo string over a std::string's storage.
struct QoPath {
  explicit QoPath(const std::string& text) : storage(text) {
    storage.resize(260, '\0');
    string.capacity = 260;
    string.buffer = storage.data();
  }
  std::string storage;
  Qo::QOSTR string;
};

class EncryptedElement : public ::testing::Test {
 protected:
  void SetUp() override {
    provider_ = GetCryptContainer("TestElementContainer");
    ASSERT_NE(provider_, 0u);
  }
  void TearDown() override { ao::platform::ReleaseCryptoProvider(provider_); }

  std::string Folder() const { return dir_.File("element"); }
  std::string FilePath() const { return Folder() + "/" + kFileName; }

  // Stores a 272-byte record as child "Key" of folder "System" in a new file.
  void WriteRawRecord(const std::vector<unsigned char>& record) {
    std::filesystem::create_directories(Folder());
    CVastrelFile file;
    ASSERT_EQ(file.Open(FilePath().c_str(), 2), 1);
    ASSERT_EQ(file.OpenOrCreateGenericStream("System", 0, kFolderType), 1);
    std::vector<unsigned char> copy = record;
    ASSERT_EQ(file.WriteGenericChildStream("Key", copy.data(), static_cast<int32_t>(copy.size()), 0, 0), 1);
  }

  ao::test::TempDir dir_;
  uint64_t provider_ = 0;
};

TEST_F(EncryptedElement, TheKeyRecordIsWrittenOnlyWhenTheFileIsCreated) {
  std::filesystem::create_directories(Folder());
  {
    CVastrelFile plain;
    ASSERT_EQ(plain.Open(FilePath().c_str(), 2), 1);
  }
  QoPath folder(Folder());
  CVastrelFile file;
  ASSERT_EQ(OpenVastrelFile(KnownKey(), &file, &folder.string, kFileName, "System", "Key", 2), 1);
  EXPECT_EQ(file.GetGenericStream(), nullptr);  // nothing left current
  EXPECT_EQ(file.OpenGenericStream("System", 0), 0);
  file.Close();

  // A missing folder is created; reading a missing file creates no record.
  QoPath deeper(Folder() + "/a/b");
  EXPECT_EQ(OpenVastrelFile(KnownKey(), &file, &deeper.string, kFileName, "System", "Key", 1), 0);
  EXPECT_TRUE(ao::test::FileExists(Folder() + "/a/b"));
  EXPECT_FALSE(ao::test::FileExists(Folder() + "/a/b/" + kFileName));
}

TEST_F(EncryptedElement, PathsThatDoNotFitAreRefusedNotShortened) {
  // Folder and name would make a path of 260 characters: one too many.
  std::string folderText = Folder() + "/" + std::string(260 - Folder().size() - 1 - 1 - 8, 'x');
  QoPath folder(folderText);
  CVastrelFile file;
  EXPECT_EQ(OpenVastrelFile(KnownKey(), &file, &folder.string, kFileName, "System", "Key", 2), 0);
  EXPECT_EQ(file.GetStorage(), nullptr);
  EXPECT_FALSE(ao::test::FileExists(folderText + "/" + kFileName));
  EXPECT_FALSE(ao::test::FileExists((folderText + "/" + kFileName).substr(0, 259)));

  // A Qo string without a terminator within its capacity is no text.
  char unterminated[4] = {'a', 'b', 'c', 'd'};
  Qo::QOSTR bad{4, unterminated};
  EXPECT_EQ(OpenVastrelFile(KnownKey(), &file, &bad, kFileName, "System", "Key", 2), 0);
}

TEST_F(EncryptedElement, ARecordAnnouncingOtherThan256BytesIsRejected) {
  StreamKeyBuf key = KnownKey();
  std::vector<unsigned char> record(272, 0);
  record[0] = 1;
  record[8] = 255;  // length 255
  for (size_t i = 0; i < kStreamKeyLength; ++i) record[16 + i] = key.bytes[i] ^ 0x5C;
  WriteRawRecord(record);

  AppDatabaseParams params;
  params.keyFileName = kFileName;
  CVastrelFile file;
  ASSERT_EQ(file.Open(FilePath().c_str(), 1), 1);
  EXPECT_EQ(InitEncryptionElementFromOpenFile(file, provider_, &params, "System", "Key"), 0);
  EXPECT_EQ(params.key, 0u);
  const StreamKeyBuf zero{};
  EXPECT_EQ(0, std::memcmp(params.keyMaterial.bytes, zero.bytes, kStreamKeyLength));

  // So is a missing one.
  EXPECT_EQ(InitEncryptionElementFromOpenFile(file, provider_, &params, "System", "Missing"), 0);
}

TEST_F(EncryptedElement, InitEncryptionElementMakesFreshMaterialThatLaterOpensFind) {
  QoPath folder(Folder());
  AppDatabaseParams first;
  first.keyFileName = kFileName;
  InitEncryptionElement(provider_, &first, &folder.string, "System", "Key");
  ASSERT_NE(first.key, 0u);
  EXPECT_FALSE(ao::test::FileExists(FilePath()));  // nothing stored yet
  const StreamKeyBuf zero{};
  EXPECT_NE(0, std::memcmp(first.keyMaterial.bytes, zero.bytes, kStreamKeyLength));

  CVastrelFile file;
  ASSERT_EQ(OpenVastrelFile(first.keyMaterial, &file, &folder.string, kFileName, "System", "Key", 2), 1);
  file.Close();

  AppDatabaseParams second;
  second.keyFileName = kFileName;
  InitEncryptionElement(provider_, &second, &folder.string, "System", "Key");
  ASSERT_NE(second.key, 0u);
  EXPECT_EQ(0, std::memcmp(first.keyMaterial.bytes, second.keyMaterial.bytes, kStreamKeyLength));

  // What one key enciphers, the other deciphers.
  unsigned char data[32] = "enciphered under the first key";
  uint64_t a = ao::platform::DuplicateKey(first.key);
  uint64_t b = ao::platform::DuplicateKey(second.key);
  ASSERT_TRUE(ao::platform::Encrypt(a, data, sizeof data));
  ASSERT_TRUE(ao::platform::Decrypt(b, data, sizeof data));
  EXPECT_STREQ(reinterpret_cast<char*>(data), "enciphered under the first key");
  for (uint64_t key : {a, b, first.key, second.key}) ao::platform::DestroyKey(key);
}

class AuthStream : public EncryptedElement {
 protected:
  // root/System/misc.dat with the folder "Users" holding "alice".
  void MakeUsers() {
    std::string folder = dir_.path() + "/System";
    std::filesystem::create_directories(folder);
    CVastrelFile file;
    ASSERT_EQ(file.Open((folder + "/" + kFileName).c_str(), 2), 1);
    ASSERT_EQ(file.OpenOrCreateGenericStream("Users", 0, kFolderType), 1);
    unsigned char bytes[3] = {'a', 'b', 'c'};
    ASSERT_EQ(file.WriteGenericChildStream("alice", bytes, 3, 0, 0), 1);
  }

  aoStream* Open(CVastrelFile& file, const char* path, int& isChild) {
    return OpenVastrelAuthStream(file, dir_.path().c_str(), kFileName, path, KnownKey(), "System", "System", "Key",
                                 isChild);
  }
};

TEST_F(AuthStream, OneNameGivesTheGenericStreamTwoNamesAChild) {
  MakeUsers();
  CVastrelFile file;
  int isChild = 7;
  aoStream* users = Open(file, "Users", isChild);
  ASSERT_NE(users, nullptr);
  EXPECT_EQ(isChild, 0);
  EXPECT_EQ(users, file.GetGenericStream());
  EXPECT_STREQ(users->GetName(), "Users");
  file.Close();

  aoStream* alice = Open(file, "Users/alice", isChild);
  ASSERT_NE(alice, nullptr);
  EXPECT_EQ(isChild, 1);
  EXPECT_STREQ(alice->GetName(), "alice");
  EXPECT_NE(alice, file.GetChildStream());
  unsigned char bytes[4] = {};
  EXPECT_EQ(alice->Read(bytes, 4), 3);
  EXPECT_EQ(0, std::memcmp(bytes, "abc", 3));
  alice->Release();
  file.Close();
}

TEST_F(AuthStream, MissingStreamsCloseTheFileAndAreNeverCreated) {
  MakeUsers();
  CVastrelFile file;
  int isChild = 0;
  EXPECT_EQ(Open(file, "Users/bob", isChild), nullptr);
  EXPECT_EQ(isChild, 0);
  EXPECT_EQ(file.GetStorage(), nullptr);
  EXPECT_EQ(Open(file, "Nobody", isChild), nullptr);
  EXPECT_EQ(file.GetStorage(), nullptr);

  ASSERT_EQ(file.Open((dir_.path() + "/System/" + kFileName).c_str(), 1), 1);
  EXPECT_EQ(file.OpenGenericStream("Nobody", 0), 0);
  ASSERT_EQ(file.OpenGenericStream("Users", 0), 1);
  EXPECT_EQ(file.DoesGenericChildStreamExist("bob"), 0);
}

TEST_F(AuthStream, AMissingFileIsCreatedWithItsKeyRecord) {
  CVastrelFile file;
  int isChild = 0;
  EXPECT_EQ(Open(file, "Users", isChild), nullptr);
  std::string path = dir_.path() + "/System/" + kFileName;
  ASSERT_TRUE(ao::test::FileExists(path));

  AppDatabaseParams params;
  params.keyFileName = kFileName;
  ASSERT_EQ(file.Open(path.c_str(), 1), 1);
  ASSERT_EQ(InitEncryptionElementFromOpenFile(file, provider_, &params, "System", "Key"), 1);
  EXPECT_NE(file.GetChildStream(), nullptr);  // the record's child stays open
  EXPECT_EQ(params.blockLength, 0u);
  StreamKeyBuf key = KnownKey();
  EXPECT_EQ(0, std::memcmp(params.keyMaterial.bytes, key.bytes, kStreamKeyLength));
  ao::platform::DestroyKey(params.key);
}

}  // namespace
