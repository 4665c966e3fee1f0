// Folders and their children through real files: nested trees, the bytes of
// a folder's data, names, duplicates, free-record reuse, physical walks,
// damaged folders and the cost of scanning big folders.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "platform/fault_files.h"
#include "tree_support.h"

namespace {

using namespace ao::test;

class FolderChildren : public ContainerTest {
 protected:
  void WriteCount(aoStream* folder, uint32_t count) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(count), static_cast<unsigned char>(count >> 8),
                                    static_cast<unsigned char>(count >> 16), static_cast<unsigned char>(count >> 24)};
    ASSERT_EQ(folder->Seek(0, 0, true), 0);
    ASSERT_EQ(folder->Write(bytes, 4, false, nullptr), 4);
  }
};

TEST_F(FolderChildren, ANestedTreeSurvivesReopening) {
  std::vector<aoStream*> chain{RootFolder("top")};
  for (const char* name : {"a", "b", "c", "d"}) {
    WriteChild(chain.back(), "data", Pattern(300, static_cast<uint32_t>(name[0])));
    chain.push_back(chain.back()->CreateStream(name, 1, kAoModeEdit, 1));
  }
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) (*it)->Release();
  Reopen(kAoModeInspect);
  chain = {storage_->OpenStream("top", kAoModeInspect)};
  for (const char* name : {"a", "b", "c", "d"}) {
    EXPECT_EQ(chain.back()->GetNumChildren(), 2u);
    EXPECT_EQ(ReadChild(chain.back(), "data"), Pattern(300, static_cast<uint32_t>(name[0])));
    chain.push_back(chain.back()->OpenStream(name, kAoModeInspect));
    ASSERT_NE(chain.back(), nullptr);
  }
  aoStream* ancestors[8] = {};
  EXPECT_EQ(chain[4]->GetChildrenOf(nullptr, ancestors, 8), 4);
  EXPECT_EQ(ancestors[3], chain[0]);
  EXPECT_EQ(chain[4]->GetChildrenOf(chain[3], ancestors, 0), 0);  // the direct parent
  EXPECT_EQ(chain[4]->GetChildrenOf(chain[0], ancestors, 0), -1);
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) (*it)->Release();
}

TEST_F(FolderChildren, AFoldersDataIsItsCountThenItsChildrensRecords) {
  for (int use64 : {1, 0}) {
    Create(0, use64 != 0);
    aoStream* folder = RootFolder("f");
    aoStream* child = folder->CreateStream("kid", 0x00050001, kAoModeEdit, 1);
    const auto block = static_cast<uint64_t>(child->GetHeader().firstBlock);
    child->Release();
    const size_t width = use64 ? 8 : 4;
    Bytes expected = {1, 0, 0, 0, 0xFC, 0xFC, 0xFC, 0xFC, 'k', 'i', 'd'};
    expected.resize(4 + (use64 ? 92 : 80), 0);
    expected[4 + 64] = 1;  // set on creation
    expected[4 + 65] = 5;  // duration: the attributes' high 16 bits
    expected[4 + 67] = 1;  // a folder
    expected[4 + 68] = 4;  // its own count makes its data 4 bytes long
    for (size_t i = 0; i < width; ++i) {
      expected[4 + 68 + width + i] = static_cast<unsigned char>(block >> (8 * i));      // last block
      expected[4 + 68 + 2 * width + i] = static_cast<unsigned char>(block >> (8 * i));  // first block
    }
    EXPECT_EQ(ReadWhole(folder), expected) << "64-bit: " << use64;
    folder->Release();
  }
}

TEST_F(FolderChildren, NamesDuplicatesRefusedOpensAndDataStreams) {
  aoStream* folder = RootFolder("f");
  WriteChild(folder, "dup", Text("first"));
  folder->CreateStream("dup", 0, kAoModeEdit, 0)->Release();
  EXPECT_EQ(folder->CreateStream("dup", 0, kAoModeEdit, 1), nullptr);
  EXPECT_EQ(ReadChild(folder, "dup"), Text("first"));
  EXPECT_EQ(Names(folder), (std::vector<std::string>{"dup", "dup"}));

  aoStream* longest = folder->CreateStream(std::string(51, 'n').c_str(), 0, kAoModeEdit, 1);
  EXPECT_EQ(folder->CreateStream(std::string(52, 'm').c_str(), 0, kAoModeEdit, 1), nullptr);
  const std::string sixty = std::string(51, 'r') + "123456789";
  ASSERT_TRUE(longest->Rename(sixty.c_str()));
  const int64_t record = longest->GetWhere().recordOffset;
  longest->Release();
  const Bytes file = FileBytes();
  EXPECT_EQ(std::string(file.begin() + record + 4, file.begin() + record + 56), sixty.substr(0, 51) + '\0');

  // A refused open: the two-argument form gives up, the other makes a namesake.
  aoStream* exclusive = folder->OpenStream(sixty.substr(0, 51).c_str(), kAoReadWrite | kAoExclusive);
  EXPECT_EQ(CompStream_OpenOrCreateStream(folder, sixty.substr(0, 51).c_str(), 0), nullptr);
  EXPECT_EQ(folder->GetNumChildren(), 3u);
  EXPECT_EQ(folder->OpenOrCreateStream(sixty.substr(0, 51).c_str(), 0u, kAoModeEdit), nullptr);
  EXPECT_EQ(folder->GetNumChildren(), 4u);
  exclusive->Release();

  aoStream* data = storage_->CreateStream("plain", kAoModeEdit);
  EXPECT_EQ(data->CreateStream("child", 0, kAoModeEdit, 1), nullptr);
  EXPECT_EQ(data->GetLength(), 0);
  data->Release();
  folder->Release();
}

