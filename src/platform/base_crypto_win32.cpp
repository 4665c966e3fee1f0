// The base library's cryptography on Windows CNG (bcrypt). Byte for byte the
// same as the OpenSSL build: the same HKDF password for the same identifier,
// and AES-256-GCM output laid out as nonce, cipher text, tag.
#if defined(_WIN32)

#include <windows.h>
// windows.h leaves this out under WIN32_LEAN_AND_MEAN.
#include <bcrypt.h>

#include <climits>
#include <cstring>
#include <vector>

#include "platform/base.h"
#include "platform/crypto.h"
#include "platform/memory.h"
#include "platform/secret_block.h"

namespace ao::platform {
namespace {

// Fixed salt of the machine-bound password. Changing it makes every value
// written by earlier builds unreadable.
constexpr unsigned char kPasswordSalt[] = "aostore machine-bound password salt v1";
constexpr unsigned char kPasswordInfo[] = "aostore local settings";
constexpr size_t kSha256Length = 32;

// HKDF-SHA256 produces the whole password in its first output block.
static_assert(kSystemPasswordLength <= kSha256Length);

class Algorithm {
 public:
  Algorithm(const wchar_t* name, ULONG flags) {
    if (!BCRYPT_SUCCESS(::BCryptOpenAlgorithmProvider(&handle_, name, nullptr, flags))) handle_ = nullptr;
  }
  ~Algorithm() {
    if (handle_ != nullptr) ::BCryptCloseAlgorithmProvider(handle_, 0);
  }
  Algorithm(const Algorithm&) = delete;
  Algorithm& operator=(const Algorithm&) = delete;
  BCRYPT_ALG_HANDLE get() const { return handle_; }

 private:
  BCRYPT_ALG_HANDLE handle_ = nullptr;
};

class SymmetricKey {
 public:
  SymmetricKey(BCRYPT_ALG_HANDLE algorithm, const unsigned char* secret, ULONG length) {
    if (algorithm == nullptr ||
        !BCRYPT_SUCCESS(::BCryptGenerateSymmetricKey(algorithm, &handle_, nullptr, 0, const_cast<PUCHAR>(secret),
                                                     length, 0))) {
      handle_ = nullptr;
    }
  }
  ~SymmetricKey() {
    if (handle_ != nullptr) ::BCryptDestroyKey(handle_);
  }
  SymmetricKey(const SymmetricKey&) = delete;
  SymmetricKey& operator=(const SymmetricKey&) = delete;
  BCRYPT_KEY_HANDLE get() const { return handle_; }

 private:
  BCRYPT_KEY_HANDLE handle_ = nullptr;
};

struct Piece {
  const unsigned char* data;
  size_t length;
};

// HMAC-SHA256 of the pieces, one after the other, under key.
bool HmacSha256(const unsigned char* key, size_t keyLength, std::initializer_list<Piece> pieces,
                unsigned char (&mac)[kSha256Length]) {
  Algorithm hmac(BCRYPT_SHA256_ALGORITHM, BCRYPT_ALG_HANDLE_HMAC_FLAG);
  if (hmac.get() == nullptr || keyLength > ULONG_MAX) return false;
  BCRYPT_HASH_HANDLE hash = nullptr;
  if (!BCRYPT_SUCCESS(::BCryptCreateHash(hmac.get(), &hash, nullptr, 0, const_cast<PUCHAR>(key),
                                         static_cast<ULONG>(keyLength), 0))) {
    return false;
  }
  bool done = true;
  for (const Piece& piece : pieces) {
    done = done && piece.length <= ULONG_MAX &&
           BCRYPT_SUCCESS(::BCryptHashData(hash, const_cast<PUCHAR>(piece.data), static_cast<ULONG>(piece.length), 0));
  }
  done = done && BCRYPT_SUCCESS(::BCryptFinishHash(hash, mac, kSha256Length, 0));
  ::BCryptDestroyHash(hash);
  return done;
}

// GCM parameters for one call; the tag buffer is read (decrypt) or filled
// (encrypt).
BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO GcmInfo(const unsigned char* nonce, unsigned char* tag) {
  BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info;
  BCRYPT_INIT_AUTH_MODE_INFO(info);
  info.pbNonce = const_cast<PUCHAR>(nonce);
  info.cbNonce = kAesNonceLength;
  info.pbTag = tag;
  info.cbTag = kAesTagLength;
  return info;
}

// An AES provider in GCM mode, keyed with the password.
class AesGcm {
 public:
  explicit AesGcm(const unsigned char* password)
      : aes_(BCRYPT_AES_ALGORITHM, 0),
        ready_(aes_.get() != nullptr &&
               BCRYPT_SUCCESS(::BCryptSetProperty(aes_.get(), BCRYPT_CHAINING_MODE,
                                                  reinterpret_cast<PUCHAR>(const_cast<wchar_t*>(BCRYPT_CHAIN_MODE_GCM)),
                                                  sizeof BCRYPT_CHAIN_MODE_GCM, 0))),
        key_(ready_ ? aes_.get() : nullptr, password, kSystemPasswordLength) {}
  BCRYPT_KEY_HANDLE key() const { return key_.get(); }

