// A container with its key record, made from known key material, and two
// records enciphered with the RC4 key derived from it. CryptoAPI on Windows
// and OpenSSL elsewhere must derive the same key and give the same bytes,
// which are also those of the openssl command-line tool.
#include <cstring>
#include <string>

#include "aostore/aostore.h"
#include "compat/fixtures.h"
#include "genfile/known_answers.h"
#include "platform/crypto.h"

namespace ao::compat {
namespace {

constexpr char kElement[] = "element";
constexpr char kFileName[] = "keyed.dat";
constexpr char kKeyStream[] = "System";
constexpr char kKeyChild[] = "Key";
constexpr char kRecords[] = "Records";
// A key container of our own, away from the one the global store uses.
constexpr char kContainer[] = "AostoreCompatContainer";

struct Record {
  const char* name;
  const char* plain;
  const char* cipherHex;
};
constexpr Record kRecordsToKeep[] = {
    {"first", test::kFirstPlain, test::kFirstCipherHex},
    {"second", test::kSecondPlain, test::kSecondCipherHex},
};

StreamKeyBuf KnownKey() {
  StreamKeyBuf key;
  const Bytes material = test::KnownMaterial();
  std::memcpy(key.bytes, material.data(), kStreamKeyLength);
  return key;
}

// The derived key of the known material, or 0.
uint64_t DeriveKnownKey(uint64_t provider) {
  StreamKeyBuf key = KnownKey();
  const uint64_t hash = CreateHashObj(provider, key.bytes, kStreamKeyLength);
  if (hash == 0) return 0;
  const uint64_t rc4 = GetDeriveKey(provider, hash);
  platform::DestroyHash(hash);
  return rc4;
}

// text enciphered from the start of the key stream, as the library does.
Bytes Encipher(uint64_t key, const char* text) {
  Bytes bytes(text, text + std::strlen(text));
  const uint64_t duplicate = platform::DuplicateKey(key);
  const bool done = duplicate != 0 && platform::Encrypt(duplicate, bytes.data(), bytes.size());
  platform::DestroyKey(duplicate);
  return done ? bytes : Bytes();
}

Bytes ReadChild(CVastrelFile& file, const char* stream, const char* child) {
  Bytes bytes;
  if (file.OpenGenericStreams(stream, child) == 0 || file.GetChildStream() == nullptr) return bytes;
  bytes.resize(static_cast<size_t>(file.GetChildStreamSize()));
  const int64_t got = file.ReadGenericChildStream(bytes.data(), static_cast<int64_t>(bytes.size()));
  bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return bytes;
}

// The key record as it must lie on disk: format 1, a zero word, the length
// 256 and the material XORed with 0x5C.
Bytes ExpectedKeyRecord() {
  Bytes record = {1, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x01, 0, 0, 0, 0, 0, 0};
  for (unsigned char byte : test::KnownMaterial()) record.push_back(static_cast<unsigned char>(byte ^ 0x5C));
  return record;
}

}  // namespace

Problems WriteEncryptedElement(const std::string& folder) {
  Problems problems;
  std::string folderText = In(folder, kElement);
  folderText.resize(260, '\0');
  Qo::QOSTR element{260, folderText.data()};
  CVastrelFile file;
  if (!problems.Expect(OpenVastrelFile(KnownKey(), &file, &element, kFileName, kKeyStream, kKeyChild, 2) == 1,
                       "creating the keyed container")) {
    return problems;
  }
  const uint64_t provider = GetCryptContainer(kContainer);
  const uint64_t key = provider != 0 ? DeriveKnownKey(provider) : 0;
  if (problems.Expect(key != 0, "deriving the key") &&
      problems.Expect(file.OpenOrCreateGenericStream(kRecords, 0, 1) == 1, "creating the records stream")) {
    for (const Record& record : kRecordsToKeep) {
      Bytes cipher = Encipher(key, record.plain);
      problems.Expect(cipher == test::FromHex(record.cipherHex), std::string("enciphering ") + record.name);
      problems.Expect(file.WriteGenericChildStream(record.name, cipher.data(), static_cast<int32_t>(cipher.size()), 0,
                                                   0) == 1,
                      std::string("writing ") + record.name);
    }
    file.CloseStream();
  }
  platform::DestroyKey(key);
  platform::ReleaseCryptoProvider(provider);
  file.Close();
  return problems;
}

Problems VerifyEncryptedElement(const std::string& folder) {
  Problems problems;
  const std::string path = In(In(folder, kElement), kFileName);
  CVastrelFile file;
  if (!problems.Expect(file.Open(path.c_str(), 1) == 1, "opening the keyed container")) return problems;
  problems.Expect(ReadChild(file, kKeyStream, kKeyChild) == ExpectedKeyRecord(), "the key record's bytes");

  const uint64_t provider = GetCryptContainer(kContainer);
  AppDatabaseParams params;
  params.keyFileName = kFileName;
  if (problems.Expect(provider != 0 && InitEncryptionElementFromOpenFile(file, provider, &params, kKeyStream,
                                                                         kKeyChild) == 1,
                      "deriving the key from the key record")) {
    problems.Expect(Bytes(params.keyMaterial.bytes, params.keyMaterial.bytes + kStreamKeyLength) ==
                        test::KnownMaterial(),
                    "the key material read back");
    for (const Record& record : kRecordsToKeep) {
      const std::string what = std::string("record ") + record.name;
      if (!problems.Expect(file.OpenGenericStreams(kRecords, record.name) == 1, what + " missing")) continue;
      file.ReadGenericChildStream_BufferRest();
      problems.Expect(file.ReadGenericChildStream_DecryptRest(params.key) == 1, what + " not deciphered");
      const size_t length = std::strlen(record.plain);
      Bytes plain(length);
      problems.Expect(file.ReadGenericChildStream(plain.data(), static_cast<int64_t>(length)) ==
                              static_cast<int64_t>(length) &&
                          plain == Bytes(record.plain, record.plain + length),
                      what + " deciphers to other text");
    }
  }
  platform::DestroyKey(params.key);
  platform::ReleaseCryptoProvider(provider);
  file.Close();
  return problems;
}

}  // namespace ao::compat
