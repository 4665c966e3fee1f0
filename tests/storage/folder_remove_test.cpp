// Removing streams and whole subtrees: what is freed, what stays for reuse,
// and what an open child, a read-only open or a looping tree prevents.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "tree_support.h"

namespace {

using namespace ao::test;

class FolderRemove : public ContainerTest {
 protected:
  // top/{a, sub/{b, deeper/{c}}, z}
  void SetUp() override {
    ContainerTest::SetUp();
    aoStream* top = RootFolder("top");
    WriteChild(top, "a", Text("a"));
    aoStream* sub = top->CreateStream("sub", 1, kAoModeEdit, 1);
    WriteChild(sub, "b", Text("b"));
    WriteChild(sub, "deeper", Text("c"), "c");
    WriteChild(top, "z", Text("z"));
    sub->Release();
    top->Release();
  }
};

TEST_F(FolderRemove, ASubtreeGoesWithItsFolderAndItsRecordsStayFree) {
  aoStream* top = storage_->OpenStream("top", kAoModeEdit);
  aoStream* sub = top->OpenStream("sub", kAoModeEdit);
  aoStream* deeper = sub->OpenStream("deeper", kAoModeInspect);
  const int64_t records[] = {sub->GetWhere().recordOffset, deeper->GetWhere().recordOffset};
  deeper->Release();
  ASSERT_TRUE(sub->Remove());
  EXPECT_EQ(top->IsStreamOpen("sub"), nullptr);
  EXPECT_EQ(Names(top), (std::vector<std::string>{"a", "z"}));
  const Bytes file = FileBytes();
  for (int64_t record : records) {
    EXPECT_EQ(file[static_cast<size_t>(record) + 4], 0) << "name cleared";
    EXPECT_EQ(file[static_cast<size_t>(record) + 67], 0) << "no longer a folder";
    EXPECT_EQ(GetLe64(file, record + 68), 0u) << "no data";
  }
  aoStream* again = top->CreateStream("again", 0, kAoModeEdit, 1);
  EXPECT_EQ(again->GetWhere().recordOffset, records[0]);
  again->Release();
  top->ClearFolder();
  EXPECT_TRUE(Names(top).empty());
  EXPECT_EQ(top->GetNumChildren(), 3u);  // the records stay, free
  top->Release();
}

TEST_F(FolderRemove, OpenChildrenAndReadOnlyOpensKeepTheTree) {
  const Bytes before = FileBytes();
  aoStream* top = storage_->OpenStream("top", kAoModeInspect);
  EXPECT_FALSE(top->Remove());
  EXPECT_EQ(FileBytes(), before);
  top->Release();
  // Open lists belong to the object a child was opened through: "sub" held
  // exclusively through "top" stops the removal of "top" when it is reached,
  // after "a" went.
  top = storage_->OpenStream("top", kAoModeEdit);
  aoStream* sub = top->OpenStream("sub", kAoReadWrite | kAoExclusive);
  EXPECT_FALSE(top->Remove());
  EXPECT_EQ(Names(top), (std::vector<std::string>{"sub", "z"}));
  aoStream* held = sub->OpenStream("b", kAoReadWrite | kAoExclusive);
  EXPECT_FALSE(sub->Remove());
  EXPECT_EQ(Names(sub), (std::vector<std::string>{"b", "deeper"}));
  EXPECT_EQ(ReadWhole(held), Text("b"));
  held->Release();
  ASSERT_TRUE(sub->Remove());
  ASSERT_TRUE(top->Remove());
  EXPECT_EQ(storage_->OpenStream("top", kAoModeInspect), nullptr);
}

TEST_F(FolderRemove, ALoopingTreeEndsWithAFailureNotAHang) {
  // "sub" is made to hold its parent's data: its children are its parent's
  // children, itself among them, forever.
  aoStream* top = storage_->OpenStream("top", kAoModeEdit);
  const t_aoStreamU folder = top->GetHeader();
  aoStream* sub = top->OpenStream("sub", kAoModeInspect);
  const auto at = static_cast<size_t>(sub->GetWhere().recordOffset);
  sub->Release();
  top->Release();
  Close();
  Bytes file = FileBytes();
  for (size_t i = 0; i < 8; ++i) {
    file[at + 68 + i] = static_cast<unsigned char>(static_cast<uint64_t>(folder.dataLength) >> (8 * i));
    file[at + 76 + i] = static_cast<unsigned char>(static_cast<uint64_t>(folder.lastBlock) >> (8 * i));
    file[at + 84 + i] = static_cast<unsigned char>(static_cast<uint64_t>(folder.firstBlock) >> (8 * i));
  }
  WriteWholeFile(path_, file);
  Reopen();
  top = storage_->OpenStream("top", kAoModeEdit);
  aoStream* copy = RootFolder("copy");
  EXPECT_FALSE(top->CopyFolder(copy));
  EXPECT_FALSE(top->Remove());
  copy->Release();
  top->Release();
}

}  // namespace
