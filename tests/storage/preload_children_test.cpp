// A folder's children preloaded into a map (what is loaded, sorted and
// unsorted walks, how the map and the file part ways afterwards), and GoNext,
// a root stream object walking the root directory record by record.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "tree_support.h"

namespace {

using namespace ao::test;

class Preload : public ContainerTest {
 protected:
  aoStream* FolderWith(std::initializer_list<const char*> names) {
    aoStream* folder = RootFolder("f");
    for (const char* name : names) WriteChild(folder, name, Text(name));
    return folder;
  }
  static std::vector<std::string> OffsetWalk(aoStream* folder) {
    std::vector<std::string> names;
    void* position = nullptr;
    t_aoStreamWithOffset entry;
    std::string name;
    for (int more = folder->GetPreloadChildrenOffsetFirst(&position, 0, entry, name); more != 0;
         more = folder->GetPreloadChildrenOffsetNext(&position, 0, entry, name)) {
      EXPECT_EQ(std::string(entry.record.name), name);
      names.push_back(name);
    }
    return names;
  }
  static std::vector<std::string> OpenWalk(aoStream* folder) {
    std::vector<std::string> names;
    void* position = nullptr;
    for (aoStream* child = folder->OpenPreloadChildrenFirst(&position, kAoModeInspect); child != nullptr;
         child = folder->OpenPreloadChildrenNext(&position, kAoModeInspect)) {
      names.emplace_back(child->GetName());
      child->Release();
    }
    return names;
  }
};

TEST_F(Preload, FreeRecordsAreSkippedAndNotCounted) {
  aoStream* folder = FolderWith({"a", "b", "c", "d"});
  ASSERT_TRUE(folder->OpenStream("b", kAoModeEdit)->Remove());
  aoStream* a = folder->OpenStream("a", kAoModeEdit);
  ASSERT_TRUE(a->UpdateStreamHeaderChildStreamInfo(0xF0));
  a->Release();
  const unsigned char three[4] = {3, 0, 0, 0};
  ASSERT_EQ(folder->Seek(0, 0, true), 0);
  ASSERT_EQ(folder->Write(three, 4, false, nullptr), 4);
  EXPECT_TRUE(OpenWalk(folder).empty());  // not loaded yet
  // A scan stops after three records; the load after three named ones.
  t_aoStreamU record;
  tag_aoStreamOffset where;
  EXPECT_FALSE(folder->FindStream("d", record, where));
  folder->PreloadChildren();
  ASSERT_TRUE(folder->FindStream("a", record, where));
  EXPECT_EQ(record.childInfo, 0xF0u);
  EXPECT_EQ(where.childInfo, 0u);  // deliberately not the record's bits
  std::vector<std::string> names = OffsetWalk(folder);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"a", "c", "d"}));
  folder->Release();
}

TEST_F(Preload, SortedWalksFollowTheSortModeInByteOrder) {
  aoStream* folder = FolderWith({"b", "a", "C", "B", "c"});
  folder->PreloadChildren();
  folder->EnableSorting(1, 1);
  EXPECT_EQ(OffsetWalk(folder), (std::vector<std::string>{"c", "b", "a", "C", "B"}));
  folder->EnableSorting(1, 0);
  EXPECT_EQ(OpenWalk(folder), (std::vector<std::string>{"B", "C", "a", "b", "c"}));
  folder->EnableSorting(0, 0);
  std::vector<std::string> unsorted = OpenWalk(folder);
  std::sort(unsorted.begin(), unsorted.end());
  EXPECT_EQ(unsorted, (std::vector<std::string>{"B", "C", "a", "b", "c"}));
  folder->Release();
}

TEST_F(Preload, TheMapGainsNewChildrenButKeepsRemovedOnes) {
  aoStream* folder = FolderWith({"keep", "gone"});
  folder->PreloadChildren();
  folder->EnableSorting(1, 0);
  ASSERT_TRUE(folder->OpenStream("gone", kAoModeEdit)->Remove());
  folder->CreateStream("fresh", 0, kAoModeEdit, 0)->Release();
  EXPECT_EQ(OffsetWalk(folder), (std::vector<std::string>{"fresh", "gone", "keep"}));
  // Only the map is consulted: a child added through another object on the
  // same folder is not seen, while that object scans the file.
  aoStream* other = storage_->OpenStream("f", kAoModeEdit);
  WriteChild(other, "elsewhere", Text("e"));
  t_aoStreamU record;
  tag_aoStreamOffset where;
  EXPECT_TRUE(other->FindStream("elsewhere", record, where));
  EXPECT_FALSE(other->FindStream("gone", record, where));
  other->Release();
  folder->PreloadChildren();  // a second load changes nothing
  EXPECT_FALSE(folder->FindStream("elsewhere", record, where));
  folder->Release();
}

TEST_F(Preload, GoNextStopsAtAFreeSlotAndCrossesIntoTheNextTable) {
  // Slots 6 to 63 of the first table and slots 0 and 2 of a second one.
  for (int i = 0; i < 61; ++i) {
    const std::string name = "n" + std::to_string(i);
    aoStream* stream = storage_->CreateStream(name.c_str(), kAoModeEdit);
    ASSERT_EQ(stream->Write(name.data(), static_cast<int64_t>(name.size()), true, nullptr),
              static_cast<int64_t>(name.size()));
    stream->Release();
  }
  ASSERT_TRUE(storage_->OpenStream("n59", kAoModeEdit)->Remove());
  Close();
  for (int inMemory : {0, 1}) {
    storage_ = aoStorage::Open(path_.c_str(), kAoModeInspect, 0, inMemory);
    aoStream* walker = storage_->OpenStreamFirst(kAoModeInspect);
    int steps = 0;
    while (walker->GoNext()) ++steps;
    EXPECT_EQ(steps, 58);
    EXPECT_EQ(ReadWhole(walker), Text("n58"));
    EXPECT_EQ(walker->GetWhere().recordOffset, walker->GetWhere().tableOffset + 16);
    EXPECT_EQ(storage_->IsStreamOpen("n57"), nullptr);  // the open list follows the object
    EXPECT_EQ(walker->Release(), 1);
    Close();
  }
}

}  // namespace
