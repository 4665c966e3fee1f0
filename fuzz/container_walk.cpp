#include "container_walk.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "aostore/aostore.h"

namespace ao::fuzz {
namespace {

constexpr int kMaxDepth = 6;
constexpr int kMaxStreams = 200;
constexpr int64_t kMaxBytes = 1 << 20;

void WriteFile(const std::string& path, const uint8_t* data, size_t size) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return;
  if (size > 0) std::fwrite(data, 1, size, file);
  std::fclose(file);
}

class Walker {
 public:
  explicit Walker(aoStorage* storage, bool edit) : storage_(storage), edit_(edit) {}

  int reached() const { return reached_; }

  void WalkRoot() {
    for (int sorting = 0; sorting < 2; ++sorting) {
      storage_->EnableSorting(sorting, sorting);
      void* position = nullptr;
      int steps = 0;
      for (aoStream* stream = storage_->OpenStreamFirst(&position, kAoModeInspect, sorting);
           steps++ < kMaxStreams; stream = storage_->OpenStreamNext(&position, kAoModeInspect)) {
        if (stream != nullptr) Visit(stream, 0);
        const bool atEnd = sorting ? reinterpret_cast<intptr_t>(position) < 0 : position == nullptr;
        if (atEnd) break;
      }
    }
    int physical = 0;
    int steps = 0;
    for (aoStream* stream = storage_->OpenStreamFirst2(&physical, kAoModeInspect);
         stream != nullptr && steps++ < kMaxStreams; stream = storage_->OpenStreamNext2(&physical, kAoModeInspect))
      Visit(stream, kMaxDepth);
    if (aoStream* walker = storage_->OpenStreamFirst(kAoModeInspect)) {
      for (int i = 0; i < kMaxStreams && walker->GoNext(); ++i) ++reached_;
      walker->Release();
    }
    CIterateSortedStreams iterate;
    for (int i = 0; i < kMaxStreams && storage_->IterateSortedStreamsNoOPENS(&iterate, 1) == 1; ++i)
      iterate.m_nSpan = 0;
    if (CMapStringToStreamOffset* list = storage_->CreateSortedStreamList()) storage_->DestroySortedStreamList(list);
    Entries();
    if (aoStream* fast = storage_->OpenStreamFast("fast", kAoModeInspect)) fast->Release();
    if (edit_) Edit();
  }

 private:
  void Entries() {
    storage_->GetEntry("e", "default");
    storage_->GetEntry("e", 1);
    storage_->GetEntry("e", 1.5);
    storage_->GetEntry("e", int64_t{7});
    storage_->GetEntryFast("e", 3);
    void* data = nullptr;
    unsigned int size = 0;
    if (storage_->GetEntryErasedOld("e", &data, &size) == 1) aoFreeBuffer(data);
    unsigned char buffer[16];
    storage_->GetEntryErasedOld("e", buffer, sizeof buffer);
  }

  void Visit(aoStream* stream, int depth) {
    ++reached_;
    std::vector<unsigned char> buffer(4096);
    int64_t total = 0;
    for (int64_t got; total < kMaxBytes && (got = stream->Read(buffer.data(), 4096)) > 0;) total += got;
    stream->GetAllocLength();
    stream->Seek2(-3, 0);
    stream->Seek(5, 2, true);
    stream->Seek(2, 2, false);
    stream->Seek2(17, 1);
    int64_t verified = 0;
    stream->Seek(0, 0, true);
    stream->GetVerifiedDataLength(verified);
    stream->Seek(0, 0, true);
    unsigned char* all = nullptr;
    int64_t length = 0;
    if (stream->ReadAll(&all, &length) == 1) aoStream::FreeBuffer(all);
    if (stream->IsFolder() && depth < kMaxDepth) Folder(stream, depth);
    stream->Release();
  }

