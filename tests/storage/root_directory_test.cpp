// The root directory: slots and tables, the name map shared by every object
// on a path, the open-stream list and its sharing rule, and the
// enumerations.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "support/container_test.h"

namespace {

class RootDirectory : public ao::test::ContainerTest {
 protected:
  void Make(const std::string& name, uint32_t attributes = 0) {
    aoStream* stream = storage_->CreateStream(name.c_str(), attributes, kAoModeEdit);
    ASSERT_NE(stream, nullptr) << name;
    stream->Release();
  }
  std::vector<std::string> MapWalk() {
    std::vector<std::string> names;
    void* position = nullptr;
    for (aoStream* stream = storage_->OpenStreamFirst(&position, kAoModeInspect, 0); stream != nullptr;
         stream = storage_->OpenStreamNext(&position, kAoModeInspect)) {
      names.emplace_back(stream->GetName());
      stream->Release();
    }
    return names;
  }
};

TEST_F(RootDirectory, NamesUpTo51BytesAndNoDuplicates) {
  const std::string longest(51, 'n');
  aoStream* stream = storage_->CreateStream(longest.c_str(), kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::string(stream->GetName()), longest);
  stream->Release();
  EXPECT_EQ(storage_->CreateStream(std::string(52, 'n').c_str(), kAoModeEdit), nullptr);
  EXPECT_EQ(storage_->CreateStream(longest.c_str(), kAoModeEdit), nullptr);
  EXPECT_EQ(storage_->CreateStream("", kAoModeEdit), nullptr);
  Reopen();
  stream = storage_->OpenStream(longest.c_str(), kAoModeInspect);
  ASSERT_NE(stream, nullptr);
  stream->Release();
}

TEST_F(RootDirectory, FolderFlagAndDurationComeFromTheAttributes) {
  aoStream* folder = storage_->CreateStream("f", (90u << 16) | 0x0301u, kAoModeEdit);
  ASSERT_NE(folder, nullptr);
  EXPECT_NE(folder->IsFolder(), 0);
  EXPECT_EQ(folder->GetDuration(), 90);
  EXPECT_EQ(folder->GetLength(), 4);  // the child count
  folder->Release();
  aoStream* plain = storage_->CreateStream("p", 0x0300u, kAoModeEdit);  // bits 8..15 are ignored
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(plain->IsFolder(), 0);
  plain->Release();
  tag_aoStreamOffset where;
  ASSERT_TRUE(storage_->FindStreamOffset("f", where));
  EXPECT_EQ(where.duration, 90u * 60u);
  EXPECT_EQ(where.mark, 1);
}

TEST_F(RootDirectory, The59thOrdinaryStreamAppendsASecondTable) {
  for (int i = 0; i < 58; ++i) Make("s" + std::to_string(i));
  EXPECT_EQ(storage_->GetFileSize(), 5936 + 58 * 0);  // streams without data take no blocks
  Make("s58");
  EXPECT_EQ(storage_->GetFileSize(), 5936 + 5904);
  const auto bytes = ao::test::ReadWholeFile(path_);
  int64_t next = 0;
  for (int i = 7; i >= 0; --i) next = (next << 8) | bytes[40 + i];
  EXPECT_EQ(next, 5936);
  EXPECT_EQ(bytes[5936], 0xFB);
  EXPECT_EQ(bytes[5936 + 4], 64);
  Reopen();
  EXPECT_EQ(MapWalk().size(), 59u);
  tag_aoStreamOffset where;
  ASSERT_TRUE(storage_->FindStreamOffset("s58", where));
  EXPECT_EQ(where.tableOffset, 5936);
  EXPECT_EQ(where.recordOffset, 5936 + 16);

  // A slot freed in the first table is taken before the second table's.
  ASSERT_TRUE(storage_->FindStreamOffset("s10", where));
  aoStream* removed = storage_->OpenStream("s10", kAoModeEdit);
  ASSERT_NE(removed, nullptr);
  ASSERT_TRUE(removed->Remove());
  for (const int64_t expected : {where.recordOffset, int64_t{5936 + 16 + 92}}) {
    aoStream* stream = storage_->CreateStream(("t" + std::to_string(expected)).c_str(), kAoModeEdit);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->GetWhere().recordOffset, expected);
    stream->Release();
  }
}

