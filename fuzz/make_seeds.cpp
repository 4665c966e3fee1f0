// Writes the fuzzers' seed corpus: small valid containers of every layout,
// and edit logs of small recorded sessions.
//   aostore_fuzz_seeds DIR   ->  DIR/container/*.dat, DIR/replay/*.log
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "genfile/key_record.h"
#include "settings/settings_record.h"

namespace fs = std::filesystem;

namespace {

void Populate(aoStorage* storage, bool blocks) {
  storage->SetEntry("e", 42);
  storage->SetEntry("s", "text entry");
  storage->SetEntryFast("fast", 7);
  unsigned char blob[5] = {1, 2, 3, 4, 5};
  storage->SetEntry("blob", blob, 5);
  storage->SetEntryEraseOld("erased", blob, 5, 1);
  aoStream* folder = storage->CreateStream("folder", 1, kAoModeEdit);
  if (folder == nullptr) return;
  for (const char* name : {"a", "b", "e"}) {
    if (aoStream* child = folder->CreateStream(name, 0, kAoModeEdit, 1)) {
      child->Write(name, 1, false, nullptr);
      child->Release();
    }
  }
  RECT rect{1, 2, 3, 4};
  folder->SetEntry("r", &rect);
  if (aoStream* sub = folder->CreateStream("sub", 1, kAoModeEdit, 1)) {
    sub->SetEntry("deep", 1.5);
    sub->Release();
  }
  folder->Release();
  if (blocks) {
    // Two streams growing in turn make chains of several blocks.
    aoStream* one = storage->CreateStream("one", kAoModeEdit);
    aoStream* two = storage->CreateStream("two", kAoModeEdit);
    for (int i = 0; i < 3 && one && two; ++i) {
      one->Write("1111", 4, false, nullptr);
      two->Write("22", 2, false, nullptr);
    }
    if (one) one->Release();
    if (two) two->Release();
  }
}

std::vector<unsigned char> Slurp(const std::string& path) {
  std::vector<unsigned char> bytes;
  if (FILE* file = std::fopen(path.c_str(), "rb")) {
    int c;
    while ((c = std::fgetc(file)) != EOF) bytes.push_back(static_cast<unsigned char>(c));
    std::fclose(file);
  }
  return bytes;
}

void Spill(const std::string& path, const unsigned char* data, size_t size) {
  if (FILE* file = std::fopen(path.c_str(), "wb")) {
    std::fwrite(data, 1, size, file);
    std::fclose(file);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  const fs::path root = argv[1];
  fs::create_directories(root / "container");
  fs::create_directories(root / "replay");
  fs::create_directories(root / "records");
  const int saved = aoStorage::g_bUse64BitOffsets;
  for (int wide = 0; wide < 2; ++wide) {
    aoStorage::g_bUse64BitOffsets = wide;
    for (int blocks = 0; blocks < 2; ++blocks) {
      const std::string path = (root / "container" / ("w" + std::to_string(wide) + "b" + std::to_string(blocks) + ".dat")).string();
      if (aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0)) {
        Populate(storage, blocks != 0);
        storage->Release();
      }
    }
    const std::string empty = (root / "container" / ("empty" + std::to_string(wide) + ".dat")).string();
    if (aoStorage* storage = aoStorage::Create(empty.c_str(), kAoModeEdit, 0)) storage->Release();
  }
  aoStorage::g_bUse64BitOffsets = saved;
  // A legacy layout: the 26-byte header of the oldest files.
  auto legacy = Slurp((root / "container" / "w0b0.dat").string());
  if (legacy.size() > 32) {
    legacy[24] = '_';
    legacy[25] = 0;
    legacy.erase(legacy.begin() + 26, legacy.begin() + 32);
    Spill((root / "container" / "legacy.dat").string(), legacy.data(), legacy.size());
  }
  // A recorded session for the replay fuzzer.
  const std::string scratch = (root / "session.tmp").string();
  if (aoStorage* storage = aoStorage::Create(scratch.c_str(), kAoModeEdit, 0)) {
    storage->StartRecording();
    Populate(storage, true);
    if (aoStream* folder = storage->OpenStream("folder", kAoModeEdit)) {
      if (aoStream* child = folder->OpenStream("a", kAoModeEdit)) {
        if (!child->Remove()) child->Release();
      }
      folder->Release();
    }
    if (CCompRecorder* recorder = storage->StopRecording()) {
      unsigned int length = 0;
      unsigned char* log = recorder->Detach(&length);
      Spill((root / "replay" / "session.log").string(), log, length);
      CCompRecorder::Free(log);
      delete recorder;
    }
    storage->Release();
  }
  fs::remove(scratch);
  // Record readers: a clear settings record, a clear user record, a key record.
  for (const ao::settings::RecordDescriptor* kind : {&ao::settings::kSettingsRecord, &ao::settings::kUserRecord}) {
    std::vector<unsigned char> record(32 + kind->dataSize, 0);
    ao::settings::EncodeOuterHeader(ao::settings::MakeOuterHeader(*kind, false), record.data());
    ao::settings::EncodeInnerHeader(ao::settings::MakeInnerHeader(*kind), record.data() + 16);
    Spill((root / "records" / (std::string(kind->streamName) + ".rec")).string(), record.data(), record.size());
  }
  StreamKeyBuf key{};
  const auto keyRecord = ao::genfile::EncodeKeyRecord(key);
  Spill((root / "records" / "key.rec").string(), keyRecord.data(), keyRecord.size());
  return 0;
}
