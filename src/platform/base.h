// The small base library the stores are written against: identifiers,
// machine identity, the machine-bound password and its cipher, folders and a
// string split. Everything that touches the operating system or OpenSSL lives
// behind these functions.
//
// Buffers handed out here are zeroed blocks from platform/memory.h; the caller
// frees them with FreeBlock.
#ifndef AOSTORE_PLATFORM_BASE_H
#define AOSTORE_PLATFORM_BASE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace ao::platform {

// ---- Identifiers.
using QoUUID = std::array<uint8_t, 16>;

// A random (version 4) UUID from the system's cryptographic generator. False,
// with *uuid untouched, when the generator fails.
bool MakeQoUUID(QoUUID* uuid);
// The canonical 36-character text: lower-case hex digits in groups of
// 8-4-4-4-12 joined by '-'.
std::string MakeQoUUIDString(const QoUUID& uuid);

// ---- Machine identity.
// A stable identifier of this machine (/etc/machine-id, else
// /var/lib/dbus/machine-id, without surrounding white space) as a new block
// of *length bytes; null when there is none.
unsigned char* GetSystemIdentifier(uint32_t* length);
// Tests pretend to run on another machine: a non-null identifier replaces the
// system's for every later GetSystemIdentifier; null restores the system's.
void SetSystemIdentifierForTesting(const char* identifier);

// Length of the password made by GenerateSystemDependentPassword; it is also
// the AES-256 key length that AES256Encrypt and AES256Decrypt expect.
inline constexpr size_t kSystemPasswordLength = 32;
// Derives the machine-bound password from an identifier (HKDF-SHA256 with the
// library's fixed salt) into a new block of kSystemPasswordLength bytes; the
// same identifier always gives the same password. Null on failure.
unsigned char* GenerateSystemDependentPassword(const unsigned char* identifier, uint32_t length);

// Wipes a block that held a secret (identifier, password, deciphered value)
// and frees it; null is ignored.
void FreeSecretBlock(void* block);

// ---- Authenticated cipher (AES-256-GCM).
// Bytes AES256Encrypt adds to its input: the 12-byte nonce in front, the
// 16-byte tag behind.
inline constexpr size_t kAesNonceLength = 12;
inline constexpr size_t kAesTagLength = 16;
inline constexpr size_t kAesOverhead = kAesNonceLength + kAesTagLength;

// Enciphers length bytes of plain under the kSystemPasswordLength-byte
// password with a fresh random nonce. On success *cipher is a new block of
// *cipherLength = length + kAesOverhead bytes; false (outputs untouched) on
// failure.
bool AES256Encrypt(const unsigned char* plain, uint32_t length, const unsigned char* password,
                   unsigned char** cipher, uint32_t* cipherLength);
// Reverses AES256Encrypt. False (outputs untouched) when the password is not
// the one used or any byte of the input was altered.
bool AES256Decrypt(const unsigned char* cipher, uint32_t length, const unsigned char* password,
                   unsigned char** plain, uint32_t* plainLength);

// ---- Folders.
// The per-user data folder: $XDG_DATA_HOME when it is an absolute path, else
// $HOME/.local/share. False when neither can be found.
bool GetAppDataFolder(std::string* folder);
// Full path of the running program; false when it cannot be found.
bool GetMainModulePath(std::string* path);
// Makes sure the folder exists, creating every missing folder of the path
// (readable by the owner only). True when it exists afterwards as a folder.
bool VerifyOrCreateDirectory(const char* path);
// Creates an empty file that only its owner may read or write. False when
// the file exists already or cannot be made.
bool CreateOwnerOnlyFile(const char* path);
// Narrows an existing file to its owner (read and write only).
bool RestrictFileToOwner(const char* path);

// ---- Strings.
// Splits text at the first occurrence of separator into the text before it
// and the text after it. Without the separator (or a null text) the result
// is false, *first gets the whole text and *second is empty.
bool QoCStrSplitOnChar(const char* text, char separator, std::string* first, std::string* second);

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_BASE_H
