// Copying streams and folder trees, and reading whole streams into buffers
// (with and without a size prefix).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "platform/fault_files.h"
#include "tree_support.h"

namespace {

using namespace ao::test;

class FolderCopy : public ContainerTest {
 protected:
  static TreeListing Below(aoStream* folder) {
    TreeListing out;
    ListStream(folder, "", out);
    out.erase(out.begin());  // the folder itself
    return out;
  }
};

TEST_F(FolderCopy, ATreeIsCopiedWithItsTraitsButNeverIntoItself) {
  aoStream* source = RootFolder("source");
  WriteChild(source, "a", Pattern(1000, 1));
  WriteChild(source, "empty", {});
  aoStream* sub = source->CreateStream("sub", 0x00070001, kAoModeEdit, 1);
  aoStream* prefixed = sub->CreateStream("prefixed", 0x00020000, kAoModeEdit, 1);
  ASSERT_EQ(prefixed->PrependSize(3), 1);
  ASSERT_EQ(prefixed->Write("xyz", 3, true, nullptr), 3);
  ASSERT_TRUE(prefixed->UpdateStreamHeaderChildStreamInfo(0x44));
  prefixed->Release();
  WriteChild(sub, "deeper", Text("deep"), "c");
  sub->Release();
  aoStream* copy = RootFolder("copy");
  ASSERT_TRUE(source->CopyFolder(copy));
  EXPECT_EQ(Below(copy), Below(source));
  EXPECT_EQ(Below(copy).size(), 6u);
  const Bytes before = FileBytes();
  aoStream* inner = copy->OpenStream("sub", kAoModeEdit);
  EXPECT_FALSE(copy->CopyFolder(inner));
  EXPECT_FALSE(copy->CopyFolder(copy));
  EXPECT_EQ(FileBytes(), before);
  inner->Release();
  copy->Release();
  source->Release();
}

TEST_F(FolderCopy, CopyingOverAnExistingTreeMergesAndResolvesKindConflicts) {
  aoStream* source = RootFolder("source");
  WriteChild(source, "same", Text("new bytes"));
  WriteChild(source, "wasFolder", Text("now data"));
  WriteChild(source, "wasData", Text("inner"), "inner");
  WriteChild(source, "shared", Text("from source"), "s1");
  WriteChild(source, "held", Text("h"), "h");
  aoStream* target = RootFolder("target");
  WriteChild(target, "same", Pattern(4000, 9));
  WriteChild(target, "wasFolder", Text("lost"), "lost");
  WriteChild(target, "wasData", Text("plain"));
  aoStream* shared = target->CreateStream("shared", 1, kAoModeEdit, 1);
  WriteChild(shared, "s1", Text("old"));
  WriteChild(shared, "s2", Text("kept"));
  WriteChild(target, "onlyHere", Text("kept too"));
  aoStream* held = target->CreateStream("held", 1, kAoReadWrite | kAoExclusive, 1);

  // A folder held exclusively is not copied into: that alone fails.
  EXPECT_FALSE(source->CopyFolder(target));
  EXPECT_TRUE(Names(held).empty());
  EXPECT_EQ(ReadChild(target, "same"), Text("new bytes"));
  EXPECT_EQ(ReadChild(target, "wasFolder"), Text("now data"));
  aoStream* made = target->OpenStream("wasData", kAoModeInspect);
  EXPECT_EQ(ReadChild(made, "inner"), Text("inner"));
  EXPECT_EQ(ReadChild(shared, "s1"), Text("from source"));
  EXPECT_EQ(ReadChild(shared, "s2"), Text("kept"));
  EXPECT_EQ(Names(target), (std::vector<std::string>{"same", "wasFolder", "wasData", "shared", "onlyHere", "held"}));
  for (aoStream* stream : {made, held, shared, target, source}) stream->Release();
}

TEST_F(FolderCopy, ABigFolderIsCopiedWithoutRescanningTheDestination) {
  // Every record in a block of its own. (Preloaded, the source appends new
  // children without a scan.)
  aoStream* source = RootFolder("source");
  source->PreloadChildren();
  for (uint32_t i = 0; i < 1500; ++i) {
    aoStream* child = source->CreateStream(("c" + std::to_string(i)).c_str(), 0, kAoModeEdit, 0);
    ASSERT_EQ(child->Write(Pattern(20, i).data(), 20, true, nullptr), 20);
    child->Release();
  }
  aoStream* target = RootFolder("target");
  WriteChild(target, "c7", Text("old"));
  ao::platform::ScopedFaultFiles files;
  ASSERT_TRUE(source->CopyFolder(target));
  EXPECT_LT(files->reads(), 20 * 1500);  // a few reads per child, not a scan each
  EXPECT_EQ(target->GetNumChildren(), 1500u);
  EXPECT_EQ(ReadChild(target, "c7"), Pattern(20, 7));
  EXPECT_EQ(ReadChild(target, "c1499"), Pattern(20, 1499));
  target->Release();
  source->Release();
}

TEST_F(FolderCopy, CopiesAndWholeStreamBuffers) {
  aoStream* good = storage_->CreateStream("good", kAoModeEdit);
  ASSERT_EQ(good->PrependSize(12), 1);
  // The data lands in a block of its own: the prefix ends at a block's end.
  storage_->CreateStream("between", kAoModeEdit)->Release();
  aoStream* other = storage_->OpenStream("between", kAoModeEdit);
  ASSERT_EQ(other->Write("between", 7, true, nullptr), 7);
  ASSERT_EQ(good->Write("0123456789AB", 12, true, nullptr), 12);
  good->Seek(0, 0, true);
  unsigned char* buffer = nullptr;
  int64_t length = -1;
  ASSERT_EQ(good->ReadAll(&buffer, &length), 1);
  EXPECT_EQ(std::string(buffer, buffer + length), "0123456789AB");
  aoStream::FreeBuffer(buffer);
  EXPECT_EQ(buffer, nullptr);
  // The skipped head is as wide as the file's offsets.
  good->Seek(0, 0, true);
  ASSERT_EQ(good->CopyStreamToBuffer(buffer, 1), 8u);
  EXPECT_EQ(std::string(buffer, buffer + 8), "456789AB");
  aoStream::FreeBuffer(buffer);

  good->Seek(0, 0, true);
  ASSERT_TRUE(good->CopyStream(other));
  EXPECT_EQ(ReadWhole(other), ReadWhole(good));
  ASSERT_EQ(good->Write("!", 1, false, nullptr), 1);  // the prefix now disagrees
  good->Seek(0, 0, true);
  EXPECT_EQ(good->ReadAll(&buffer, &length), 0);
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(length, 0);
  aoStream* empty = storage_->CreateStream("empty", kAoModeEdit);
  EXPECT_FALSE(empty->CopyStream(other));  // and the destination is emptied
  EXPECT_EQ(other->GetLength(), 0);
  for (aoStream* stream : {empty, other, good}) stream->Release();
}

}  // namespace