  void Folder(aoStream* folder, int depth) {
    int64_t position = 0;
    int steps = 0;
    for (aoStream* child = folder->OpenStreamFirst(&position, kAoModeInspect);
         child != nullptr && steps++ < kMaxStreams; child = folder->OpenStreamNext(&position, kAoModeInspect))
      Visit(child, depth + 1);
    t_aoStreamU record;
    tag_aoStreamOffset where;
    folder->FindStream("e", record, where);
    std::vector<std::string> names;
    if (depth < 2) folder->EnumStreams(names);
    folder->GetEntry("e", "x");
    folder->GetEntry("e", 1);
    RECT rect{};
    folder->GetEntry("r", &rect, &rect);
    folder->PreloadChildren();
    folder->EnableSorting(1, 1);
    void* cursor = nullptr;
    steps = 0;
    for (aoStream* child = folder->OpenPreloadChildrenFirst(&cursor, kAoModeInspect);
         child != nullptr && steps++ < kMaxStreams; child = folder->OpenPreloadChildrenNext(&cursor, kAoModeInspect))
      child->Release();
    t_aoStreamWithOffset out;
    std::string name;
    cursor = nullptr;
    for (int i = 0, more = folder->GetPreloadChildrenOffsetFirst(&cursor, 0, out, name); more == 1 && i < kMaxStreams;
         ++i)
      more = folder->GetPreloadChildrenOffsetNext(&cursor, 0, out, name);
  }

  void Edit() {
    if (aoStream* created = storage_->OpenOrCreateStream("fuzz-new", 1)) {
      if (aoStream* child = created->OpenOrCreateStream("child", 0)) {
        child->Write("abc", 3, false, nullptr);
        child->Release();
      }
      created->Release();
    }
    storage_->SetEntry("fuzz-entry", 5);
    void* position = nullptr;
    if (aoStream* first = storage_->OpenStreamFirst(&position, kAoModeEdit, 1)) {
      first->Seek(0, 1, true);
      first->Write("tail", 4, false, nullptr);
      if (first->IsFolder()) {
        if (aoStream* child = first->CreateStream("added", 0, kAoModeEdit, 1)) child->Release();
      }
      if (!first->Remove()) first->Release();
    }
  }

  aoStorage* storage_;
  bool edit_;
  int reached_ = 0;
};

}  // namespace

std::string ScratchPath(const char* stem) {
  const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return std::string(dir) + "/" + stem + "-" + std::to_string(getpid()) + ".dat";
}

int WalkContainerBytes(const std::string& path, const uint8_t* data, size_t size) {
  int reached = 0;
  for (int way = 0; way < 3; ++way) {
    WriteFile(path, data, size);
    aoStorage* storage = way == 0   ? aoStorage::Open(path.c_str(), kAoModeInspect, 0, 1)
                         : way == 1 ? aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0)
                                    : aoStorage::Open(path.c_str(), kAoModeEdit, 4096, 0);
    if (storage == nullptr) continue;
    Walker walker(storage, way == 2);
    walker.WalkRoot();
    reached += walker.reached();
    storage->Release();
  }
  std::remove(path.c_str());
  return reached;
}

int ReplayLogBytes(const std::string& path, const uint8_t* data, size_t size) {
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  if (storage == nullptr) return 0;
  if (aoStream* folder = storage->CreateStream("folder", 1, kAoModeEdit)) {
    if (aoStream* child = folder->CreateStream("child", 0, kAoModeEdit, 1)) child->Release();
    folder->Release();
  }
  storage->SetEntry("value", 1);
  storage->StartRecording();
  // Replay does not own the log: it works on a copy it may not keep.
  std::vector<unsigned char> log(data, data + size);
  const int replayed = storage->ReplayRecording(log.data(), static_cast<uint32_t>(log.size()));
  delete storage->StopRecording();
  storage->Release();

  CCompRecorder reader;
  reader.Attach(log.data(), static_cast<unsigned int>(log.size()), 0);
  RecOpEnum op;
  char text[kAoNameFieldSize];
  unsigned char* bytes = nullptr;
  uint32_t length = 0;
  int ops = 0;
  while (ops < 100000 && reader.PopOp(&op, text, &bytes, &length) == 1) ++ops;
  reader.ThrowExceptions(1);
  reader.SeekToBegin();
  try {
    while (ops < 200000 && reader.PopOp(&op, text, &bytes, &length) == 1) ++ops;
  } catch (const std::string&) {
  }
  reader.Detach(nullptr);
  std::remove(path.c_str());
  return replayed;
}

}  // namespace ao::fuzz