TEST_F(RootDirectory, ReservedSlotsFillUpWithoutAppendingATable) {
  for (int i = 0; i < 6; ++i) {
    aoStream* stream = storage_->CreateStreamFast(("fast" + std::to_string(i)).c_str(), kAoModeEdit);
    ASSERT_NE(stream, nullptr) << i;
    EXPECT_EQ(stream->GetWhere().recordOffset, 48 + i * 92);
    stream->Release();
  }
  EXPECT_EQ(storage_->CreateStreamFast("fast6", kAoModeEdit), nullptr);
  EXPECT_EQ(storage_->GetFileSize(), 5936);
  // Ordinary streams start after the reserved slots.
  aoStream* ordinary = storage_->CreateStream("ordinary", kAoModeEdit);
  EXPECT_EQ(ordinary->GetWhere().recordOffset, 48 + 6 * 92);
  ordinary->Release();
  // The fast open finds only reserved slots, without the map.
  aoStorage* fast = aoStorage::OpenFast(path_.c_str(), kAoModeEdit, 0);
  ASSERT_NE(fast, nullptr);
  aoStream* found = fast->OpenStreamFast("fast3", kAoModeInspect);
  ASSERT_NE(found, nullptr);
  found->Release();
  EXPECT_EQ(fast->OpenStreamFast("ordinary", kAoModeInspect), nullptr);
  fast->Release();
}

TEST_F(RootDirectory, ASlotLeftByARemovedStreamIsReusedWithItsBlocks) {
  aoStream* stream = storage_->CreateStream("old", kAoModeEdit);
  ASSERT_EQ(stream->Write("old data", 8, false, nullptr), 8);
  const int64_t slot = stream->GetWhere().recordOffset;
  const int64_t firstBlock = stream->GetHeader().firstBlock;
  ASSERT_TRUE(stream->Remove());
  EXPECT_EQ(storage_->OpenStream("old", kAoModeInspect), nullptr);
  aoStream* reuse = storage_->CreateStream("new", kAoModeEdit);
  ASSERT_NE(reuse, nullptr);
  EXPECT_EQ(reuse->GetWhere().recordOffset, slot);
  EXPECT_EQ(reuse->GetHeader().firstBlock, firstBlock);
  EXPECT_EQ(reuse->GetLength(), 0);
  const int64_t size = storage_->GetFileSize();
  ASSERT_EQ(reuse->Write("new", 3, false, nullptr), 3);
  EXPECT_EQ(storage_->GetFileSize(), size);  // written into the inherited block
  reuse->Release();
}

TEST_F(RootDirectory, TheFirstOpenersModeDecidesSharing) {
  Make("x");
  aoStream* exclusive = storage_->OpenStream("x", kAoModeEdit | kAoExclusive);
  ASSERT_NE(exclusive, nullptr);
  EXPECT_EQ(storage_->OpenStream("x", kAoRead), nullptr);
  EXPECT_EQ(exclusive->Release(), 1);

  aoStream* shareRead = storage_->OpenStream("x", kAoRead | kAoShareRead);
  ASSERT_NE(shareRead, nullptr);
  EXPECT_EQ(storage_->OpenStream("x", kAoModeInspect), nullptr);
  aoStream* second = storage_->OpenStream("x", kAoRead);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, shareRead);
  EXPECT_EQ(storage_->IsStreamOpen("x")->count, 2u);
  EXPECT_EQ(second->Release(), 2);
  EXPECT_EQ(shareRead->Release(), 1);
  EXPECT_EQ(storage_->IsStreamOpen("x"), nullptr);
  EXPECT_EQ(storage_->CloseStream("x"), -1);
}

TEST_F(RootDirectory, TheOpenListFindsAndClosesTheEarliestEntryOfAName) {
  // Entries are added without looking, so a name may be listed twice.
  t_OpenStream* first = storage_->AddNewOpenStream("n", kAoRead);
  t_OpenStream* second = storage_->AddNewOpenStream("n", kAoModeEdit);
  EXPECT_EQ(storage_->IsStreamOpen("n"), first);
  first->count = 2;
  EXPECT_EQ(storage_->CloseStream("n"), 2);
  EXPECT_EQ(storage_->IsStreamOpen("n"), first);
  EXPECT_EQ(storage_->CloseStream("n"), 1);
  EXPECT_EQ(storage_->IsStreamOpen("n"), second);
  EXPECT_EQ(storage_->CloseStream("n"), 1);
  EXPECT_EQ(storage_->IsStreamOpen("n"), nullptr);
  // Unnamed entries are listed and closed, never found.
  ASSERT_NE(storage_->AddNewOpenStream(nullptr, 0), nullptr);
  EXPECT_EQ(storage_->IsStreamOpen(""), nullptr);
  EXPECT_EQ(storage_->CloseStream(""), 1);
  EXPECT_EQ(storage_->CloseStream(""), -1);

  // Thousands of streams open at once, each twice, keep their own counts.
  constexpr int kStreams = 3000;
  std::vector<aoStream*> open;
  for (int i = 0; i < kStreams; ++i) {
    const std::string name = "s" + std::to_string(i);
    Make(name);
    for (int twice = 0; twice < 2; ++twice) {
      open.push_back(storage_->OpenStream(name.c_str(), kAoRead));
      ASSERT_NE(open.back(), nullptr);
    }
  }
  EXPECT_EQ(storage_->IsStreamOpen("s1234")->count, 2u);
  for (aoStream* stream : open) stream->Release();
  EXPECT_EQ(storage_->IsStreamOpen("s1234"), nullptr);
  EXPECT_EQ(storage_->IsStreamOpen("s0"), nullptr);
}

