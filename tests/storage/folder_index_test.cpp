// Folders answer look-ups and creations from an index of their records that
// every object on the file shares: the answers must be those of a scan of
// the records, whatever mix of creations (unique or not), removals,
// renames, duplicate names and plain writes into the folder's data, made
// through two containers open on one file.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "platform/fault_files.h"
#include "storage/folder_index.h"
#include "tree_support.h"

namespace {

using namespace ao::test;

// The folder as a scan of its records sees it: names in physical order,
// "" for a free record, and what each named child holds.
struct Model {
  std::vector<std::string> names;
  std::vector<uint32_t> ids;

  int First(const std::string& name) const {
    for (size_t i = 0; i < names.size(); ++i)
      if (names[i] == name) return static_cast<int>(i);
    return -1;
  }
  int FirstFree() const { return First(""); }
};

uint32_t IdOf(aoStream* child) {
  const Bytes bytes = ReadWhole(child);
  return bytes.size() == 4 ? bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24 : 0;
}

class FolderIndexing : public ContainerTest {
 protected:
  void SetUp() override {
    ContainerTest::SetUp();
    aoStream* folder = RootFolder("f");
    ASSERT_NE(folder, nullptr);
    folder->Release();
    second_ = aoStorage::Open(path_.c_str(), kAoModeEdit, 0, 0);
    ASSERT_NE(second_, nullptr);
    folders_[0] = storage_->OpenStream("f", kAoModeEdit);
    folders_[1] = second_->OpenStream("f", kAoModeEdit);
    ASSERT_NE(folders_[0], nullptr);
    ASSERT_NE(folders_[1], nullptr);
  }
  void TearDown() override {
    for (aoStream*& folder : folders_) {
      if (folder != nullptr) folder->Release();
      folder = nullptr;
    }
    if (second_ != nullptr) second_->Release();
    second_ = nullptr;
    ContainerTest::TearDown();
  }

  // Every name of the pool is found as the model's first record of it, by
  // both folder objects.
  void ExpectLookUps(const std::vector<std::string>& pool, int step) {
    for (aoStream* folder : folders_)
      for (const std::string& name : pool) {
        aoStream* child = folder->OpenStream(name.c_str(), kAoModeInspect);
        const int first = model_.First(name);
        if (first < 0) {
          EXPECT_EQ(child, nullptr) << "step " << step << ": " << name;
        } else {
          ASSERT_NE(child, nullptr) << "step " << step << ": " << name;
          EXPECT_EQ(IdOf(child), model_.ids[static_cast<size_t>(first)]) << "step " << step << ": " << name;
        }
        if (child != nullptr) child->Release();
      }
  }
  // The records in physical order, read as plain data of the folder by a
  // fresh object (one opened before reads the data its record said then).
  void ExpectRecords(int step) {
    aoStream* folder = (step % 2 == 0 ? storage_ : second_)->OpenStream("f", kAoModeInspect);
    ASSERT_NE(folder, nullptr);
    const Bytes data = ReadWhole(folder);
    EXPECT_EQ(folder->GetNumChildren(), model_.names.size()) << "step " << step;
    folder->Release();
    ASSERT_EQ(data.size(), 4 + model_.names.size() * 92) << "step " << step;
    for (size_t i = 0; i < model_.names.size(); ++i)
      EXPECT_EQ(std::string(reinterpret_cast<const char*>(&data[4 + i * 92 + 4])), model_.names[i])
          << "step " << step << " record " << i;
  }

