// An edit log recorded by one build and replayed by another on a copy of the
// same starting container. The log's bytes do not depend on the build either.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "compat/fixtures.h"
#include "platform/files.h"

namespace ao::compat {
namespace {

constexpr char kBase[] = "replay-base.dat";
constexpr char kRecorded[] = "recorded.dat";
constexpr char kLog[] = "edits.log";

bool WriteBase(const std::string& path) {
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  if (storage == nullptr) return false;
  bool ok = storage->SetEntry("title", "Start") != 0;
  aoStream* docs = storage->OpenOrCreateStream("Docs", 1);
  ok = ok && docs != nullptr && docs->SetEntry("old", 3) != 0 && docs->SetEntry("keep", "original") != 0;
  if (docs != nullptr) docs->Release();
  aoStream* junk = storage->OpenOrCreateStream("Junk", 1);
  ok = ok && junk != nullptr && junk->SetEntry("j1", 6) != 0;
  if (junk != nullptr) junk->Release();
  storage->Release();
  return ok;
}

// Removes an opened stream, which also gives the object back.
bool RemoveStream(aoStream* stream) {
  if (stream == nullptr) return false;
  if (stream->Remove()) return true;
  stream->Release();
  return false;
}

// Three new folder levels: the recorder enters each one before the entries
// below it, and every kind of entry and blob form lands in the innermost.
bool EditNewTree(aoStorage* storage, const Bytes& data) {
  aoStream* tree = storage->OpenOrCreateStream("Tree", 1);
  aoStream* mid = tree != nullptr ? tree->OpenOrCreateStream("Mid", 1) : nullptr;
  aoStream* leaf = mid != nullptr ? mid->OpenOrCreateStream("Leaf", 1) : nullptr;
  RECT rect{1, 2, 3, 4};
  SIZE size{640, 480};
  void* bytes = const_cast<unsigned char*>(data.data());
  const bool ok = leaf != nullptr && leaf->SetEntry("r", &rect) != 0 && leaf->SetEntry("sz", &size) != 0 &&
                  leaf->SetEntry("u64", uint64_t{0x8000000000000001u}) != 0 && leaf->SetEntry("d", 0.125) != 0 &&
                  leaf->SetEntry("blob", bytes, 3) != 0 && leaf->SetEntry("blob", bytes, 5) != 0 &&
                  leaf->SetEntryNoPrefix("raw", bytes, 3) != 0 && leaf->SetEntryNoPrefix("raw", bytes, 4) != 0 &&
                  leaf->SetEntryEraseOld("rep", bytes, 10, 1) != 0 && leaf->SetEntryEraseOld("rep", bytes, 4, 1) != 0;
  // Released innermost first: an edit of a folder while one of its children
  // is still entered would stop the log.
  if (leaf != nullptr) leaf->Release();
  const bool midOk = mid != nullptr && mid->SetEntry("m", 9) != 0;
  for (aoStream* stream : {mid, tree}) {
    if (stream != nullptr) stream->Release();
  }
  return ok && midOk;
}

// Entries of several kinds (fast ones, and a string long enough for the
// long-length escape), values through the operators, a removed child and a
// removed folder: the edits a recorder logs.
bool EditSession(aoStorage* storage) {
  bool ok = storage->SetEntry("title", "Edited") != 0 && storage->SetEntry("count", 7) != 0 &&
            storage->SetEntry("big", int64_t{1} << 50) != 0 &&
            storage->SetEntry("long", std::string(70000, 'L').c_str()) != 0 &&
            storage->SetEntryFast("fastS", "fast string") != 0 && storage->SetEntryFast("fastA", 11) != 0;
  aoStream* appended = storage->OpenOrCreateStreamFast("fastA", 1);
  if (appended != nullptr) {
    *appended << 12;
    appended->Release();
  }
  ok = ok && appended != nullptr && EditNewTree(storage, Pattern(10, 41));
  aoStream* docs = storage->OpenStream("Docs", kAoModeEdit);
  if (docs == nullptr) return false;
  ok = ok && docs->SetEntry("keep", "replaced text") != 0;
  Bytes data = Pattern(9000, 40);
  ok = ok && docs->SetEntry("fresh", data.data(), 9000) != 0 &&
       docs->SetEntryEraseOld("swapped", data.data(), 500, 1) != 0;
  aoStream* values = docs->OpenOrCreateStream("values", 0);
  if (values != nullptr) {
    *values << 8 << 9.5 << static_cast<int64_t>(-10) << "text";
    values->Release();
  }
  ok = ok && values != nullptr && RemoveStream(docs->OpenStream("old", kAoModeEdit));
  docs->Release();
  return ok && RemoveStream(storage->OpenStream("Junk", kAoModeEdit));
}

// Copies base to path and records the session on it; the log, or nothing.
Bytes RecordSession(const std::string& base, const std::string& path) {
  if (!platform::Files().Copy(base.c_str(), path.c_str())) return {};
  aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
  if (storage == nullptr) return {};
  Bytes log;
  if (storage->StartRecording() == 1) {
    const bool edited = EditSession(storage);
    std::unique_ptr<CCompRecorder> recorder(storage->StopRecording());
    unsigned int length = 0;
    unsigned char* bytes = recorder != nullptr ? recorder->Detach(&length) : nullptr;
    if (edited && bytes != nullptr && recorder->HasBeenStopped() == 0) log.assign(bytes, bytes + length);
    CCompRecorder::Free(bytes);
  }
  storage->Release();
  return log;
}

// Every stream of a container by path, folders marked by a trailing slash,
// data streams with their bytes.
void AddTree(aoStream* stream, const std::string& path, std::map<std::string, Bytes>& tree) {
  if (stream->IsFolder() == 0) {
    tree[path] = Drain(stream);
  } else {
    tree[path + "/"];
    std::vector<std::string> names;
    stream->EnumStreams(names);
    for (const std::string& name : names) {
      aoStream* child = stream->OpenStream(name.c_str(), kAoModeInspect);
      if (child != nullptr) AddTree(child, path + "/" + name, tree);
    }
  }
  stream->Release();
}

std::map<std::string, Bytes> ReadTree(const std::string& path) {
  std::map<std::string, Bytes> tree;
  aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
  if (storage == nullptr) return tree;
  void* position = nullptr;
  for (aoStream* stream = storage->OpenStreamFirst(&position, kAoModeInspect, 1); stream != nullptr;
       stream = storage->OpenStreamNext(&position, kAoModeInspect)) {
    AddTree(stream, stream->GetName(), tree);
  }
  storage->Release();
  return tree;
}

}  // namespace

Problems WriteRecording(const std::string& folder) {
  Problems problems;
  const std::string base = In(folder, kBase);
  if (!problems.Expect(WriteBase(base), "writing the replay base")) return problems;
  const Bytes log = RecordSession(base, In(folder, kRecorded));
  if (problems.Expect(!log.empty(), "recording the session")) {
    problems.Expect(WriteFile(In(folder, kLog), log), "writing the log");
  }
  return problems;
}

Problems VerifyRecording(const std::string& folder, const std::string& scratch) {
  Problems problems;
  const std::string base = In(folder, kBase);
  Bytes log = ReadFile(In(folder, kLog));
  if (!problems.Expect(!log.empty(), "no log")) return problems;

  // Replayed here on the other build's starting file, the log gives what
  // the other build's session gave.
  const std::string replayed = In(scratch, "replayed.dat");
  if (!problems.Expect(platform::Files().Copy(base.c_str(), replayed.c_str()), "copying the replay base")) {
    return problems;
  }
  aoStorage* storage = aoStorage::Open(replayed.c_str(), kAoModeEdit, 0, 0);
  if (!problems.Expect(storage != nullptr, "opening the replay copy")) return problems;
  const int records = storage->ReplayRecording(log.data(), static_cast<uint32_t>(log.size()));
  storage->Release();
  problems.Expect(records > 0, "the replay processed no records");
  const std::map<std::string, Bytes> recorded = ReadTree(In(folder, kRecorded));
  problems.Expect(recorded.count("Docs/fresh") == 1 && recorded.count("Tree/Mid/Leaf/rep") == 1 &&
                      recorded.count("Junk/") == 0 && recorded.count("Docs/old") == 0,
                  "the recorded container lacks the session's edits");
  problems.Expect(ReadTree(replayed) == recorded, "the replayed container differs from the recorded one");

  // The same session recorded here writes the same log.
  problems.Expect(RecordSession(base, In(scratch, "recorded-here.dat")) == log, "this build records another log");
  return problems;
}

}  // namespace ao::compat