TEST_F(RootDirectory, SortedEnumerationIsByteOrderAndTheSortedListDescends) {
  for (const char* name : {"a", "B", "A"}) Make(name);
  storage_->EnableSorting(1, 0);
  EXPECT_EQ(MapWalk(), (std::vector<std::string>{"A", "B", "a"}));
  storage_->EnableSorting(1, 1);
  EXPECT_EQ(MapWalk(), (std::vector<std::string>{"a", "B", "A"}));
  storage_->EnableSorting(0, 0);
  auto unsorted = MapWalk();
  std::sort(unsorted.begin(), unsorted.end());
  EXPECT_EQ(unsorted, (std::vector<std::string>{"A", "B", "a"}));

  storage_->EnableSorting(1, 0);
  CMapStringToStreamOffset* list = storage_->CreateSortedStreamList();
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->GetSortedCount(), 3);
  EXPECT_EQ(list->GetSortedAt(0)->key, "a");
  EXPECT_EQ(list->GetSortedAt(2)->key, "A");
  storage_->DestroySortedStreamList(list);
}

TEST_F(RootDirectory, ARemovedNameStaysReadableInASortedViewUntilTheNextSort) {
  for (const char* name : {"k1", "k2", "k3"}) Make(name);
  storage_->EnableSorting(1, 0);
  CIterateSortedStreams iterate;
  iterate.m_nFixedSpan = 1;
  ASSERT_EQ(storage_->IterateSortedStreamsNoOPENS(&iterate, 0), 1);
  EXPECT_EQ(iterate.m_strName, "k1");
  EXPECT_TRUE(storage_->RemoveStream("k2"));
  EXPECT_FALSE(storage_->RemoveStream("k2"));
  ASSERT_EQ(storage_->IterateSortedStreamsNoOPENS(&iterate, 0), 1);
  EXPECT_EQ(iterate.m_strName, "k2");
  ASSERT_EQ(storage_->IterateSortedStreamsNoOPENS(&iterate, 0), 1);
  EXPECT_EQ(iterate.m_strName, "k3");
  EXPECT_EQ(iterate.m_nPos, -1);
  EXPECT_EQ(storage_->IterateSortedStreamsNoOPENS(&iterate, 0), 0);
}

TEST_F(RootDirectory, SnapshotsKeepTheirViewWhileTheMapChanges) {
  for (const char* name : {"one", "two"}) Make(name);
  void* position = nullptr;
  aoStream* first = storage_->OpenStreamFirst(&position, kAoModeInspect, 1);
  ASSERT_NE(first, nullptr);
  first->Release();
  Make("three");
  int seen = 1;
  while (aoStream* next = storage_->OpenStreamNext(&position, kAoModeInspect)) {
    ++seen;
    next->Release();
  }
  EXPECT_EQ(seen, 2);
  EXPECT_EQ(MapWalk().size(), 3u);
}

TEST_F(RootDirectory, RenamingTheRecordLeavesTheMapUntilReopen) {
  Make("before");
  tag_aoStreamOffset where;
  ASSERT_TRUE(storage_->FindStreamOffset("before", where));
  char name[52] = "after";
  EXPECT_EQ(storage_->RenameStreamHeaderName(where.recordOffset, name, 52), 1);
  EXPECT_EQ(storage_->OpenStream("after", kAoModeInspect), nullptr);
  aoStream* old = storage_->OpenStream("before", kAoModeInspect);
  ASSERT_NE(old, nullptr);
  EXPECT_STREQ(old->GetName(), "after");  // the record itself was renamed
  old->Release();
  Reopen();
  EXPECT_EQ(storage_->OpenStream("before", kAoModeInspect), nullptr);
  aoStream* renamed = storage_->OpenStream("after", kAoModeInspect);
  ASSERT_NE(renamed, nullptr);
  renamed->Release();
}

