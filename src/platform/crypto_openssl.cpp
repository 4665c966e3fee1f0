#if !defined(_WIN32)
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <variant>

#include "platform/crypto.h"
#include "platform/crypto_context.h"

namespace ao::platform {
namespace {

struct DigestContextFree {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
struct CipherContextFree {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestContextFree>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree>;

// A provider holds no state: every algorithm comes from the library context.
struct Provider {};

struct Hash {
  DigestContext context;
  bool finished = false;
  unsigned char digest[kMd5DigestSize] = {};
};

// The key bytes are kept so that a duplicate can restart the key stream.
struct Key {
  unsigned char material[kMd5DigestSize] = {};
  CipherContext stream;
};

using CryptoObject = std::variant<Provider, Hash, Key>;

// Issues handles and owns the objects behind them. A handle is a counter
// value that is never reused, so a stale handle cannot reach a newer object.
class HandleTable {
 public:
  // The library context must outlive every object here (static objects are
  // destroyed in reverse order of construction), so make sure it exists first.
  HandleTable() { CryptoLibContext(); }

  CryptoHandle Add(CryptoObject object) {
    auto shared = std::make_shared<CryptoObject>(std::move(object));
    std::lock_guard<std::mutex> guard(mutex_);
    CryptoHandle handle = next_++;
    objects_.emplace(handle, std::move(shared));
    return handle;
  }

  // The object stays alive for the caller even if another thread removes its
  // handle meanwhile.
  std::shared_ptr<CryptoObject> Find(CryptoHandle handle) {
    std::lock_guard<std::mutex> guard(mutex_);
    auto found = objects_.find(handle);
    return found == objects_.end() ? nullptr : found->second;
  }

