// Child records that cross a block boundary of their folder's data: a folder
// that took over the blocks of a removed stream writes its records into
// them, so a record may start near the end of one block and go on in the
// next. Every later write of such a record must land in both pieces.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "tree_support.h"

namespace {

using namespace ao::test;

using FolderStraddle = ContainerTest;

TEST_F(FolderStraddle, ARecordSplitAtABlockEndIsWrittenInBothPieces) {
  // "f" takes over the 200-byte first block of "donor", no longer the file's
  // tail block: the count and two records fill 188 bytes of it.
  Create(200);
  aoStream* donor = storage_->CreateStream("donor", kAoModeEdit);
  ASSERT_EQ(donor->Write("0123456789", 10, true, nullptr), 10);
  const int64_t inherited = donor->GetHeader().firstBlock;
  aoStream* other = storage_->CreateStream("other", kAoModeEdit);
  ASSERT_EQ(other->Write("x", 1, true, nullptr), 1);
  other->Release();
  ASSERT_TRUE(donor->Remove());
  aoStream* folder = RootFolder("f");
  ASSERT_EQ(folder->GetHeader().firstBlock, inherited);
  WriteChild(folder, "one", {});
  WriteChild(folder, "two", {});
  aoStream* third = folder->CreateStream("third", 0, kAoModeEdit, 1);
  const tag_aoStreamOffset where = third->GetWhere();
  EXPECT_EQ(where.recordOffset, inherited + 40 + 188);
  EXPECT_EQ(where.splitAt, 12u);
  const Bytes data = Pattern(3000, 7);
  ASSERT_EQ(third->Write(data.data(), 3000, true, nullptr), 3000);
  const int64_t dataBlock = third->GetHeader().firstBlock;
  third->Release();
  // The length (offset 68) and first block (offset 84) lie in the second
  // piece, 12 bytes earlier than in an unbroken record; the bytes after the
  // first piece are the next block's, untouched.
  const Bytes file = FileBytes();
  EXPECT_EQ(std::string(file.begin() + where.recordOffset + 4, file.begin() + where.recordOffset + 12),
            std::string("third\0\0\0", 8));
  EXPECT_EQ(GetLe64(file, where.recordOffset + 12) & 0xFFFFFFFFu, 0xFAFAFAFAu);
  EXPECT_EQ(GetLe64(file, where.continuation + 68 - 12), 3000u);
  EXPECT_EQ(static_cast<int64_t>(GetLe64(file, where.continuation + 84 - 12)), dataBlock);
  folder->Release();

  // Found again (by a scan, then from a preloaded map), renamed across the
  // split, removed, and its record taken over.
  Reopen();
  folder = storage_->OpenStream("f", kAoModeEdit);
  EXPECT_EQ(ReadChild(folder, "third"), data);
  third = folder->OpenStream("third", kAoModeEdit);
  ASSERT_TRUE(third->Rename("renamed-across-the-boundary"));
  third->Release();
  folder->PreloadChildren();
  aoStream* renamed = folder->OpenStream("renamed-across-the-boundary", kAoModeEdit);
  EXPECT_EQ(renamed->GetWhere().continuation, where.continuation);
  ASSERT_TRUE(renamed->Remove());
  aoStream* reused = folder->CreateStream("fourth", 0x00030000, kAoModeEdit, 1);
  EXPECT_EQ(reused->GetWhere().recordOffset, where.recordOffset);
  ASSERT_EQ(reused->Write("tail", 4, true, nullptr), 4);
  reused->Release();
  folder->Release();
  Reopen(kAoModeInspect);
  folder = storage_->OpenStream("f", kAoModeInspect);
  EXPECT_EQ(Names(folder), (std::vector<std::string>{"one", "two", "fourth"}));
  aoStream* fourth = folder->OpenStream("fourth", kAoModeInspect);
  EXPECT_EQ(fourth->GetDuration(), 3);
  EXPECT_EQ(fourth->GetHeader().firstBlock, dataBlock);
  EXPECT_EQ(ReadWhole(fourth), Text("tail"));
  fourth->Release();
  folder->Release();
}

TEST_F(FolderStraddle, RecordsNeverSpreadOverAnInheritedChainOfTinyBlocks) {
  // The donor's data lies in 4-byte blocks: each write came after another
  // stream had taken the file's tail.
  aoStream* donor = storage_->CreateStream("donor", kAoModeEdit);
  aoStream* other = storage_->CreateStream("other", kAoModeEdit);
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(donor->Write("abcd", 4, false, nullptr), 4);
    ASSERT_EQ(other->Write("x", 1, false, nullptr), 1);
  }
  other->Release();
  ASSERT_TRUE(donor->Remove());
  aoStream* folder = RootFolder("f");
  for (uint32_t i = 0; i < 3; ++i) {
    aoStream* child = folder->CreateStream(("child" + std::to_string(i)).c_str(), 0, kAoModeEdit, 1);
    EXPECT_EQ(child->GetWhere().splitAt, 0u);
    ASSERT_EQ(child->Write(Pattern(100 + i, i).data(), 100 + i, true, nullptr), 100 + i);
    child->Release();
  }
  folder->Release();
  Reopen(kAoModeInspect);
  folder = storage_->OpenStream("f", kAoModeInspect);
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(ReadChild(folder, ("child" + std::to_string(i)).c_str()), Pattern(100 + i, i));
  folder->Release();
}

}  // namespace
