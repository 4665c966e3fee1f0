// aoStream: extraction and insertion of values at the current position.
// Insertions made while the container records are logged as writes.
#include <algorithm>
#include <cstring>

#include "aostore/recorder.h"
#include "aostore/stream.h"
#include "entries/entry_io.h"
#include "storage/format.h"

namespace entries = ao::entries;
namespace format = ao::format;

namespace {

// A string length of this value or more is followed by a u32 length.
constexpr uint32_t kLongStringMark = 0xFFFF;
// Characters are read in pieces of this size, so that a damaged length field
// costs no more memory than the stream really holds.
constexpr size_t kStringChunk = 0x10000;

// Extraction does not check the count read: the value's own bytes stand in
// for whatever a short read did not deliver.
template <typename T>
void Extract(aoStream& stream, T& value) {
  unsigned char bytes[8];
  entries::EncodeValue(value, bytes);
  stream.Read(bytes, entries::kValueSize<T>);
  value = entries::DecodeValue<T>(bytes);
}

template <typename T>
void Insert(aoStream& stream, T value) {
  unsigned char bytes[8];
  entries::EncodeValue(value, bytes);
  if (CCompRecorder* recorder = entries::RecorderOf(&stream)) {
    recorder->OpWrite(bytes, entries::kValueSize<T>, 0, &stream, 1);
  }
  stream.Write(bytes, entries::kValueSize<T>, false, nullptr);
}

}  // namespace

aoStream& aoStream::operator>>(unsigned short& value) {
  unsigned char bytes[2];
  format::PutU16(bytes, value);
  Read(bytes, 2);
  value = format::GetU16(bytes);
  return *this;
}

aoStream& aoStream::operator>>(int& value) {
  Extract(*this, value);
  return *this;
}

aoStream& aoStream::operator>>(double& value) {
  Extract(*this, value);
  return *this;
}

aoStream& aoStream::operator>>(std::string& value) {
  value.clear();
  unsigned char field[4] = {};
  Read(field, 2);
  uint32_t length = format::GetU16(field);
  if (length >= kLongStringMark) {
    format::PutU32(field, 0);
    Read(field, 4);
    length = format::GetU32(field);
  }
  // A stream that ends early gives the characters it holds.
  while (value.size() < length) {
    const size_t have = value.size();
    const size_t want = std::min<size_t>(kStringChunk, length - have);
    value.resize(have + want);
    const int64_t got = Read(value.data() + have, static_cast<int64_t>(want));
    value.resize(have + static_cast<size_t>(std::max<int64_t>(got, 0)));
    if (got != static_cast<int64_t>(want)) break;
  }
  return *this;
}

aoStream& aoStream::operator<<(unsigned short value) {
  unsigned char bytes[2];
  format::PutU16(bytes, value);
  if (CCompRecorder* recorder = entries::RecorderOf(this)) recorder->OpWrite(bytes, 2, 0, this, 1);
  Write(bytes, 2, false, nullptr);
  return *this;
}

aoStream& aoStream::operator<<(int value) {
  Insert(*this, value);
  return *this;
}

aoStream& aoStream::operator<<(double value) {
  Insert(*this, value);
  return *this;
}

aoStream& aoStream::operator<<(int64_t value) {
  Insert(*this, value);
  return *this;
}

aoStream& aoStream::operator<<(const char* value) {
  const size_t length = value != nullptr ? std::strlen(value) : 0;
  if (length > UINT32_MAX) return *this;  // no length field can describe it
  const auto n = static_cast<uint32_t>(length);
  unsigned char shortField[2];
  unsigned char longField[4];
  format::PutU16(shortField, static_cast<uint16_t>(std::min(n, kLongStringMark)));
  format::PutU32(longField, n);
  if (Write(shortField, 2, false, nullptr) == -1) return *this;
  if (n >= kLongStringMark && Write(longField, 4, false, nullptr) == -1) return *this;
  // An empty string is its two zero bytes, deliberately not logged.
  if (n == 0) return *this;
  auto* characters = reinterpret_cast<unsigned char*>(const_cast<char*>(value));
  if (CCompRecorder* recorder = entries::RecorderOf(this)) {
    recorder->OpWrite(shortField, 2, 0, this, 1);
    if (n >= kLongStringMark) recorder->OpWrite(longField, 4, 0, this, 1);
    recorder->OpWrite(characters, n, 0, this, 1);
  }
  Write(characters, n, false, nullptr);
  return *this;
}

aoStream& aoStream::operator<<(const std::string& value) { return *this << value.c_str(); }
