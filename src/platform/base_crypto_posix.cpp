// The base library's cryptography on OpenSSL 3, always through the library's
// own context so that the host application's providers are never touched.
#if !defined(_WIN32)

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <climits>
#include <cstring>
#include <memory>

#include "platform/base.h"
#include "platform/crypto.h"
#include "platform/crypto_context.h"
#include "platform/memory.h"
#include "platform/secret_block.h"

namespace ao::platform {
namespace {

// Fixed salt of the machine-bound password. Changing it makes every value
// written by earlier builds unreadable.
constexpr unsigned char kPasswordSalt[] = "aostore machine-bound password salt v1";
constexpr unsigned char kPasswordInfo[] = "aostore local settings";

struct CipherCtxFree {
  void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
struct CipherFree {
  void operator()(EVP_CIPHER* cipher) const { EVP_CIPHER_free(cipher); }
};
struct KdfFree {
  void operator()(EVP_KDF* kdf) const { EVP_KDF_free(kdf); }
};
struct KdfCtxFree {
  void operator()(EVP_KDF_CTX* ctx) const { EVP_KDF_CTX_free(ctx); }
};
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxFree>;
using Cipher = std::unique_ptr<EVP_CIPHER, CipherFree>;

Cipher FetchAesGcm() {
  OSSL_LIB_CTX* context = CryptoLibContext();
  if (context == nullptr) return nullptr;
  return Cipher(EVP_CIPHER_fetch(context, "AES-256-GCM", nullptr));
}

// Runs one GCM pass over count bytes; EVP takes int lengths, and every
// length handed in here is below INT_MAX by construction.
bool CipherUpdate(EVP_CIPHER_CTX* ctx, unsigned char* out, const unsigned char* in, size_t count) {
  int done = 0;
  if (count == 0) return true;
  return EVP_CipherUpdate(ctx, out, &done, in, static_cast<int>(count)) == 1 &&
         static_cast<size_t>(done) == count;
}

}  // namespace

void FreeSecretBlock(void* block) {
  if (block == nullptr) return;
  OPENSSL_cleanse(block, BlockSize(block));
  FreeBlock(block);
}

unsigned char* GenerateSystemDependentPassword(const unsigned char* identifier, uint32_t length) {
  if (identifier == nullptr || length == 0) return nullptr;
  OSSL_LIB_CTX* context = CryptoLibContext();
  if (context == nullptr) return nullptr;
  std::unique_ptr<EVP_KDF, KdfFree> kdf(EVP_KDF_fetch(context, "HKDF", nullptr));
  if (!kdf) return nullptr;
  std::unique_ptr<EVP_KDF_CTX, KdfCtxFree> ctx(EVP_KDF_CTX_new(kdf.get()));
  if (!ctx) return nullptr;

  char digest[] = "SHA256";
  OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, const_cast<unsigned char*>(identifier), length),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, const_cast<unsigned char*>(kPasswordSalt),
                                        sizeof kPasswordSalt - 1),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, const_cast<unsigned char*>(kPasswordInfo),
                                        sizeof kPasswordInfo - 1),
      OSSL_PARAM_construct_end(),
  };
  OwnedBlock password(kSystemPasswordLength);
  if (password.get() == nullptr) return nullptr;
  if (EVP_KDF_derive(ctx.get(), password.get(), kSystemPasswordLength, params) != 1) return nullptr;
  return password.release();
}

bool AES256Encrypt(const unsigned char* plain, uint32_t length, const unsigned char* password,
                   unsigned char** cipher, uint32_t* cipherLength) {
  if ((plain == nullptr && length != 0) || password == nullptr || cipher == nullptr || cipherLength == nullptr) {
    return false;
  }
  const size_t total = size_t{length} + kAesOverhead;
  if (total > UINT32_MAX || length > INT_MAX) return false;
  Cipher aes = FetchAesGcm();
  CipherCtx ctx(EVP_CIPHER_CTX_new());
  OwnedBlock out(total);
  if (!aes || !ctx || out.get() == nullptr) return false;

  unsigned char* nonce = out.get();
  unsigned char* body = nonce + kAesNonceLength;
  unsigned char* tag = body + length;
  if (!RandomBytes(nonce, kAesNonceLength)) return false;
  int finalBytes = 0;
  if (EVP_EncryptInit_ex2(ctx.get(), aes.get(), password, nonce, nullptr) != 1 ||
      !CipherUpdate(ctx.get(), body, plain, length) ||
      EVP_EncryptFinal_ex(ctx.get(), tag, &finalBytes) != 1 || finalBytes != 0 ||
      EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kAesTagLength), tag) != 1) {
    return false;
  }
  *cipher = out.release();
  *cipherLength = static_cast<uint32_t>(total);
  return true;
}

bool AES256Decrypt(const unsigned char* cipher, uint32_t length, const unsigned char* password,
                   unsigned char** plain, uint32_t* plainLength) {
  if (cipher == nullptr || password == nullptr || plain == nullptr || plainLength == nullptr) return false;
  if (length < kAesOverhead || length > INT_MAX) return false;
  const size_t bodyLength = length - kAesOverhead;
  Cipher aes = FetchAesGcm();
  CipherCtx ctx(EVP_CIPHER_CTX_new());
  OwnedBlock out(bodyLength);
  if (!aes || !ctx || out.get() == nullptr) return false;

  const unsigned char* nonce = cipher;
  const unsigned char* body = nonce + kAesNonceLength;
  unsigned char tag[kAesTagLength];
  std::memcpy(tag, body + bodyLength, kAesTagLength);
  int finalBytes = 0;
  // The tag is checked by DecryptFinal: a wrong password or any altered byte
  // fails there, and the half-made plain text is wiped with the block.
  if (EVP_DecryptInit_ex2(ctx.get(), aes.get(), password, nonce, nullptr) != 1 ||
      !CipherUpdate(ctx.get(), out.get(), body, bodyLength) ||
      EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kAesTagLength), tag) != 1 ||
      EVP_DecryptFinal_ex(ctx.get(), out.get() + bodyLength, &finalBytes) != 1 || finalBytes != 0) {
    return false;
  }
  *plain = out.release();
  *plainLength = static_cast<uint32_t>(bodyLength);
  return true;
}

}  // namespace ao::platform

#endif  // !_WIN32
