// Win32 backend of the cryptographic service: CryptoAPI itself. The CryptoAPI
// handles stay inside this file; callers get handles from a table of our own,
// so that a stale, zero or mismatched handle is refused instead of reaching
// advapi32, which would dereference it.
#if defined(_WIN32)

#include <windows.h>
// windows.h leaves these out under WIN32_LEAN_AND_MEAN.
#include <bcrypt.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/crypto.h"

namespace ao::platform {
namespace {

// 128-bit key length in the upper 16 bits; no other flag, so no salt.
constexpr DWORD kRc4KeyFlags = 0x00800000;
// CryptEncrypt and CryptDecrypt take 32-bit lengths.
constexpr size_t kMaxPiece = 1u << 30;

struct Object {
  virtual ~Object() = default;
};

struct Provider final : Object {
  explicit Provider(HCRYPTPROV h) : handle(h) {}
  ~Provider() override { ::CryptReleaseContext(handle, 0); }
  Provider(const Provider&) = delete;
  Provider& operator=(const Provider&) = delete;
  HCRYPTPROV handle;
};

// Hashes and keys keep their provider's context alive: CryptoAPI objects must
// not outlive the context they were made in, while callers may release the
// provider handle first.
struct Hash final : Object {
  Hash(std::shared_ptr<Provider> p, HCRYPTHASH h) : provider(std::move(p)), handle(h) {}
  ~Hash() override { ::CryptDestroyHash(handle); }
  Hash(const Hash&) = delete;
  Hash& operator=(const Hash&) = delete;
  std::shared_ptr<Provider> provider;
  HCRYPTHASH handle;
  bool finished = false;
};

struct Key final : Object {
  Key(std::shared_ptr<Provider> p, HCRYPTKEY h) : provider(std::move(p)), handle(h) {}
  ~Key() override { ::CryptDestroyKey(handle); }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  std::shared_ptr<Provider> provider;
  HCRYPTKEY handle;
};

// Issues handles and owns the objects behind them. A handle is a counter
// value that is never reused, so a stale handle cannot reach a newer object.
class HandleTable {
 public:
  CryptoHandle Add(std::shared_ptr<Object> object) {
    std::lock_guard<std::mutex> guard(mutex_);
    const CryptoHandle handle = next_++;
    objects_.emplace(handle, std::move(object));
    return handle;
  }

  // The object stays alive for the caller even if another thread removes its
  // handle meanwhile. Null when the handle is unknown or names another kind.
  template <typename T>
  std::shared_ptr<T> Find(CryptoHandle handle) {
    if (handle == 0) return nullptr;
    std::lock_guard<std::mutex> guard(mutex_);
    auto found = objects_.find(handle);
    return found == objects_.end() ? nullptr : std::dynamic_pointer_cast<T>(found->second);
  }

