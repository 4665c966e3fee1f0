// aoStream: typed entries, each a child stream of this folder whose bytes are
// the value.
#include "aostore/stream.h"
#include "entries/entry_io.h"
#include "storage/format.h"

namespace entries = ao::entries;
namespace format = ao::format;

namespace {

aoStream* OpenForReading(aoStream* folder, const char* name) {
  return name != nullptr ? folder->OpenStream(name, kAoModeInspect) : nullptr;
}

aoStream* OpenForWriting(aoStream* folder, const char* name) {
  return name != nullptr ? folder->OpenOrCreateStream(name, 0) : nullptr;
}

constexpr uint32_t kRectSize = 16;
constexpr uint32_t kSizeSize = 8;

}  // namespace

std::string aoStream::GetEntry(const char* name, const char* def) {
  return entries::ReadString(OpenForReading(this, name), def);
}
int aoStream::GetEntry(const char* name, int def) { return entries::ReadScalar(OpenForReading(this, name), def); }
uint32_t aoStream::GetEntry(const char* name, uint32_t def) {
  return entries::ReadScalar(OpenForReading(this, name), def);
}
double aoStream::GetEntry(const char* name, double def) { return entries::ReadScalar(OpenForReading(this, name), def); }
int64_t aoStream::GetEntry(const char* name, int64_t def) {
  return entries::ReadScalar(OpenForReading(this, name), def);
}
uint64_t aoStream::GetEntry(const char* name, uint64_t def) {
  return entries::ReadScalar(OpenForReading(this, name), def);
}

RECT* aoStream::GetEntry(const char* name, RECT* out, const RECT* def) {
  aoStream* stream = entries::UnlessFolder(OpenForReading(this, name));
  unsigned char bytes[kRectSize] = {};
  bool read = false;
  if (stream != nullptr) {
    read = stream->Read(bytes, kRectSize) == kRectSize;
    stream->Release();
  }
  if (out == nullptr) return out;
  if (read) {
    out->left = static_cast<int32_t>(format::GetU32(bytes));
    out->top = static_cast<int32_t>(format::GetU32(bytes + 4));
    out->right = static_cast<int32_t>(format::GetU32(bytes + 8));
    out->bottom = static_cast<int32_t>(format::GetU32(bytes + 12));
  } else if (def != nullptr) {
    *out = *def;
  }
  return out;
}

SIZE* aoStream::GetEntry(const char* name, SIZE* out, const SIZE* def) {
  aoStream* stream = entries::UnlessFolder(OpenForReading(this, name));
  unsigned char bytes[kSizeSize] = {};
  bool read = false;
  if (stream != nullptr) {
    read = stream->Read(bytes, kSizeSize) == kSizeSize;
    stream->Release();
  }
  if (out == nullptr) return out;
  if (read) {
    out->cx = static_cast<int32_t>(format::GetU32(bytes));
    out->cy = static_cast<int32_t>(format::GetU32(bytes + 4));
  } else if (def != nullptr) {
    *out = *def;
  }
  return out;
}

int aoStream::GetEntryErasedOld(const char* name, void** data, unsigned int* size) {
  if (data == nullptr || size == nullptr) return 0;
  *data = nullptr;
  *size = 0;
  return entries::ReadReplacedEntry(OpenForReading(this, name), data, size);
}
int aoStream::GetEntryErasedOld(const char* name, void* buffer, unsigned int size) {
  return entries::ReadReplacedEntryInto(OpenForReading(this, name), buffer, size);
}

int aoStream::SetEntry(const char* name, const char* value) {
  return entries::InsertAndRelease(OpenForWriting(this, name), value != nullptr ? value : "");
}
int aoStream::SetEntry(const char* name, int value) { return entries::WriteScalar(OpenForWriting(this, name), value); }
int aoStream::SetEntry(const char* name, uint32_t value) {
  return entries::WriteScalar(OpenForWriting(this, name), value);
}
int aoStream::SetEntry(const char* name, double value) {
  return entries::WriteScalar(OpenForWriting(this, name), value);
}
int aoStream::SetEntry(const char* name, int64_t value) {
  return entries::WriteScalar(OpenForWriting(this, name), value);
}
int aoStream::SetEntry(const char* name, uint64_t value) {
  return entries::WriteScalar(OpenForWriting(this, name), value);
}

int aoStream::SetEntry(const char* name, RECT* value) {
  if (value == nullptr) return 0;
  unsigned char bytes[kRectSize];
  format::PutU32(bytes, static_cast<uint32_t>(value->left));
  format::PutU32(bytes + 4, static_cast<uint32_t>(value->top));
  format::PutU32(bytes + 8, static_cast<uint32_t>(value->right));
  format::PutU32(bytes + 12, static_cast<uint32_t>(value->bottom));
  return entries::WriteValueBytes(OpenForWriting(this, name), bytes, kRectSize);
}

int aoStream::SetEntry(const char* name, SIZE* value) {
  if (value == nullptr) return 0;
  unsigned char bytes[kSizeSize];
  format::PutU32(bytes, static_cast<uint32_t>(value->cx));
  format::PutU32(bytes + 4, static_cast<uint32_t>(value->cy));
  return entries::WriteValueBytes(OpenForWriting(this, name), bytes, kSizeSize);
}

int aoStream::SetEntry(const char* name, void* data, uint32_t size) {
  if (size == 0) return 1;
  if (data == nullptr) return 0;
  return entries::AppendEntry(OpenForWriting(this, name), data, size, true, m_b64);
}

int aoStream::SetEntryNoPrefix(const char* name, void* data, uint32_t size) {
  if (size == 0) return 1;
  if (data == nullptr) return 0;
  return entries::AppendEntry(OpenForWriting(this, name), data, size, false, m_b64);
}

int aoStream::SetEntryEraseOld(const char* name, void* data, uint32_t size, int prependSize) {
  if (size == 0) return 1;
  if (data == nullptr) return 0;
  // The log always carries the size flag here, whatever the caller asked:
  // a replay of this entry writes the prefix.
  return entries::ReplaceEntry(OpenForWriting(this, name), data, size, prependSize, 1);
}
