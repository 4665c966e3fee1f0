// Encrypted elements: containers whose records are enciphered with an RC4 key
// derived from 256 bytes of key material kept, scrambled, in the container
// itself; and access to streams of such a container by path.
#ifndef AOSTORE_ENCRYPTED_ELEMENT_H
#define AOSTORE_ENCRYPTED_ELEMENT_H

#include <cstdint>

#include "aostore/export.h"
#include "aostore/qo_string.h"
#include "aostore/vastrel_file.h"

class aoStream;

// Bytes of key material.
inline constexpr uint32_t kStreamKeyLength = 256;

// Raw (unscrambled) key material.
struct AOSTORE_API StreamKeyBuf {
  unsigned char bytes[kStreamKeyLength] = {};
};

// The key of one encrypted element, filled by InitEncryptionElement.
struct AOSTORE_API AppDatabaseParams {
  uint64_t key = 0;           // derived key handle; 0 until derived
  uint32_t blockLength = 0;   // the key's block length in bits; 0 for RC4
  StreamKeyBuf keyMaterial;   // raw key material
  const char* keyFileName = nullptr;  // container file holding the key record, in the element's folder
};

// Handles are those of the platform's cryptographic service; 0 is failure.

// A provider for the named key container, creating the container if needed.
AOSTORE_API uint64_t GetCryptContainer(const char* containerName);
// An MD5 hash object over length bytes of data.
AOSTORE_API uint64_t CreateHashObj(uint64_t provider, unsigned char* data, uint32_t length);
// The 128-bit RC4 key whose bytes are the hash's digest (no salt).
AOSTORE_API uint64_t GetDeriveKey(uint64_t provider, uint64_t hash);

// Fills params' key material, key and block length. The material is read
// from the key record (stream streamName, child childName) of the file
// params->keyFileName in folder, or made fresh when that file does not exist
// (it is stored when OpenVastrelFile first creates the file). A key is then
// derived from whatever material params holds; a key of 0 tells of failure.
AOSTORE_API void InitEncryptionElement(uint64_t provider, AppDatabaseParams* params, Qo::QOSTR* folder,
                                       const char* streamName, const char* childName);
// Reads the key record of an already open file and derives the key; 1 on
// success. Strict: a missing or damaged record gives 0. The record's child
// stream stays current in file.
AOSTORE_API int InitEncryptionElementFromOpenFile(CVastrelFile& file, uint64_t provider, AppDatabaseParams* params,
                                                  const char* streamName, const char* childName);
// Opens folder/fileName in file with CVastrelFile::Open(path, mode), creating
// the folder when missing. A container created here in mode 2 receives the
// key record for key (streamName/childName). Returns Open's result, or 0.
AOSTORE_API int OpenVastrelFile(const StreamKeyBuf& key, CVastrelFile* file, Qo::QOSTR* folder,
                                const char* fileName, const char* streamName, const char* childName, int mode);
// Opens folder/subFolder/fileName for writing (created with its key record
// when missing) and the stream streamPath in it: "name" gives the generic
// stream (owned by file, isChild 0), "name/child" a child of it (the
// caller's to release before closing file, isChild 1). Streams are never
// created here. Null, with file closed, on failure.
AOSTORE_API aoStream* OpenVastrelAuthStream(CVastrelFile& file, const char* folder, const char* fileName,
                                            const char* streamPath, const StreamKeyBuf& key, const char* subFolder,
                                            const char* keyStreamName, const char* keyChildName, int& isChild);

#endif  // AOSTORE_ENCRYPTED_ELEMENT_H
