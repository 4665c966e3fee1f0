// The crypto backend against published known answers and against bytes
// computed outside the library (openssl dgst/enc on the command line).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "genfile/known_answers.h"
#include "platform/crypto.h"

namespace {

using ao::platform::CryptoHandle;
using ao::platform::kMd5DigestSize;
using ao::test::FromHex;

std::vector<unsigned char> Digest(CryptoHandle hash) {
  unsigned char digest[kMd5DigestSize] = {};
  EXPECT_TRUE(ao::platform::GetHashValue(hash, digest));
  return std::vector<unsigned char>(digest, digest + kMd5DigestSize);
}

class CryptoBackend : public ::testing::Test {
 protected:
  void SetUp() override { provider_ = ao::platform::AcquireCryptoProvider("TestContainer"); ASSERT_NE(provider_, 0u); }
  void TearDown() override { EXPECT_TRUE(ao::platform::ReleaseCryptoProvider(provider_)); }

  CryptoHandle Key(const std::string& hex) {
    unsigned char key[kMd5DigestSize];
    std::memcpy(key, FromHex(hex).data(), kMd5DigestSize);
    return ao::platform::ImportRc4Key(provider_, key);
  }

  CryptoHandle provider_ = 0;
};

TEST_F(CryptoBackend, Md5MatchesTheRfc1321TestSuite) {
  const struct {
    const char* message;
    const char* digest;
  } kCases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& c : kCases) {
    CryptoHandle hash = ao::platform::CreateMd5Hash(provider_);
    ASSERT_NE(hash, 0u);
    // Fed in two pieces: the digest must not depend on how data arrives.
    size_t half = std::strlen(c.message) / 2;
    EXPECT_TRUE(ao::platform::HashData(hash, c.message, half));
    EXPECT_TRUE(ao::platform::HashData(hash, c.message + half, std::strlen(c.message) - half));
    EXPECT_EQ(Digest(hash), FromHex(c.digest)) << '"' << c.message << '"';
    EXPECT_TRUE(ao::platform::DestroyHash(hash));
  }
}

TEST_F(CryptoBackend, Rc4KeyStreamMatchesRfc6229For128BitKeys) {
  const struct {
    const char* key;
    size_t offset;
    const char* stream;
  } kCases[] = {
      {"0102030405060708090a0b0c0d0e0f10", 0, "9ac7cc9a609d1ef7b2932899cde41b97"},
      {"0102030405060708090a0b0c0d0e0f10", 16, "5248c4959014126a6e8a84f11d1a9e1c"},
      {"0102030405060708090a0b0c0d0e0f10", 240, "065902e4b620f6cc36c8589f66432f2b"},
      {"0102030405060708090a0b0c0d0e0f10", 256, "d39d566bc6bce3010768151549f3873f"},
      {"0102030405060708090a0b0c0d0e0f10", 1520, "b40110c4190b5622a96116b0017ed297"},
      {"0102030405060708090a0b0c0d0e0f10", 4080, "ff38265c1642c1abe8d3c2fe5e572bf8"},
      {"0102030405060708090a0b0c0d0e0f10", 4096, "a36a4c301ae8ac13610ccbc12256cacc"},
      {"ebb46227c6cc8b37641910833222772a", 0, "720c94b63edf44e131d950ca211a5a30"},
      {"ebb46227c6cc8b37641910833222772a", 16, "c366fdeacf9ca80436be7c358424d20b"},
      {"ebb46227c6cc8b37641910833222772a", 752, "3cb89993b07b0ced93de13d2a11013ac"},
      {"ebb46227c6cc8b37641910833222772a", 2048, "5865fdbb5b48064104e830b380f2aede"},
      {"ebb46227c6cc8b37641910833222772a", 4096, "5bbeb4787d59e5373fdbea6c6f75c29b"},
  };
  for (const auto& c : kCases) {
    CryptoHandle key = Key(c.key);
    ASSERT_NE(key, 0u);
    // Enciphering zeros yields the key stream; take it in uneven pieces so
    // that the stream has to carry on across calls.
    std::vector<unsigned char> stream(c.offset + 16, 0);
    size_t first = stream.size() / 3;
    ASSERT_TRUE(ao::platform::Encrypt(key, stream.data(), first));
    ASSERT_TRUE(ao::platform::Encrypt(key, stream.data() + first, stream.size() - first));
    EXPECT_EQ(std::vector<unsigned char>(stream.begin() + static_cast<long>(c.offset), stream.end()), FromHex(c.stream))
        << c.key << " at " << c.offset;
    EXPECT_TRUE(ao::platform::DestroyKey(key));
  }
}