TEST_F(FolderChildren, PhysicalWalksSkipFreeRecordsAndStopAtDamage) {
  aoStream* folder = RootFolder("f");
  for (const char* name : {"c1", "c2", "c3", "c4", "c5"}) WriteChild(folder, name, Text(name));
  for (const char* name : {"c2", "c4"}) ASSERT_TRUE(CompStream_Remove(folder->OpenStream(name, kAoModeEdit)));
  std::vector<int64_t> positions;
  int64_t position = 0;
  for (aoStream* child = CompStream_OpenStreamFirst(folder, &position, kAoModeInspect); child != nullptr;
       child = CompStream_OpenStreamNext(folder, &position, kAoModeInspect)) {
    positions.push_back(position);
    EXPECT_EQ(CompStream_GetName(child)[0], 'c');
    CompStream_Release(child);
  }
  EXPECT_EQ(positions, (std::vector<int64_t>{4 + 92, 4 + 3 * 92, 4 + 5 * 92}));
  position = 50;  // inside a record: no marker there
  EXPECT_EQ(folder->OpenStreamNext(&position, kAoModeInspect), nullptr);

  // A count of 2 covers only free records: no first child, though children
  // follow; from a position the walk is not bounded by the count.
  ASSERT_TRUE(folder->OpenStream("c1", kAoModeEdit)->Remove());
  WriteCount(folder, 2);
  EXPECT_EQ(folder->OpenStreamFirst(&position, kAoModeInspect), nullptr);
  EXPECT_TRUE(Names(folder).empty());
  position = 4;
  aoStream* c3 = folder->OpenStreamNext(&position, kAoModeInspect);
  EXPECT_STREQ(c3->GetName(), "c3");
  c3->Release();

  // Without its marker the fourth record ends every walk there; a count
  // beyond the data ends look-ups at the end of the data.
  WriteCount(folder, 0x7FFFFFFF);
  const unsigned char broken[4] = {0, 0, 0, 0};
  ASSERT_EQ(folder->Seek(4 + 3 * 92, 0, true), 0);
  ASSERT_EQ(folder->Write(broken, 4, false, nullptr), 4);
  EXPECT_EQ(Names(folder), (std::vector<std::string>{"c3"}));
  EXPECT_EQ(folder->OpenStream("missing", kAoModeInspect), nullptr);
  EXPECT_EQ(ReadChild(folder, "c5"), Text("c5"));
  folder->Release();
}

TEST_F(FolderChildren, AFreeRecordIsReusedWithItsBlocksUnlessAPreloadedMapRemembersIt) {
  aoStream* folder = RootFolder("f");
  for (const char* name : {"a", "b", "c"}) WriteChild(folder, name, Pattern(64, 9));
  aoStream* b = folder->OpenStream("b", kAoModeEdit);
  const int64_t freed = b->GetWhere().recordOffset;
  const int64_t blocks = b->GetHeader().firstBlock;
  ASSERT_TRUE(b->Remove());
  aoStream* reused = folder->CreateStream("d", 0, kAoModeEdit, 1);
  EXPECT_EQ(reused->GetWhere().recordOffset, freed);
  EXPECT_EQ(reused->GetHeader().firstBlock, blocks);
  EXPECT_EQ(folder->GetNumChildren(), 3u);
  ASSERT_TRUE(reused->Remove());
  folder->PreloadChildren();
  folder->CreateStream("e", 0, kAoModeEdit, 0)->Release();  // appended
  EXPECT_EQ(folder->GetNumChildren(), 4u);
  folder->CreateStream("g", 0, kAoModeEdit, 1)->Release();  // unique still reuses
  EXPECT_EQ(Names(folder), (std::vector<std::string>{"a", "g", "c", "e"}));
  folder->Release();
}

TEST_F(FolderChildren, BigFoldersAreScannedInLargeReads) {
  aoStream* contiguous = RootFolder("contiguous");
  for (int i = 0; i < 600; ++i) contiguous->CreateStream(("n" + std::to_string(i)).c_str(), 0, kAoModeEdit, 0)->Release();
  aoStream* scattered = RootFolder("scattered");
  for (int i = 0; i < 300; ++i) WriteChild(scattered, ("s" + std::to_string(i)).c_str(), Pattern(10, 1));
  ao::platform::ScopedFaultFiles files;
  EXPECT_NE(contiguous->GetNumChildren(), 0u);
  t_aoStreamU record;
  tag_aoStreamOffset where;
  ASSERT_TRUE(contiguous->FindStream("n599", record, where));
  EXPECT_LT(files->reads(), 10);  // 600 records in one block: a handful of reads
  // One record per block: a walk by position reads each once, not the chain
  // again at every step.
  const int64_t before = files->reads();
  int64_t position = 0;
  int visited = 0;
  for (aoStream* child = scattered->OpenStreamFirst(&position, kAoModeInspect); child != nullptr;
       child = scattered->OpenStreamNext(&position, kAoModeInspect), ++visited)
    child->Release();
  EXPECT_EQ(visited, 300);
  EXPECT_LT(files->reads() - before, 2 * 300);
  scattered->Release();
  contiguous->Release();
}

}  // namespace
