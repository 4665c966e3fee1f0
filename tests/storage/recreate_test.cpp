// Rebuilding a container: the same tree with the same bytes and traits, in a
// file no larger than its streams need, and nothing touched when the rebuild
// cannot be done.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "tree_support.h"

namespace {

using namespace ao::test;

class Recreate : public ContainerTest {
 protected:
  // Every kind of record, fragmented by interleaved writes, holed by removals.
  void SetUp() override {
    ContainerTest::SetUp();
    aoStream* fast = storage_->CreateStreamFast("fast", kAoModeEdit);
    ASSERT_EQ(fast->Write("quick", 5, true, nullptr), 5);
    fast->Release();
    aoStream* log = storage_->CreateStream("log", 0x00090000, kAoModeEdit);
    aoStream* docs = RootFolder("docs");
    std::vector<aoStream*> chain{docs->CreateStream("archive", 1, kAoModeEdit, 1)};
    for (uint32_t i = 0; i < 40; ++i) {
      const std::string name = "item" + std::to_string(i);
      WriteChild(i % 2 == 0 ? docs : chain[0], name.c_str(), Pattern(100 + 37 * i, i));
      ASSERT_EQ(log->Write(name.data(), static_cast<int64_t>(name.size()), false, nullptr),
                static_cast<int64_t>(name.size()));
    }
    for (const char* name : {"item4", "item10", "item22"}) ASSERT_TRUE(docs->OpenStream(name, kAoModeEdit)->Remove());
    aoStream* prefixed = chain[0]->CreateStream("prefixed", 0x00020000, kAoModeEdit, 1);
    ASSERT_EQ(prefixed->PrependSize(4), 1);
    ASSERT_EQ(prefixed->Write("body", 4, true, nullptr), 4);
    ASSERT_TRUE(prefixed->UpdateStreamHeaderChildStreamInfo(0x5));
    prefixed->Release();
    chain[0]->CreateStream("item1", 0, kAoModeEdit, 0)->Release();  // a namesake
    for (int level = 0; level < 12; ++level)
      chain.push_back(chain.back()->CreateStream(("level" + std::to_string(level)).c_str(), 1, kAoModeEdit, 1));
    WriteChild(chain.back(), "bottom", Pattern(3000, 77));
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) (*it)->Release();
    aoStream* removed = storage_->CreateStream("removed", kAoModeEdit);
    ASSERT_EQ(removed->Write(Pattern(20000, 5).data(), 20000, true, nullptr), 20000);
    ASSERT_TRUE(removed->Remove());
    storage_->CreateStream("emptyRoot", kAoModeEdit)->Release();  // takes over 20000 bytes of blocks
    docs->Release();
    log->Release();
  }

  // A compact stream is one exact block (a 40-byte header and the data), or
  // none without data; a compact file is its header, first table and those.
  static int64_t Needed(aoStream* stream) {
    EXPECT_EQ(stream->GetAllocLength(), stream->GetLength()) << stream->GetName();
    int64_t size = stream->GetLength() > 0 ? 40 + stream->GetLength() : 0;
    int64_t position = 0;
    for (aoStream* child = stream->IsFolder() != 0 ? stream->OpenStreamFirst(&position, kAoModeInspect) : nullptr;
         child != nullptr; child = stream->OpenStreamNext(&position, kAoModeInspect)) {
      size += Needed(child);
      child->Release();
    }
    return size;
  }
};

TEST_F(Recreate, TheRebuiltFileHoldsTheSameTreeInTheSpaceItNeeds) {
  const TreeListing before = ListTree(storage_);
  EXPECT_EQ(before.size(), 57u);
  const int64_t oldSize = FileSize(path_);
  Close();
  ASSERT_EQ(aoStorage::Recreate(path_.c_str()), 1);
  EXPECT_FALSE(FileExists(path_ + "_tmp"));
  Reopen(kAoModeInspect);
  EXPECT_EQ(ListTree(storage_), before);
  int64_t needed = 32 + 16 + 64 * 92;
  void* position = nullptr;
  for (aoStream* root = storage_->OpenStreamFirst(&position, kAoModeInspect, 0); root != nullptr;
       root = storage_->OpenStreamNext(&position, kAoModeInspect)) {
    needed += Needed(root);
    root->Release();
  }
  EXPECT_EQ(FileSize(path_), needed);
  EXPECT_LT(needed, oldSize);
  // The reserved-slot stream is still where a fast open looks.
  Close();
  storage_ = aoStorage::OpenFast(path_.c_str(), kAoModeInspect, 0);
  aoStream* fast = storage_->OpenStreamFast("fast", kAoModeInspect);
  ASSERT_NE(fast, nullptr);
  EXPECT_EQ(ReadWhole(fast), Text("quick"));
  fast->Release();
}

TEST_F(Recreate, AnOpenContainerIsRebuiltAndReopenedForWriting) {
  const TreeListing before = ListTree(storage_);
  aoStorage* rebuilt = aoStorage::Recreate(storage_, path_.c_str());
  ASSERT_NE(rebuilt, nullptr);
  storage_ = rebuilt;
  EXPECT_FALSE(FileExists(path_ + "_tmp"));
  EXPECT_EQ(ListTree(storage_), before);
  storage_->CreateStream("added", kAoModeEdit)->Release();
  storage_ = aoStorage::Recreate(storage_, path_.c_str());
  ASSERT_NE(storage_, nullptr);
  EXPECT_EQ(ListTree(storage_).size(), before.size() + 1);
}

TEST_F(Recreate, NothingIsTouchedWhenTheRebuildCannotBeDone) {
  // Read with the container closed: while it is open for writing, the file
  // holds room grown ahead of its end.
  Close();
  const Bytes original = FileBytes();
  Reopen();
  aoStorage* other = aoStorage::Open(path_.c_str(), kAoModeInspect, 0, 0);  // another user of the file
  EXPECT_EQ(aoStorage::Recreate(storage_, path_.c_str()), storage_);
  Close();
  EXPECT_EQ(aoStorage::Recreate(path_.c_str()), 0);
  other->Release();
  std::filesystem::create_directory(path_ + "_tmp");  // no temporary file can be made
  EXPECT_EQ(aoStorage::Recreate(path_.c_str()), 0);
  Reopen();
  EXPECT_EQ(aoStorage::Recreate(storage_, path_.c_str()), storage_);
  std::filesystem::remove(path_ + "_tmp");

  // A stream that cannot be read whole: the partial rebuild goes away.
  aoStream* docs = storage_->OpenStream("docs", kAoModeInspect);
  aoStream* item = docs->OpenStream("item2", kAoModeInspect);
  Bytes damaged = original;
  damaged[static_cast<size_t>(item->GetHeader().firstBlock)] = 0;  // its block marker
  item->Release();
  docs->Release();
  Close();
  EXPECT_EQ(FileBytes(), original);
  WriteWholeFile(path_, damaged);
  EXPECT_EQ(aoStorage::Recreate(path_.c_str()), 0);
  EXPECT_FALSE(FileExists(path_ + "_tmp"));
  EXPECT_EQ(FileBytes(), damaged);
}

}  // namespace
