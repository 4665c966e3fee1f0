// A realistic editing session recorded on one container and replayed on a
// copy of its starting file gives the same streams with the same bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "entries/entries_fixture.h"

namespace ao::test {
namespace {

// Every stream of a container by its path: data streams with their bytes,
// folders by name alone.
struct Tree {
  std::map<std::string, Bytes> data;
  std::set<std::string> folders;
};

void AddStream(Tree& tree, aoStream* stream, const std::string& path) {
  if (stream->IsFolder() == 0) {
    tree.data[path] = Drain(stream);
    return;
  }
  tree.folders.insert(path);
  std::vector<std::string> names;
  stream->EnumStreams(names);
  for (const std::string& name : names) {
    aoStream* child = stream->OpenStream(name.c_str(), kAoModeInspect);
    if (child == nullptr) {
      ADD_FAILURE() << "cannot open " << path << "/" << name;
      continue;
    }
    AddStream(tree, child, path + "/" + name);
  }
  stream->Release();
}

Tree ReadTree(const std::string& path) {
  Tree tree;
  aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
  if (storage == nullptr) {
    ADD_FAILURE() << "cannot open " << path;
    return tree;
  }
  void* position = nullptr;
  for (aoStream* stream = storage->OpenStreamFirst(&position, kAoModeInspect, 1); stream != nullptr;
       stream = storage->OpenStreamNext(&position, kAoModeInspect)) {
    AddStream(tree, stream, stream->GetName());
  }
  storage->Release();
  return tree;
}

void ExpectSameTree(const Tree& replayed, const Tree& recorded) {
  EXPECT_EQ(replayed.folders, recorded.folders);
  std::set<std::string> replayedNames, recordedNames;
  for (const auto& [name, bytes] : replayed.data) replayedNames.insert(name);
  for (const auto& [name, bytes] : recorded.data) recordedNames.insert(name);
  ASSERT_EQ(replayedNames, recordedNames);
  for (const auto& [name, bytes] : recorded.data) {
    const Bytes& other = replayed.data.at(name);
    EXPECT_EQ(other.size(), bytes.size()) << name;
    EXPECT_TRUE(other == bytes) << name << " differs";
  }
}

void* Data(const Bytes& bytes) { return const_cast<unsigned char*>(bytes.data()); }

int CountRecords(const Bytes& log) {
  CCompRecorder reader;
  reader.Attach(const_cast<unsigned char*>(log.data()), static_cast<unsigned int>(log.size()), 0);
  RecOpEnum op;
  char text[kAoNameFieldSize];
  unsigned char* data = nullptr;
  uint32_t len = 0;
  int count = 0;
  while (reader.PopOp(&op, text, &data, &len) != 0) ++count;
  return count;
}

// The content both containers start from.
void WriteStartingContent(aoStorage* storage) {
  storage->SetEntry("title", "Start");
  storage->SetEntry("count", 1);
  storage->SetEntryFast("fastA", 10);
  aoStream* docs = storage->OpenOrCreateStream("Docs", 1);
  docs->SetEntry("old", 3);
  docs->SetEntry("keep", "a long original text");
  aoStream* sub = docs->OpenOrCreateStream("Sub", 1);
  sub->SetEntry("deep", 4);
  sub->Release();
  docs->Release();
  storage->SetEntry("Obsolete", 5);
  aoStream* junk = storage->OpenOrCreateStream("Junk", 1);
  junk->SetEntry("j1", 6);
  junk->SetEntry("j2", "seven");
  junk->Release();
}

// Entries of every type, fast entries, nested folders, appends, replacements
// and removals, in the order an application would make them.
void EditSession(aoStorage* storage) {
  const Bytes three = Pattern(3, 11), five = Pattern(5, 12), ten = Pattern(10, 13), four = Pattern(4, 14);

  storage->SetEntry("title", "Edited title");
  storage->SetEntry("count", 2);
  storage->SetEntry("dword", 0xDEADBEEFu);
  storage->SetEntry("pi", 3.14159);
  storage->SetEntry("big", static_cast<int64_t>(1) << 50);
  storage->SetEntry("long", std::string(70000, 'L').c_str());

  storage->SetEntryFast("fastA", 11);
  storage->SetEntryFast("fastS", "fast string");
  storage->SetEntryFast("fastD", 2.5);
  storage->SetEntryFast("fastL", static_cast<int64_t>(-7));

  aoStream* tree = storage->OpenOrCreateStream("Tree", 1);
  aoStream* mid = tree->OpenOrCreateStream("Mid", 1);
  aoStream* leaf = mid->OpenOrCreateStream("Leaf", 1);
  RECT rect{1, 2, 3, 4};
  SIZE size{640, 480};
  leaf->SetEntry("i", 5);
  leaf->SetEntry("u", 6u);
  leaf->SetEntry("u64", static_cast<uint64_t>(0x8000000000000001ULL));
  leaf->SetEntry("d", 0.125);
  leaf->SetEntry("s", "leaf string");
  leaf->SetEntry("r", &rect);
  leaf->SetEntry("sz", &size);
  leaf->SetEntry("blob", Data(three), 3);
  leaf->SetEntry("blob", Data(five), 5);
  leaf->SetEntryNoPrefix("raw", Data(three), 3);
  leaf->SetEntryNoPrefix("raw", Data(four), 4);
  leaf->SetEntryEraseOld("rep", Data(ten), 10, 1);
  leaf->SetEntryEraseOld("rep", Data(four), 4, 1);
  leaf->Release();
  mid->SetEntry("m", 9);
  mid->SetEntry("ms", "mid");
  mid->Release();
  tree->SetEntry("t", 1);
  tree->Release();

  storage->SetEntry("blob", Data(three), 3);
  storage->SetEntry("blob", Data(five), 5);
  storage->SetEntryNoPrefix("raw", Data(ten), 10);
  storage->SetEntryEraseOld("erased", Data(ten), 10, 0);
  storage->SetEntryEraseOld("erasedP", Data(ten), 10, 1);
  storage->SetEntryEraseOld("erasedP", Data(three), 3, 1);

  aoStream* docs = storage->OpenStream("Docs", kAoModeEdit);
  docs->SetEntry("keep", "short");
  aoStream* sub = docs->OpenStream("Sub", kAoModeEdit);
  sub->SetEntry("deep", 77);
  sub->Release();
  aoStream* old = docs->OpenStream("old", kAoModeEdit);
  EXPECT_TRUE(old->Remove());
  docs->Release();

  aoStream* obsolete = storage->OpenStream("Obsolete", kAoModeEdit);
  EXPECT_TRUE(obsolete->Remove());
  aoStream* junk = storage->OpenStream("Junk", kAoModeEdit);
  EXPECT_TRUE(junk->Remove());

  aoStream* ops = storage->OpenOrCreateStream("ops", 0);
  *ops << static_cast<unsigned short>(7) << 8 << 9.5 << static_cast<int64_t>(-10) << "text" << std::string("more");
  ops->Release();
  aoStream* appended = storage->OpenOrCreateStreamFast("fastA", 1);
  *appended << 12;
  appended->Release();
}

TEST(ReplayRoundTrip, ASessionReplayedOnTheStartingCopyGivesTheSameContainer) {
  TempDir dir;
  const std::string recordedPath = dir.File("recorded.dat");
  const std::string replayedPath = dir.File("replayed.dat");
  aoStorage* storage = aoStorage::Create(recordedPath.c_str(), kAoModeEdit, 0);
  ASSERT_NE(storage, nullptr);
  WriteStartingContent(storage);
  storage->Release();
  WriteWholeFile(replayedPath, ReadWholeFile(recordedPath));
  const Tree start = ReadTree(replayedPath);
  ASSERT_EQ(start.folders.size(), 3u);  // Docs, Docs/Sub, Junk

  storage = aoStorage::Open(recordedPath.c_str(), kAoModeEdit, 0, 0);
  ASSERT_NE(storage, nullptr);
  ASSERT_EQ(storage->StartRecording(), 1);
  EditSession(storage);
  std::unique_ptr<CCompRecorder> recorder(storage->StopRecording());
  storage->Release();
  ASSERT_NE(recorder, nullptr);
  EXPECT_EQ(recorder->HasBeenStopped(), 0);
  EXPECT_EQ(recorder->GetStmDepth(), 0);
  unsigned int length = 0;
  unsigned char* log = recorder->Detach(&length);
  ASSERT_NE(log, nullptr);
  const Bytes logBytes(log, log + length);
  CCompRecorder::Free(log);
  const int records = CountRecords(logBytes);
  EXPECT_EQ(static_cast<unsigned int>(records), recorder->GetOpCount());

  aoStorage* copy = aoStorage::Open(replayedPath.c_str(), kAoModeEdit, 0, 0);
  ASSERT_NE(copy, nullptr);
  Bytes replayLog = logBytes;
  EXPECT_EQ(copy->ReplayRecording(replayLog.data(), length), records);
  copy->Release();

  const Tree recorded = ReadTree(recordedPath);
  const Tree replayed = ReadTree(replayedPath);
  EXPECT_NE(recorded.data, start.data);
  EXPECT_EQ(recorded.folders.count("Tree/Mid/Leaf"), 1u);
  EXPECT_EQ(recorded.data.count("Junk/j1"), 0u);
  EXPECT_EQ(recorded.data.count("Obsolete"), 0u);
  ExpectSameTree(replayed, recorded);
}

}  // namespace
}  // namespace ao::test