TEST_F(RootDirectory, SpansBetweenHexadecimalTimeNames) {
  for (const char* name : {"00000E10", "00001C20", "00017E91", "zzz"}) Make(name);
  storage_->EnableSorting(1, 0);
  CIterateSortedStreams iterate;
  std::vector<uint32_t> spans;
  while (storage_->IterateSortedStreamsNoOPENS(&iterate, 1) == 1) {
    spans.push_back(iterate.m_nSpan);
    if (iterate.m_strName.size() == 8) iterate.m_nSpan = 0;
  }
  // E10 -> 1C20 is 3600; 1C20 -> 17E91 is more than a day, so the previous
  // span; the last time name has no successor: the previous span again;
  // "zzz" is not a time and keeps the span as it was.
  EXPECT_EQ(spans, (std::vector<uint32_t>{3600, 3600, 3600, 0}));
  CIterateSortedStreams fresh;
  fresh.m_nSortMode = 0;
  for (const char* name : {"00000000"}) Make(name);
  ASSERT_EQ(storage_->IterateSortedStreamsNoOPENS(&fresh, 0), 1);
  EXPECT_EQ(fresh.m_strName, "00000000");
  EXPECT_EQ(fresh.m_nSpan, 3600u);  // 0xE10 seconds to the next time name
}

TEST_F(RootDirectory, TwoObjectsOnOnePathSeeEachOthersNewStreams) {
  aoStorage* other = aoStorage::Open(path_.c_str(), kAoModeEdit, 0, 0);
  ASSERT_NE(other, nullptr);
  Make("from-first");
  aoStream* seen = other->OpenStream("from-first", kAoModeInspect);
  ASSERT_NE(seen, nullptr);
  seen->Release();
  aoStream* mine = other->CreateStream("from-second", kAoModeEdit);
  ASSERT_NE(mine, nullptr);
  ASSERT_EQ(mine->Write("data", 4, false, nullptr), 4);
  mine->Release();
  EXPECT_EQ(storage_->CreateStream("from-second", kAoModeEdit), nullptr);
  aoStream* back = storage_->OpenStream("from-second", kAoModeInspect);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->GetLength(), 4);
  back->Release();
  // Both objects take different slots as they create.
  for (int i = 0; i < 70; ++i) {
    aoStorage* creator = (i % 2) ? other : storage_;
    aoStream* stream = creator->CreateStream(("n" + std::to_string(i)).c_str(), kAoModeEdit);
    ASSERT_NE(stream, nullptr) << i;
    stream->Release();
  }
  other->Release();
  Reopen();
  EXPECT_EQ(MapWalk().size(), 72u);
}

TEST_F(RootDirectory, PhysicalPositionalAndByKindLookUps) {
  for (const char* name : {"p0", "p1", "p2"}) Make(name);
  int position = -1;
  std::vector<std::string> names;
  for (aoStream* stream = storage_->OpenStreamFirst2(&position, kAoModeInspect); stream != nullptr;
       stream = storage_->OpenStreamNext2(&position, kAoModeInspect)) {
    names.emplace_back(stream->GetName());
    stream->Release();
  }
  EXPECT_EQ(names, (std::vector<std::string>{"p0", "p1", "p2"}));
  EXPECT_EQ(position, 2);
  aoStream* first = storage_->OpenStreamFirst(kAoModeInspect);
  ASSERT_NE(first, nullptr);
  EXPECT_STREQ(first->GetName(), "p0");
  first->Release();

  // Found by kind: any data stream, or a folder by name.
  Make("folder", 1);
  aoStream* found = storage_->FindRootStream("");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->IsFolder(), 0);
  found->Release();
  found = storage_->FindRootStorage("folder");
  ASSERT_NE(found, nullptr);
  found->Release();
  EXPECT_EQ(storage_->FindRootStorage("p1"), nullptr);
  found = storage_->FindRootStorageWrite("");
  ASSERT_NE(found, nullptr);
  EXPECT_STREQ(found->GetName(), "folder");
  found->Release();
  EXPECT_EQ(storage_->GetSubfolderCount("folder"), 0u);
  EXPECT_EQ(storage_->GetSubfolderCount("missing"), 0u);
}

}  // namespace
