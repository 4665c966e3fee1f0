// The cryptographic service as the library sees it: providers, MD5 hash
// objects and RC4 keys behind opaque 64-bit handles, and the system's random
// generator. The POSIX backend runs on OpenSSL libcrypto; a Win32 backend maps
// the same calls onto CryptoAPI, whose handles fit in 64 bits.
//
// A handle of 0 is never issued and stands for failure. Every issued handle
// is given back with the matching Release/Destroy call; a handle of the wrong
// kind, or one already given back, makes a call fail without harm.
#ifndef AOSTORE_PLATFORM_CRYPTO_H
#define AOSTORE_PLATFORM_CRYPTO_H

#include <cstddef>
#include <cstdint>

namespace ao::platform {

using CryptoHandle = uint64_t;

// Size of an MD5 digest, which is also the size of a derived RC4 key.
inline constexpr size_t kMd5DigestSize = 16;

// A provider for the named key container; the container is created when it
// does not exist. 0 when the cryptographic service cannot be used.
CryptoHandle AcquireCryptoProvider(const char* containerName);
bool ReleaseCryptoProvider(CryptoHandle provider);

// A new, empty MD5 hash object; 0 on failure.
CryptoHandle CreateMd5Hash(CryptoHandle provider);
// Adds bytes to a hash. False once the hash value was taken or a key derived.
bool HashData(CryptoHandle hash, const void* data, size_t length);
// Writes the 16-byte digest; the hash accepts no more data afterwards.
bool GetHashValue(CryptoHandle hash, unsigned char (&digest)[kMd5DigestSize]);
bool DestroyHash(CryptoHandle hash);

// An RC4 key whose 128 bits are the hash's digest (no salt); the hash accepts
// no more data afterwards. 0 on failure.
CryptoHandle DeriveRc4Key(CryptoHandle provider, CryptoHandle hash);
// An RC4 key made from 16 given bytes; 0 on failure.
CryptoHandle ImportRc4Key(CryptoHandle provider, const unsigned char (&key)[kMd5DigestSize]);
// A copy of key whose key stream starts again at its beginning.
CryptoHandle DuplicateKey(CryptoHandle key);
// The cipher's block length in bits: 0 for the stream cipher.
bool GetKeyBlockLength(CryptoHandle key, uint32_t* bits);
// XOR data in place with the key's next length bytes of key stream; successive
// calls continue the stream. RC4 deciphers exactly as it enciphers.
bool Encrypt(CryptoHandle key, unsigned char* data, size_t length);
bool Decrypt(CryptoHandle key, unsigned char* data, size_t length);
bool DestroyKey(CryptoHandle key);

// length bytes from the operating system's cryptographically secure generator.
bool RandomBytes(void* buffer, size_t length);

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_CRYPTO_H
