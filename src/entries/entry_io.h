// Helpers shared by the typed entries of aoStorage and aoStream: the value
// codecs and the work done on an entry stream once it is open. Every helper
// that takes an entry stream releases it on every path.
#ifndef AOSTORE_ENTRIES_ENTRY_IO_H
#define AOSTORE_ENTRIES_ENTRY_IO_H

#include <bit>
#include <cstdint>
#include <string>
#include <type_traits>

#include "aostore/stream.h"
#include "storage/format.h"

class CCompRecorder;

namespace ao::entries {

// Little-endian bytes of the scalar value types: 4 bytes for the 32-bit
// integers, 8 for the 64-bit integers and IEEE-754 doubles.
template <typename T>
inline constexpr uint32_t kValueSize = sizeof(T) == 8 ? 8 : 4;

template <typename T>
void EncodeValue(T value, unsigned char* out) {
  if constexpr (std::is_same_v<T, double>) {
    format::PutU64(out, std::bit_cast<uint64_t>(value));
  } else if constexpr (sizeof(T) == 8) {
    format::PutU64(out, static_cast<uint64_t>(value));
  } else {
    format::PutU32(out, static_cast<uint32_t>(value));
  }
}

template <typename T>
T DecodeValue(const unsigned char* in) {
  if constexpr (std::is_same_v<T, double>) {
    return std::bit_cast<double>(format::GetU64(in));
  } else if constexpr (sizeof(T) == 8) {
    return static_cast<T>(format::GetU64(in));
  } else {
    return static_cast<T>(format::GetU32(in));
  }
}

// The active recorder of the stream's container, or null.
CCompRecorder* RecorderOf(aoStream* stream);

// An open entry that is a folder counts as missing: it is released and null
// comes back.
aoStream* UnlessFolder(aoStream* stream);

// Reads n value bytes from the stream's position into bytes (zeroed by the
// caller, so a short entry leaves the upper bytes 0) and releases the stream.
// False when there was no stream or it is a folder.
bool ReadValueBytes(aoStream* stream, unsigned char* bytes, uint32_t n);

template <typename T>
T ReadScalar(aoStream* stream, T def) {
  unsigned char bytes[8] = {};
  return ReadValueBytes(stream, bytes, kValueSize<T>) ? DecodeValue<T>(bytes) : def;
}

std::string ReadString(aoStream* stream, const char* def);

// Inserts value with the stream's operator (which records itself), then
// releases; 0 without a stream.
template <typename T>
int InsertAndRelease(aoStream* stream, T value) {
  if (stream == nullptr) return 0;
  *stream << value;
  stream->Release();
  return 1;
}

// Records and writes n bytes at the stream's position, then releases; 0
// without a stream. The write's result is not reported, as for every
// scalar entry.
int WriteValueBytes(aoStream* stream, unsigned char* bytes, uint32_t n);

template <typename T>
int WriteScalar(aoStream* stream, T value) {
  unsigned char bytes[8];
  EncodeValue(value, bytes);
  return WriteValueBytes(stream, bytes, kValueSize<T>);
}

// Appends one blob record at the end of the stream. With slot, the slot of
// `wide` width (8 or 4 bytes) at position 0 first receives the offset at
// which this record begins (the slot width itself for the first record).
void AppendRecord(aoStream* stream, const void* data, uint32_t size, bool slot, bool wide);

// The blob setters: record the append, append, release. 0 without a stream.
int AppendEntry(aoStream* stream, const void* data, uint32_t size, bool slot, bool wide);

// Replaces the stream's data by [size:u32][data] (prependSize) or [data];
// the recorder is told recordedPrefix as the size flag. 1 unless the prefix
// or the write failed.
int ReplaceEntry(aoStream* stream, const void* data, uint32_t size, int prependSize, int recordedPrefix);

// The readers of replaced entries; both start from a stream just opened
// (null: missing) and release it.
int ReadReplacedEntry(aoStream* stream, void** data, unsigned int* size);
int ReadReplacedEntryInto(aoStream* stream, void* buffer, unsigned int size);

}  // namespace ao::entries

#endif  // AOSTORE_ENTRIES_ENTRY_IO_H