  // Removes the handle only if it names an object of kind T.
  template <typename T>
  bool Remove(CryptoHandle handle) {
    std::shared_ptr<CryptoObject> removed;  // declared first: destroyed after the lock is let go
    std::lock_guard<std::mutex> guard(mutex_);
    auto found = objects_.find(handle);
    if (found == objects_.end() || !std::holds_alternative<T>(*found->second)) return false;
    removed = std::move(found->second);
    objects_.erase(found);
    return true;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<CryptoHandle, std::shared_ptr<CryptoObject>> objects_;
  CryptoHandle next_ = 1;
};

HandleTable& Table() {
  static HandleTable table;
  return table;
}

// The object of kind T behind handle, with its owner kept alive; null when the
// handle is unknown or of another kind.
template <typename T>
struct Lookup {
  std::shared_ptr<CryptoObject> owner;
  T* object = nullptr;
};

template <typename T>
Lookup<T> Get(CryptoHandle handle) {
  Lookup<T> result;
  if (handle == 0) return result;
  result.owner = Table().Find(handle);
  if (result.owner != nullptr) result.object = std::get_if<T>(result.owner.get());
  return result;
}

bool IsProvider(CryptoHandle provider) { return Get<Provider>(provider).object != nullptr; }

// The digest, finishing the hash on first use.
bool FinishHash(Hash& hash) {
  if (hash.finished) return true;
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(hash.context.get(), hash.digest, &length) != 1 || length != kMd5DigestSize) return false;
  hash.finished = true;
  return true;
}

CipherContext StartKeyStream(const unsigned char (&material)[kMd5DigestSize]) {
  OSSL_LIB_CTX* library = CryptoLibContext();
  if (library == nullptr) return nullptr;
  EVP_CIPHER* rc4 = EVP_CIPHER_fetch(library, "RC4", nullptr);
  if (rc4 == nullptr) return nullptr;
  CipherContext stream(EVP_CIPHER_CTX_new());
  // RC4's default key length is 128 bits, the length of the material.
  bool started = stream != nullptr && EVP_CipherInit_ex2(stream.get(), rc4, material, nullptr, 1, nullptr) == 1;
  EVP_CIPHER_free(rc4);  // the context keeps its own reference
  return started ? std::move(stream) : nullptr;
}

CryptoHandle AddKey(const unsigned char (&material)[kMd5DigestSize]) {
  Key key;
  std::memcpy(key.material, material, kMd5DigestSize);
  key.stream = StartKeyStream(material);
  if (key.stream == nullptr) return 0;
  return Table().Add(std::move(key));
}

bool XorKeyStream(CryptoHandle handle, unsigned char* data, size_t length) {
  Lookup<Key> key = Get<Key>(handle);
  if (key.object == nullptr || (data == nullptr && length != 0)) return false;
  // EVP takes int lengths; a stream cipher may be fed in any pieces.
  while (length > 0) {
    int piece = static_cast<int>(std::min<size_t>(length, INT_MAX));
    int done = 0;
    if (EVP_CipherUpdate(key.object->stream.get(), data, &done, data, piece) != 1 || done != piece) return false;
    data += piece;
    length -= static_cast<size_t>(piece);
  }
  return true;
}

}  // namespace

CryptoHandle AcquireCryptoProvider(const char* /*containerName*/) {
  // Keys are never stored in a container here, so any name is acceptable and
  // "creating" one needs nothing beyond a usable library context.
  if (CryptoLibContext() == nullptr) return 0;
  return Table().Add(Provider{});
}

bool ReleaseCryptoProvider(CryptoHandle provider) { return Table().Remove<Provider>(provider); }

CryptoHandle CreateMd5Hash(CryptoHandle provider) {
  OSSL_LIB_CTX* library = CryptoLibContext();
  if (!IsProvider(provider) || library == nullptr) return 0;
  EVP_MD* md5 = EVP_MD_fetch(library, "MD5", nullptr);
  if (md5 == nullptr) return 0;
  Hash hash;
  hash.context.reset(EVP_MD_CTX_new());
  bool started = hash.context != nullptr && EVP_DigestInit_ex2(hash.context.get(), md5, nullptr) == 1;
  EVP_MD_free(md5);
  return started ? Table().Add(std::move(hash)) : 0;
}

bool HashData(CryptoHandle handle, const void* data, size_t length) {
  Lookup<Hash> hash = Get<Hash>(handle);
  if (hash.object == nullptr || hash.object->finished || (data == nullptr && length != 0)) return false;
  return EVP_DigestUpdate(hash.object->context.get(), data, length) == 1;
}

bool GetHashValue(CryptoHandle handle, unsigned char (&digest)[kMd5DigestSize]) {
  Lookup<Hash> hash = Get<Hash>(handle);
  if (hash.object == nullptr || !FinishHash(*hash.object)) return false;
  std::memcpy(digest, hash.object->digest, kMd5DigestSize);
  return true;
}

bool DestroyHash(CryptoHandle hash) { return Table().Remove<Hash>(hash); }

CryptoHandle DeriveRc4Key(CryptoHandle provider, CryptoHandle handle) {
  if (!IsProvider(provider)) return 0;
  Lookup<Hash> hash = Get<Hash>(handle);
  if (hash.object == nullptr || !FinishHash(*hash.object)) return 0;
  return AddKey(hash.object->digest);
}

CryptoHandle ImportRc4Key(CryptoHandle provider, const unsigned char (&key)[kMd5DigestSize]) {
  if (!IsProvider(provider)) return 0;
  return AddKey(key);
}

CryptoHandle DuplicateKey(CryptoHandle handle) {
  Lookup<Key> key = Get<Key>(handle);
  if (key.object == nullptr) return 0;
  return AddKey(key.object->material);
}

bool GetKeyBlockLength(CryptoHandle handle, uint32_t* bits) {
  Lookup<Key> key = Get<Key>(handle);
  if (key.object == nullptr || bits == nullptr) return false;
  // A stream cipher has no blocks; EVP calls its unit a block of 1 byte.
  int bytes = EVP_CIPHER_CTX_get_block_size(key.object->stream.get());
  *bits = bytes <= 1 ? 0 : static_cast<uint32_t>(bytes) * 8;
  return true;
}

bool Encrypt(CryptoHandle key, unsigned char* data, size_t length) { return XorKeyStream(key, data, length); }

bool Decrypt(CryptoHandle key, unsigned char* data, size_t length) { return XorKeyStream(key, data, length); }

bool DestroyKey(CryptoHandle key) { return Table().Remove<Key>(key); }

bool RandomBytes(void* buffer, size_t length) {
  if (length == 0) return true;
  OSSL_LIB_CTX* library = CryptoLibContext();
  if (buffer == nullptr || library == nullptr) return false;
  return RAND_bytes_ex(library, static_cast<unsigned char*>(buffer), length, 0) == 1;
}

}  // namespace ao::platform
#endif