  aoStorage* second_ = nullptr;
  aoStream* folders_[2] = {};
  Model model_;
};

TEST_F(FolderIndexing, RandomEditsThroughTwoContainersAgreeWithAScanOfTheRecords) {
  const std::vector<std::string> pool = {"a", "b", "c", "d", "e", "f", "g", "h", "longer name of a child", "z"};
  std::mt19937 random(20261125);
  uint32_t nextId = 1;
  for (int step = 0; step < 700; ++step) {
    aoStream* folder = folders_[random() % 2];
    const std::string name = pool[random() % pool.size()];
    const int first = model_.First(name);
    switch (random() % 6) {
      case 0:
      case 1: {  // create, unique or not
        const int unique = static_cast<int>(random() % 2);
        aoStream* child = folder->CreateStream(name.c_str(), 0, kAoModeEdit, unique);
        if (unique != 0 && first >= 0) {
          EXPECT_EQ(child, nullptr) << "step " << step;
          if (child != nullptr) child->Release();
          break;
        }
        ASSERT_NE(child, nullptr) << "step " << step;
        const uint32_t id = nextId++;
        const unsigned char bytes[4] = {static_cast<unsigned char>(id), static_cast<unsigned char>(id >> 8),
                                        static_cast<unsigned char>(id >> 16), static_cast<unsigned char>(id >> 24)};
        EXPECT_EQ(child->Write(bytes, 4, true, nullptr), 4);
        child->Release();
        const int free = model_.FirstFree();
        if (free >= 0) {
          model_.names[static_cast<size_t>(free)] = name;
          model_.ids[static_cast<size_t>(free)] = id;
        } else {
          model_.names.push_back(name);
          model_.ids.push_back(id);
        }
        break;
      }
      case 2: {  // remove the first of the name
        aoStream* child = folder->OpenStream(name.c_str(), kAoModeEdit);
        ASSERT_EQ(child != nullptr, first >= 0) << "step " << step;
        if (child == nullptr) break;
        ASSERT_TRUE(child->Remove()) << "step " << step;
        model_.names[static_cast<size_t>(first)] = "";
        break;
      }
      case 3: {  // rename the first of the name
        const std::string to = pool[random() % pool.size()];
        aoStream* child = folder->OpenStream(name.c_str(), kAoModeEdit);
        ASSERT_EQ(child != nullptr, first >= 0) << "step " << step;
        if (child == nullptr) break;
        EXPECT_TRUE(child->Rename(to.c_str())) << "step " << step;
        child->Release();
        model_.names[static_cast<size_t>(first)] = to;
        break;
      }
      case 4: {  // a record's name written as plain data of the folder
        if (first < 0) break;
        const std::string to = pool[random() % pool.size()];
        char field[52] = {};
        to.copy(field, to.size());
        ASSERT_EQ(folder->Seek(4 + first * 92 + 4, 0, true), 0);
        EXPECT_EQ(folder->Write(field, sizeof field, false, nullptr), 52);
        model_.names[static_cast<size_t>(first)] = to;
        break;
      }
      default:
        ExpectLookUps(pool, step);
        break;
    }
    if (step % 50 == 0) ExpectRecords(step);
  }
  ExpectLookUps(pool, 700);
  ExpectRecords(700);
  TearDown();
  Reopen(kAoModeInspect);
  aoStream* folder = storage_->OpenStream("f", kAoModeInspect);
  ASSERT_NE(folder, nullptr);
  for (const std::string& name : pool) {
    aoStream* child = folder->OpenStream(name.c_str(), kAoModeInspect);
    ASSERT_EQ(child != nullptr, model_.First(name) >= 0) << name;
    if (child == nullptr) continue;
    EXPECT_EQ(IdOf(child), model_.ids[static_cast<size_t>(model_.First(name))]) << name;
    child->Release();
  }
  folder->Release();
}

TEST_F(FolderIndexing, AChildAddedThroughAnotherContainerIsFoundAtOnce) {
  // Both folder objects have looked into the folder (and built its index).
  EXPECT_EQ(folders_[1]->OpenStream("new", kAoModeInspect), nullptr);
  EXPECT_EQ(folders_[0]->OpenStream("new", kAoModeInspect), nullptr);
  WriteChild(folders_[0], "new", Text("hello"));
  aoStream* found = folders_[1]->OpenStream("new", kAoModeInspect);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(ReadWhole(found), Text("hello"));
  found->Release();
  // And a creation there that must be unique sees it too.
  EXPECT_EQ(folders_[1]->CreateStream("new", 0, kAoModeEdit, 1), nullptr);
}

TEST_F(FolderIndexing, LookUpsInABigFolderReadAFewRecordsNotTheFolder) {
  constexpr int kChildren = 3000;
  for (int i = 0; i < kChildren; ++i) {
    aoStream* child = folders_[0]->CreateStream(("child " + std::to_string(i)).c_str(), 0, kAoModeEdit, 1);
    ASSERT_NE(child, nullptr) << i;
    child->Release();
  }
  ao::platform::ScopedFaultFiles counting;
  std::mt19937 random(7);
  constexpr int kLookUps = 300;
  for (int i = 0; i < kLookUps; ++i) {
    aoStream* child = folders_[i % 2]->OpenStream(("child " + std::to_string(random() % kChildren)).c_str(),
                                                  kAoModeInspect);
    ASSERT_NE(child, nullptr);
    child->Release();
  }
  // The folder's own record and the child's record: a scan would read the
  // folder's 270 KiB of records in pieces for every look-up.
  EXPECT_LE(counting->reads(), 3 * kLookUps);
}

TEST(FolderIndexBound, TheLeastRecentlyUsedFolderGivesUpItsIndexFirst) {
  constexpr size_t kBound = 3000;
  ao::FolderIndexes indexes(kBound);
  const auto make = [](uint32_t records) {
    auto index = std::make_unique<ao::FolderIndex>(records, false, ao::FolderIndex::Signature{});
    for (uint32_t i = 0; i < records; ++i) index->AddRecord(("n" + std::to_string(i)).c_str(), true, 1000 + i * 92);
    return index;
  };
  constexpr uint32_t kThird = kBound / 3 + 1;
  indexes.Keep(1, make(kThird));
  indexes.Keep(2, make(kThird));
  ASSERT_NE(indexes.Find(1), nullptr);  // 1 is now used more recently than 2
  indexes.Keep(3, make(kThird));
  EXPECT_NE(indexes.Find(1), nullptr);
  EXPECT_EQ(indexes.Find(2), nullptr);
  EXPECT_NE(indexes.Find(3), nullptr);
  // One folder larger than the bound alone keeps its index while in use.
  indexes.Keep(4, make(kBound + 10));
  EXPECT_NE(indexes.Find(4), nullptr);
  EXPECT_EQ(indexes.Find(1), nullptr);
  EXPECT_EQ(indexes.Find(4)->Find("n7"), 7);
}

}  // namespace
