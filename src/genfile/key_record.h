// The key record: the scrambled key material of an encrypted element, the
// whole content of one child stream of its container.
//
//   offset 0   u32  format number (1; ignored when read)
//   offset 4   u32  unused (0)
//   offset 8   u64  length of the material; must be 256
//   offset 16  256  the material, every byte XORed with 0x5C
#ifndef AOSTORE_GENFILE_KEY_RECORD_H
#define AOSTORE_GENFILE_KEY_RECORD_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "aostore/encrypted_element.h"

class CVastrelFile;

namespace ao::genfile {

inline constexpr size_t kKeyRecordHeaderSize = 16;
inline constexpr size_t kKeyRecordSize = kKeyRecordHeaderSize + kStreamKeyLength;

// XORs every byte with 0x5C: the same call scrambles and unscrambles.
void ScrambleKeyMaterial(unsigned char* data, size_t length);
// The bytes stored for the raw material key.
std::array<unsigned char, kKeyRecordSize> EncodeKeyRecord(const StreamKeyBuf& key);
// Whether a record header announces exactly 256 bytes of material.
bool KeyRecordHeaderIsValid(const unsigned char (&header)[kKeyRecordHeaderSize]);
// Reads a key record from the current child of file into *key (raw). False,
// with *key untouched, when the header or the material comes short or the
// header is not valid.
bool ReadKeyRecord(CVastrelFile& file, StreamKeyBuf* key);

}  // namespace ao::genfile

#endif  // AOSTORE_GENFILE_KEY_RECORD_H
