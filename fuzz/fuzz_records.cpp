// Arbitrary bytes stored as a child stream and read back by the key record
// reader and by the settings record reader (both kinds, clear and enciphered).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "container_walk.h"
#include "genfile/key_record.h"
#include "settings/record_io.h"

namespace {

uint64_t FixedKey() {
  static const uint64_t key = [] {
    const uint64_t provider = GetCryptContainer("FuzzContainer");
    unsigned char material[256];
    for (int i = 0; i < 256; ++i) material[i] = static_cast<unsigned char>(i * 7 + 1);
    const uint64_t hash = CreateHashObj(provider, material, sizeof material);
    return GetDeriveKey(provider, hash);
  }();
  return key;
}

bool StoreChild(const std::string& path, const uint8_t* data, size_t size) {
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  if (storage == nullptr) return false;
  bool stored = false;
  if (aoStream* folder = storage->CreateStream("S", 1, kAoModeEdit)) {
    if (aoStream* child = folder->CreateStream("C", 0, kAoModeEdit, 1)) {
      stored = size == 0 || child->Write(data, static_cast<int64_t>(size), false, nullptr) == static_cast<int64_t>(size);
      child->Release();
    }
    folder->Release();
  }
  storage->Release();
  return stored;
}

void ReadRecords(const std::string& path) {
  for (const ao::settings::RecordDescriptor* kind : {&ao::settings::kSettingsRecord, &ao::settings::kUserRecord}) {
    CVastrelFile file;
    if (file.Open(path.c_str(), 1) != 1 || file.OpenGenericStreams("S", "C") != 1) continue;
    ao::settings::OuterHeader outer;
    if (!ao::settings::ReadOuterHeader(file, &outer)) continue;
    if ((outer.flags & 1) != 0 && !ao::settings::DecryptRecordRest(file, FixedKey())) continue;
    std::vector<unsigned char> buffer(kind->dataSize);
    ao::settings::ReadRecord(file, outer, *kind, buffer.data(), buffer.size());
  }
  CVastrelFile file;
  if (file.Open(path.c_str(), 1) == 1 && file.OpenGenericStreams("S", "C") == 1) {
    StreamKeyBuf key{};
    ao::genfile::ReadKeyRecord(file, &key);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = ao::fuzz::ScratchPath("fuzz-records");
  if (StoreChild(path, data, size)) ReadRecords(path);
  std::remove(path.c_str());
  return 0;
}
