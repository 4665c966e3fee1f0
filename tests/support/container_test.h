// A fresh container in a temporary folder for each test, and whole streams
// read back: the setup almost every library test starts from.
#ifndef AOSTORE_TESTS_SUPPORT_CONTAINER_TEST_H
#define AOSTORE_TESTS_SUPPORT_CONTAINER_TEST_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "support/temp_dir.h"

namespace ao::test {

using Bytes = std::vector<unsigned char>;

// Sets the offset width Create uses for the life of the object.
class OffsetWidth {
 public:
  explicit OffsetWidth(int use64) : saved_(aoStorage::g_bUse64BitOffsets) { aoStorage::g_bUse64BitOffsets = use64; }
  ~OffsetWidth() { aoStorage::g_bUse64BitOffsets = saved_; }
  OffsetWidth(const OffsetWidth&) = delete;
  OffsetWidth& operator=(const OffsetWidth&) = delete;

 private:
  int saved_;
};

// Every byte of a stream from its start; the stream stays open.
inline Bytes ReadWhole(aoStream* stream) {
  Bytes bytes(static_cast<size_t>(stream->GetLength()));
  stream->Seek(0, 0, true);
  if (!bytes.empty()) {
    EXPECT_EQ(stream->Read(bytes.data(), stream->GetLength()), stream->GetLength());
  }
  return bytes;
}

// Every byte of the named stream below parent (the container or a folder),
// or nothing when it cannot be opened.
template <typename Parent>
Bytes ReadChild(Parent* parent, const char* name) {
  aoStream* child = parent->OpenStream(name, kAoModeInspect);
  EXPECT_NE(child, nullptr) << name;
  if (child == nullptr) return {};
  Bytes bytes = ReadWhole(child);
  child->Release();
  return bytes;
}

class ContainerTest : public ::testing::Test {
 protected:
  void SetUp() override { Create(); }
  void TearDown() override { Close(); }
  void Close() {
    if (storage_ != nullptr) storage_->Release();
    storage_ = nullptr;
  }
  // A new container on path_; `wide` chooses 64-bit offsets, else 32-bit ones.
  aoStorage* Create(uint32_t minBlockCapacity = 0, bool wide = true) {
    Close();
    OffsetWidth width(wide ? 1 : 0);
    storage_ = aoStorage::Create(path_.c_str(), kAoModeEdit, minBlockCapacity);
    EXPECT_NE(storage_, nullptr);
    return storage_;
  }
  // Closes the container and opens its file again.
  aoStorage* Reopen(uint32_t mode = kAoModeEdit) {
    Close();
    storage_ = aoStorage::Open(path_.c_str(), mode, 0, 0);
    EXPECT_NE(storage_, nullptr);
    return storage_;
  }
  aoStream* RootFolder(const char* name) { return storage_->CreateStream(name, 1, kAoModeEdit); }
  Bytes FileBytes() const { return ReadWholeFile(path_); }

  TempDir dir_;
  std::string path_ = dir_.File("container.dat");
  aoStorage* storage_ = nullptr;
};

}  // namespace ao::test

#endif  // AOSTORE_TESTS_SUPPORT_CONTAINER_TEST_H