  template <typename T>
  bool Remove(CryptoHandle handle) {
    std::shared_ptr<Object> removed;  // declared first: destroyed after the lock is let go
    std::lock_guard<std::mutex> guard(mutex_);
    auto found = objects_.find(handle);
    if (found == objects_.end() || dynamic_cast<T*>(found->second.get()) == nullptr) return false;
    removed = std::move(found->second);
    objects_.erase(found);
    return true;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<CryptoHandle, std::shared_ptr<Object>> objects_;
  CryptoHandle next_ = 1;
};

HandleTable& Table() {
  static HandleTable table;
  return table;
}

CryptoHandle AddKey(std::shared_ptr<Provider> provider, HCRYPTKEY key) {
  return Table().Add(std::make_shared<Key>(std::move(provider), key));
}

// Runs a CryptEncrypt- or CryptDecrypt-shaped call over data in pieces. Not
// final: the RC4 stream carries on into the next call.
template <typename Call>
bool XorKeyStream(CryptoHandle handle, unsigned char* data, size_t length, Call call) {
  std::shared_ptr<Key> key = Table().Find<Key>(handle);
  if (key == nullptr || (data == nullptr && length != 0)) return false;
  while (length > 0) {
    const auto piece = static_cast<DWORD>(std::min(length, kMaxPiece));
    DWORD done = piece;
    if (!call(key->handle, data, &done) || done != piece) return false;
    data += piece;
    length -= piece;
  }
  return true;
}

}  // namespace

CryptoHandle AcquireCryptoProvider(const char* containerName) {
  HCRYPTPROV handle = 0;
  if (!::CryptAcquireContextA(&handle, containerName, nullptr, PROV_RSA_FULL, 0)) {
    // The named key container does not exist yet: create it.
    if (::GetLastError() != static_cast<DWORD>(NTE_BAD_KEYSET) ||
        !::CryptAcquireContextA(&handle, containerName, nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET)) {
      return 0;
    }
  }
  return Table().Add(std::make_shared<Provider>(handle));
}

bool ReleaseCryptoProvider(CryptoHandle provider) { return Table().Remove<Provider>(provider); }

CryptoHandle CreateMd5Hash(CryptoHandle handle) {
  std::shared_ptr<Provider> provider = Table().Find<Provider>(handle);
  HCRYPTHASH hash = 0;
  if (provider == nullptr || !::CryptCreateHash(provider->handle, CALG_MD5, 0, 0, &hash)) return 0;
  return Table().Add(std::make_shared<Hash>(std::move(provider), hash));
}

bool HashData(CryptoHandle handle, const void* data, size_t length) {
  std::shared_ptr<Hash> hash = Table().Find<Hash>(handle);
  if (hash == nullptr || hash->finished || (data == nullptr && length != 0)) return false;
  const auto* bytes = static_cast<const BYTE*>(data);
  while (length > 0) {
    const auto piece = static_cast<DWORD>(std::min(length, kMaxPiece));
    if (!::CryptHashData(hash->handle, bytes, piece, 0)) return false;
    bytes += piece;
    length -= piece;
  }
  return true;
}

bool GetHashValue(CryptoHandle handle, unsigned char (&digest)[kMd5DigestSize]) {
  std::shared_ptr<Hash> hash = Table().Find<Hash>(handle);
  if (hash == nullptr) return false;
  DWORD length = kMd5DigestSize;
  if (!::CryptGetHashParam(hash->handle, HP_HASHVAL, digest, &length, 0) || length != kMd5DigestSize) return false;
  hash->finished = true;
  return true;
}

bool DestroyHash(CryptoHandle hash) { return Table().Remove<Hash>(hash); }

CryptoHandle DeriveRc4Key(CryptoHandle providerHandle, CryptoHandle hashHandle) {
  std::shared_ptr<Provider> provider = Table().Find<Provider>(providerHandle);
  std::shared_ptr<Hash> hash = Table().Find<Hash>(hashHandle);
  if (provider == nullptr || hash == nullptr) return 0;
  HCRYPTKEY key = 0;
  if (!::CryptDeriveKey(provider->handle, CALG_RC4, hash->handle, kRc4KeyFlags, &key)) return 0;
  hash->finished = true;  // CryptoAPI takes no more data into a hash that made a key
  return AddKey(std::move(provider), key);
}

CryptoHandle ImportRc4Key(CryptoHandle providerHandle, const unsigned char (&key)[kMd5DigestSize]) {
  std::shared_ptr<Provider> provider = Table().Find<Provider>(providerHandle);
  if (provider == nullptr) return 0;
  // A PLAINTEXTKEYBLOB: BLOBHEADER, the key length as a DWORD, the key.
  BLOBHEADER header{};
  header.bType = PLAINTEXTKEYBLOB;
  header.bVersion = CUR_BLOB_VERSION;
  header.aiKeyAlg = CALG_RC4;
  const DWORD keyLength = kMd5DigestSize;
  BYTE blob[sizeof header + sizeof keyLength + kMd5DigestSize];
  std::memcpy(blob, &header, sizeof header);
  std::memcpy(blob + sizeof header, &keyLength, sizeof keyLength);
  std::memcpy(blob + sizeof header + sizeof keyLength, key, kMd5DigestSize);
  HCRYPTKEY imported = 0;
  const bool done = ::CryptImportKey(provider->handle, blob, sizeof blob, 0, 0, &imported) != 0;
  ::SecureZeroMemory(blob, sizeof blob);
  return done ? AddKey(std::move(provider), imported) : 0;
}

CryptoHandle DuplicateKey(CryptoHandle handle) {
  std::shared_ptr<Key> key = Table().Find<Key>(handle);
  HCRYPTKEY duplicate = 0;
  if (key == nullptr || !::CryptDuplicateKey(key->handle, nullptr, 0, &duplicate)) return 0;
  // The duplicate carries the original's RC4 state; a final call of no bytes
  // sets its key stream back to the beginning.
  BYTE nothing = 0;
  DWORD length = 0;
  if (!::CryptEncrypt(duplicate, 0, TRUE, 0, &nothing, &length, sizeof nothing)) {
    ::CryptDestroyKey(duplicate);
    return 0;
  }
  return AddKey(key->provider, duplicate);
}

bool GetKeyBlockLength(CryptoHandle handle, uint32_t* bits) {
  std::shared_ptr<Key> key = Table().Find<Key>(handle);
  if (key == nullptr || bits == nullptr) return false;
  DWORD value = 0;
  DWORD length = sizeof value;
  if (!::CryptGetKeyParam(key->handle, KP_BLOCKLEN, reinterpret_cast<BYTE*>(&value), &length, 0)) return false;
  *bits = value;
  return true;
}

bool Encrypt(CryptoHandle key, unsigned char* data, size_t length) {
  return XorKeyStream(key, data, length, [](HCRYPTKEY k, unsigned char* bytes, DWORD* count) {
    return ::CryptEncrypt(k, 0, FALSE, 0, bytes, count, *count) != 0;
  });
}

bool Decrypt(CryptoHandle key, unsigned char* data, size_t length) {
  return XorKeyStream(key, data, length, [](HCRYPTKEY k, unsigned char* bytes, DWORD* count) {
    return ::CryptDecrypt(k, 0, FALSE, 0, bytes, count) != 0;
  });
}

bool DestroyKey(CryptoHandle key) { return Table().Remove<Key>(key); }

bool RandomBytes(void* buffer, size_t length) {
  if (length == 0) return true;
  if (buffer == nullptr) return false;
  auto* bytes = static_cast<unsigned char*>(buffer);
  while (length > 0) {
    const auto piece = static_cast<ULONG>(std::min(length, kMaxPiece));
    if (!BCRYPT_SUCCESS(::BCryptGenRandom(nullptr, bytes, piece, BCRYPT_USE_SYSTEM_PREFERRED_RNG))) return false;
    bytes += piece;
    length -= piece;
  }
  return true;
}

}  // namespace ao::platform

#endif  // _WIN32
