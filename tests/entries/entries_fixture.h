// A fresh container per test, and the raw bytes of entry streams.
#ifndef AOSTORE_TESTS_ENTRIES_ENTRIES_FIXTURE_H
#define AOSTORE_TESTS_ENTRIES_ENTRIES_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "support/temp_dir.h"

namespace ao::test {

using Bytes = std::vector<unsigned char>;

class ContainerTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (storage_ != nullptr) storage_->Release();
  }
  // A new container; `wide` chooses 64-bit offsets, else 32-bit ones.
  aoStorage* Make(bool wide = true) {
    const int saved = aoStorage::g_bUse64BitOffsets;
    aoStorage::g_bUse64BitOffsets = wide ? 1 : 0;
    storage_ = aoStorage::Create(Path().c_str(), kAoModeEdit, 0);
    aoStorage::g_bUse64BitOffsets = saved;
    return storage_;
  }
  // Closes the container and opens its file again.
  aoStorage* Reopen() {
    storage_->Release();
    storage_ = aoStorage::Open(Path().c_str(), kAoModeEdit, 0, 0);
    return storage_;
  }
  std::string Path() const { return dir_.File("entries.dat"); }

  TempDir dir_;
  aoStorage* storage_ = nullptr;
};

// Every data byte of an open stream, read from its start; the stream is released.
inline Bytes Drain(aoStream* stream) {
  Bytes bytes;
  if (stream == nullptr) return bytes;
  bytes.resize(static_cast<size_t>(stream->GetLength()));
  const int64_t got = stream->Read(bytes.data(), static_cast<int64_t>(bytes.size()));
  bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
  stream->Release();
  return bytes;
}

inline Bytes RootBytes(aoStorage* storage, const char* name) { return Drain(storage->OpenStream(name, kAoModeInspect)); }
inline Bytes ChildBytes(aoStream* folder, const char* name) { return Drain(folder->OpenStream(name, kAoModeInspect)); }

}  // namespace ao::test

#endif  // AOSTORE_TESTS_ENTRIES_ENTRIES_FIXTURE_H
