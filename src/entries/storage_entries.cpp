// aoStorage: typed entries, each a root stream whose bytes are the value.
#include "aostore/recorder.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "entries/entry_io.h"

namespace entries = ao::entries;

namespace {

// The entry stream for reading, found through the root name map; null when
// the name is unknown or the open is refused.
aoStream* OpenForReading(aoStorage* storage, const char* name) {
  tag_aoStreamOffset where;
  if (name == nullptr || !storage->FindStreamOffset(name, where)) return nullptr;
  return storage->OpenStreamByOffset(where, name, kAoModeInspect);
}

aoStream* OpenForWriting(aoStorage* storage, const char* name) {
  return name != nullptr ? storage->OpenOrCreateStream(name, 0) : nullptr;
}

// The fast setters reach only the reserved slots; a new entry is created in
// one of them.
aoStream* OpenFastForWriting(aoStorage* storage, const char* name) {
  if (name == nullptr) return nullptr;
  aoStream* stream = storage->OpenStreamFast(name, kAoModeEdit);
  if (stream == nullptr) stream = storage->CreateStreamHelper(name, 0, kAoModeEdit, true, false);
  if (stream != nullptr) {
    if (CCompRecorder* recorder = storage->GetRecorder()) recorder->OpEnterFast(name, 0, stream);
  }
  return stream;
}

aoStream* OpenFastForReading(aoStorage* storage, const char* name) {
  return name != nullptr ? storage->OpenStreamFast(name, kAoModeInspect) : nullptr;
}

}  // namespace

std::string aoStorage::GetEntry(const char* name, const char* def) {
  return entries::ReadString(OpenForReading(this, name), def);
}
int aoStorage::GetEntry(const char* name, int def) { return entries::ReadScalar(OpenForReading(this, name), def); }
uint32_t aoStorage::GetEntry(const char* name, uint32_t def) {
  return static_cast<uint32_t>(GetEntry(name, static_cast<int>(def)));
}
double aoStorage::GetEntry(const char* name, double def) {
  return entries::ReadScalar(OpenForReading(this, name), def);
}
int64_t aoStorage::GetEntry(const char* name, int64_t def) {
  return entries::ReadScalar(OpenForReading(this, name), def);
}

std::string aoStorage::GetEntryFast(const char* name, const char* def) {
  return entries::ReadString(OpenFastForReading(this, name), def);
}
int aoStorage::GetEntryFast(const char* name, int def) {
  return entries::ReadScalar(OpenFastForReading(this, name), def);
}
double aoStorage::GetEntryFast(const char* name, double def) {
  return entries::ReadScalar(OpenFastForReading(this, name), def);
}
int64_t aoStorage::GetEntryFast(const char* name, int64_t def) {
  return entries::ReadScalar(OpenFastForReading(this, name), def);
}

int aoStorage::GetEntryErasedOld(const char* name, void** data, unsigned int* size) {
  if (data == nullptr || size == nullptr) return 0;
  *data = nullptr;
  *size = 0;
  return entries::ReadReplacedEntry(OpenForReading(this, name), data, size);
}
int aoStorage::GetEntryErasedOld(const char* name, void* buffer, unsigned int size) {
  return entries::ReadReplacedEntryInto(OpenForReading(this, name), buffer, size);
}

int aoStorage::SetEntry(const char* name, const char* value) {
  return entries::InsertAndRelease(OpenForWriting(this, name), value != nullptr ? value : "");
}
int aoStorage::SetEntry(const char* name, int value) { return entries::InsertAndRelease(OpenForWriting(this, name), value); }
int aoStorage::SetEntry(const char* name, uint32_t value) { return SetEntry(name, static_cast<int>(value)); }
int aoStorage::SetEntry(const char* name, double value) {
  return entries::InsertAndRelease(OpenForWriting(this, name), value);
}
int aoStorage::SetEntry(const char* name, int64_t value) {
  return entries::InsertAndRelease(OpenForWriting(this, name), value);
}

int aoStorage::SetEntryFast(const char* name, const char* value) {
  return entries::InsertAndRelease(OpenFastForWriting(this, name), value != nullptr ? value : "");
}
int aoStorage::SetEntryFast(const char* name, int value) {
  return entries::InsertAndRelease(OpenFastForWriting(this, name), value);
}
int aoStorage::SetEntryFast(const char* name, double value) {
  return entries::InsertAndRelease(OpenFastForWriting(this, name), value);
}
int aoStorage::SetEntryFast(const char* name, int64_t value) {
  return entries::InsertAndRelease(OpenFastForWriting(this, name), value);
}

int aoStorage::SetEntry(const char* name, void* data, uint32_t size) {
  if (size == 0) return 1;
  if (data == nullptr) return 0;
  return entries::AppendEntry(OpenForWriting(this, name), data, size, true, m_b64);
}

int aoStorage::SetEntryNoPrefix(const char* name, void* data, uint32_t size) {
  if (size == 0) return 1;
  if (data == nullptr) return 0;
  return entries::AppendEntry(OpenForWriting(this, name), data, size, false, m_b64);
}

int aoStorage::SetEntryEraseOld(const char* name, void* data, uint32_t size, int prependSize) {
  if (size == 0) return 1;
  if (data == nullptr) return 0;
  return entries::ReplaceEntry(OpenForWriting(this, name), data, size, prependSize, prependSize);
}
