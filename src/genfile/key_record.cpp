#include "genfile/key_record.h"

#include <cstring>

#include "aostore/vastrel_file.h"

namespace ao::genfile {
namespace {

constexpr unsigned char kScrambleByte = 0x5C;
constexpr uint32_t kKeyRecordFormat = 1;

void PutLittleEndian(unsigned char* out, uint64_t value, size_t size) {
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

uint64_t GetLittleEndian(const unsigned char* in, size_t size) {
  uint64_t value = 0;
  for (size_t i = 0; i < size; ++i) value |= static_cast<uint64_t>(in[i]) << (8 * i);
  return value;
}

}  // namespace

void ScrambleKeyMaterial(unsigned char* data, size_t length) {
  for (size_t i = 0; i < length; ++i) data[i] ^= kScrambleByte;
}

std::array<unsigned char, kKeyRecordSize> EncodeKeyRecord(const StreamKeyBuf& key) {
  std::array<unsigned char, kKeyRecordSize> record{};
  PutLittleEndian(record.data(), kKeyRecordFormat, 4);
  PutLittleEndian(record.data() + 8, kStreamKeyLength, 8);
  std::memcpy(record.data() + kKeyRecordHeaderSize, key.bytes, kStreamKeyLength);
  ScrambleKeyMaterial(record.data() + kKeyRecordHeaderSize, kStreamKeyLength);
  return record;
}

bool KeyRecordHeaderIsValid(const unsigned char (&header)[kKeyRecordHeaderSize]) {
  return GetLittleEndian(header + 8, 8) == kStreamKeyLength;
}

bool ReadKeyRecord(CVastrelFile& file, StreamKeyBuf* key) {
  unsigned char header[kKeyRecordHeaderSize];
  if (file.ReadGenericChildStream(header, kKeyRecordHeaderSize) != static_cast<int64_t>(kKeyRecordHeaderSize)) return false;
  if (!KeyRecordHeaderIsValid(header)) return false;
  StreamKeyBuf material;
  if (file.ReadGenericChildStream(material.bytes, kStreamKeyLength) != static_cast<int64_t>(kStreamKeyLength)) return false;
  ScrambleKeyMaterial(material.bytes, kStreamKeyLength);
  *key = material;
  return true;
}

}  // namespace ao::genfile