TEST_F(CryptoBackend, KeyDerivedFromHashedMaterialDecryptsIndependentCiphertext) {
  std::vector<unsigned char> material = ao::test::KnownMaterial();
  CryptoHandle hash = ao::platform::CreateMd5Hash(provider_);
  ASSERT_TRUE(ao::platform::HashData(hash, material.data(), material.size()));
  CryptoHandle key = ao::platform::DeriveRc4Key(provider_, hash);
  ASSERT_NE(key, 0u);
  EXPECT_EQ(Digest(hash), FromHex(ao::test::kMaterialDigestHex));
  // Deriving finished the hash, as the system service does.
  EXPECT_FALSE(ao::platform::HashData(hash, "x", 1));
  EXPECT_TRUE(ao::platform::DestroyHash(hash));

  uint32_t blockBits = 99;
  EXPECT_TRUE(ao::platform::GetKeyBlockLength(key, &blockBits));
  EXPECT_EQ(blockBits, 0u);

  std::vector<unsigned char> data = FromHex(ao::test::kFirstCipherHex);
  ASSERT_TRUE(ao::platform::Decrypt(key, data.data(), data.size()));
  EXPECT_EQ(std::string(data.begin(), data.end()), ao::test::kFirstPlain);
  EXPECT_TRUE(ao::platform::DestroyKey(key));
}

TEST_F(CryptoBackend, DuplicateRestartsTheKeyStreamAndLeavesTheOriginalWhereItWas) {
  CryptoHandle key = Key("0102030405060708090a0b0c0d0e0f10");
  unsigned char first[16] = {};
  ASSERT_TRUE(ao::platform::Encrypt(key, first, sizeof first));

  CryptoHandle duplicate = ao::platform::DuplicateKey(key);
  ASSERT_NE(duplicate, 0u);
  unsigned char again[16] = {};
  ASSERT_TRUE(ao::platform::Encrypt(duplicate, again, sizeof again));
  EXPECT_EQ(0, std::memcmp(first, again, sizeof first));

  unsigned char next[16] = {};
  ASSERT_TRUE(ao::platform::Encrypt(key, next, sizeof next));
  EXPECT_EQ(std::vector<unsigned char>(next, next + 16), FromHex("5248c4959014126a6e8a84f11d1a9e1c"));

  // Destroying the duplicate does not disturb the original.
  EXPECT_TRUE(ao::platform::DestroyKey(duplicate));
  EXPECT_TRUE(ao::platform::Encrypt(key, next, sizeof next));
  EXPECT_TRUE(ao::platform::DestroyKey(key));
}

TEST_F(CryptoBackend, StaleZeroAndMismatchedHandlesAreRefused) {
  CryptoHandle hash = ao::platform::CreateMd5Hash(provider_);
  CryptoHandle key = ao::platform::DeriveRc4Key(provider_, hash);
  ASSERT_NE(key, 0u);
  unsigned char byte = 0;

  // A handle of one kind is no use as another.
  EXPECT_FALSE(ao::platform::DestroyKey(hash));
  EXPECT_FALSE(ao::platform::DestroyHash(key));
  EXPECT_FALSE(ao::platform::Encrypt(hash, &byte, 1));
  EXPECT_EQ(ao::platform::DeriveRc4Key(key, hash), 0u);
  EXPECT_EQ(ao::platform::CreateMd5Hash(key), 0u);
  EXPECT_EQ(ao::platform::DuplicateKey(provider_), 0u);

  EXPECT_TRUE(ao::platform::DestroyHash(hash));
  EXPECT_TRUE(ao::platform::DestroyKey(key));
  // Given back once, gone for good.
  EXPECT_FALSE(ao::platform::DestroyHash(hash));
  EXPECT_FALSE(ao::platform::DestroyKey(key));
  EXPECT_FALSE(ao::platform::Decrypt(key, &byte, 1));
  EXPECT_EQ(ao::platform::DuplicateKey(key), 0u);
  uint32_t bits = 0;
  EXPECT_FALSE(ao::platform::GetKeyBlockLength(key, &bits));

  EXPECT_EQ(ao::platform::CreateMd5Hash(0), 0u);
  EXPECT_EQ(ao::platform::DuplicateKey(0), 0u);
}

TEST(CryptoRandom, DrawsAreNotRepeatedOrBlank) {
  unsigned char a[32] = {};
  unsigned char b[32] = {};
  ASSERT_TRUE(ao::platform::RandomBytes(a, sizeof a));
  ASSERT_TRUE(ao::platform::RandomBytes(b, sizeof b));
  EXPECT_NE(0, std::memcmp(a, b, sizeof a));
  const unsigned char zeros[32] = {};
  EXPECT_NE(0, std::memcmp(a, zeros, sizeof a));
  EXPECT_FALSE(ao::platform::RandomBytes(nullptr, 4));
}

}  // namespace