 private:
  Algorithm aes_;
  bool ready_;
  SymmetricKey key_;
};

}  // namespace

void FreeSecretBlock(void* block) {
  if (block == nullptr) return;
  ::SecureZeroMemory(block, BlockSize(block));
  FreeBlock(block);
}

unsigned char* GenerateSystemDependentPassword(const unsigned char* identifier, uint32_t length) {
  if (identifier == nullptr || length == 0) return nullptr;
  // HKDF (RFC 5869): extract a pseudo-random key from the identifier under
  // the salt, then expand it with the info; one block T(1) is enough.
  unsigned char prk[kSha256Length];
  unsigned char block[kSha256Length];
  const unsigned char counter = 1;
  const bool done =
      HmacSha256(kPasswordSalt, sizeof kPasswordSalt - 1, {{identifier, length}}, prk) &&
      HmacSha256(prk, sizeof prk, {{kPasswordInfo, sizeof kPasswordInfo - 1}, {&counter, 1}}, block);
  OwnedBlock password(kSystemPasswordLength);
  if (done && password.get() != nullptr) std::memcpy(password.get(), block, kSystemPasswordLength);
  ::SecureZeroMemory(prk, sizeof prk);
  ::SecureZeroMemory(block, sizeof block);
  return done ? password.release() : nullptr;
}

bool AES256Encrypt(const unsigned char* plain, uint32_t length, const unsigned char* password,
                   unsigned char** cipher, uint32_t* cipherLength) {
  if ((plain == nullptr && length != 0) || password == nullptr || cipher == nullptr || cipherLength == nullptr) {
    return false;
  }
  const size_t total = size_t{length} + kAesOverhead;
  if (total > UINT32_MAX) return false;
  AesGcm aes(password);
  OwnedBlock out(total);
  if (aes.key() == nullptr || out.get() == nullptr) return false;

  unsigned char* nonce = out.get();
  unsigned char* body = nonce + kAesNonceLength;
  unsigned char* tag = body + length;
  if (!RandomBytes(nonce, kAesNonceLength)) return false;
  BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info = GcmInfo(nonce, tag);
  // CNG wants a non-null input pointer even for an empty text.
  unsigned char empty = 0;
  ULONG done = 0;
  if (!BCRYPT_SUCCESS(::BCryptEncrypt(aes.key(), const_cast<PUCHAR>(length == 0 ? &empty : plain), length, &info,
                                      nullptr, 0, length == 0 ? &empty : body, length, &done, 0)) ||
      done != length) {
    return false;
  }
  *cipher = out.release();
  *cipherLength = static_cast<uint32_t>(total);
  return true;
}

bool AES256Decrypt(const unsigned char* cipher, uint32_t length, const unsigned char* password,
                   unsigned char** plain, uint32_t* plainLength) {
  if (cipher == nullptr || password == nullptr || plain == nullptr || plainLength == nullptr) return false;
  if (length < kAesOverhead) return false;
  const uint32_t bodyLength = length - static_cast<uint32_t>(kAesOverhead);
  AesGcm aes(password);
  OwnedBlock out(bodyLength);
  if (aes.key() == nullptr || out.get() == nullptr) return false;

  const unsigned char* nonce = cipher;
  const unsigned char* body = nonce + kAesNonceLength;
  unsigned char tag[kAesTagLength];
  std::memcpy(tag, body + bodyLength, kAesTagLength);
  BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info = GcmInfo(nonce, tag);
  unsigned char empty = 0;
  ULONG done = 0;
  // The tag is checked inside: a wrong password or any altered byte fails
  // the call, and the half-made plain text is wiped with the block.
  if (!BCRYPT_SUCCESS(::BCryptDecrypt(aes.key(), const_cast<PUCHAR>(bodyLength == 0 ? &empty : body), bodyLength,
                                      &info, nullptr, 0, bodyLength == 0 ? &empty : out.get(), bodyLength, &done, 0)) ||
      done != bodyLength) {
    return false;
  }
  *plain = out.release();
  *plainLength = bodyLength;
  return true;
}

}  // namespace ao::platform

#endif  // _WIN32
