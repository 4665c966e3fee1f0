// Containers of both offset widths: data streams over several blocks, nested
// folders with a duration, and typed entries of every kind.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "compat/fixtures.h"

namespace ao::compat {
namespace {

constexpr uint32_t kFolder = 1;
constexpr uint32_t kDuration = 7;
// Small blocks, so that the data streams span many of them.
constexpr uint32_t kBlockCapacity = 4096;
const RECT kBox = {-10, 20, 300, 4000};
const SIZE kExtent = {640, 480};
constexpr int64_t kBig = 0x0123456789ABCDEF;
constexpr uint64_t kHuge = 0xFEDCBA9876543210u;

struct Variant {
  const char* file;
  int use64BitOffsets;
};
constexpr Variant kVariants[] = {{"v2.dat", 1}, {"v1.dat", 0}};

bool WriteAll(aoStream* stream, const Bytes& bytes, size_t piece) {
  for (size_t at = 0; at < bytes.size(); at += piece) {
    const auto count = static_cast<int64_t>(std::min(piece, bytes.size() - at));
    if (stream->Write(bytes.data() + at, count, false, nullptr) != count) return false;
  }
  return true;
}

bool WriteTree(aoStorage* storage) {
  bool ok = storage->SetEntry("Count", 42) != 0 && storage->SetEntry("Ratio", 2.5) != 0 &&
            storage->SetEntry("Name", "Zelvanor") != 0 && storage->SetEntry("Big", kBig) != 0;
  aoStream* data = storage->CreateStream("Data", kAoModeEdit);
  ok = ok && data != nullptr && WriteAll(data, Pattern(150000, 1), 10000);
  if (data != nullptr) data->Release();

  aoStream* folder = storage->CreateStream("Folder", kFolder | (kDuration << 16), kAoModeEdit);
  if (folder == nullptr) return false;
  aoStream* a = folder->CreateStream("a", 0, kAoModeEdit, 0);
  ok = ok && a != nullptr && WriteAll(a, Pattern(5000, 2), 5000);
  if (a != nullptr) a->Release();
  aoStream* sub = folder->CreateStream("Sub", kFolder, kAoModeEdit, 0);
  if (sub != nullptr) {
    RECT box = kBox;
    SIZE extent = kExtent;
    Bytes blob = Pattern(300, 4);
    ok = ok && sub->SetEntry("Box", &box) != 0 && sub->SetEntry("Extent", &extent) != 0 &&
         sub->SetEntryEraseOld("Blob", blob.data(), static_cast<uint32_t>(blob.size()), 1) != 0 &&
         sub->SetEntry("Huge", kHuge) != 0;
    aoStream* deep = sub->CreateStream("deep", 0, kAoModeEdit, 0);
    ok = ok && deep != nullptr && WriteAll(deep, Pattern(70000, 3), 7000);
    if (deep != nullptr) deep->Release();
    sub->Release();
  }
  folder->Release();
  return ok && sub != nullptr;
}

bool Create(const std::string& path, int use64BitOffsets) {
  const int saved = aoStorage::g_bUse64BitOffsets;
  aoStorage::g_bUse64BitOffsets = use64BitOffsets;
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, kBlockCapacity);
  aoStorage::g_bUse64BitOffsets = saved;
  if (storage == nullptr) return false;
  const bool ok = WriteTree(storage);
  storage->Release();
  return ok;
}

Bytes ReadStream(aoStream* parent, aoStorage* storage, const char* name) {
  aoStream* stream = parent != nullptr ? parent->OpenStream(name, kAoModeInspect) : storage->OpenStream(name, kAoModeInspect);
  if (stream == nullptr) return {};
  Bytes bytes = Drain(stream);
  stream->Release();
  return bytes;
}

void VerifyTree(aoStorage* storage, char version, const std::string& file, Problems& problems) {
  const std::string in = file + ": ";
  problems.Expect(storage->GetVersion() == version, in + "version " + std::string(1, storage->GetVersion()));
  problems.Expect(storage->GetEntry("Count", 0) == 42, in + "entry Count");
  problems.Expect(storage->GetEntry("Ratio", 0.0) == 2.5, in + "entry Ratio");
  problems.Expect(storage->GetEntry("Name", "") == "Zelvanor", in + "entry Name");
  problems.Expect(storage->GetEntry("Big", int64_t{0}) == kBig, in + "entry Big");
  problems.Expect(ReadStream(nullptr, storage, "Data") == Pattern(150000, 1), in + "stream Data");

  aoStream* folder = storage->OpenStream("Folder", kAoModeInspect);
  if (!problems.Expect(folder != nullptr, in + "no Folder")) return;
  problems.Expect(folder->IsFolder() != 0 && folder->GetDuration() == kDuration, in + "Folder record");
  std::vector<std::string> names;
  folder->EnumStreams(names);
  std::sort(names.begin(), names.end());
  problems.Expect(names == std::vector<std::string>{"Sub", "a"}, in + "children of Folder");
  problems.Expect(ReadStream(folder, storage, "a") == Pattern(5000, 2), in + "stream Folder/a");
  aoStream* sub = folder->OpenStream("Sub", kAoModeInspect);
  if (problems.Expect(sub != nullptr, in + "no Folder/Sub")) {
    RECT box{};
    SIZE extent{};
    const RECT none{};
    const SIZE noSize{};
    sub->GetEntry("Box", &box, &none);
    sub->GetEntry("Extent", &extent, &noSize);
    problems.Expect(box.left == kBox.left && box.top == kBox.top && box.right == kBox.right &&
                        box.bottom == kBox.bottom,
                    in + "entry Box");
    problems.Expect(extent.cx == kExtent.cx && extent.cy == kExtent.cy, in + "entry Extent");
    problems.Expect(sub->GetEntry("Huge", uint64_t{0}) == kHuge, in + "entry Huge");
    void* blob = nullptr;
    unsigned int blobSize = 0;
    const bool gotBlob = sub->GetEntryErasedOld("Blob", &blob, &blobSize) != 0 && blob != nullptr;
    const auto* blobBytes = static_cast<const unsigned char*>(blob);
    problems.Expect(gotBlob && Bytes(blobBytes, blobBytes + blobSize) == Pattern(300, 4), in + "entry Blob");
    aoFreeBuffer(blob);
    problems.Expect(ReadStream(sub, storage, "deep") == Pattern(70000, 3), in + "stream Folder/Sub/deep");
    sub->Release();
  }
  folder->Release();
}

}  // namespace

Problems WriteContainers(const std::string& folder) {
  Problems problems;
  for (const Variant& variant : kVariants) {
    problems.Expect(Create(In(folder, variant.file), variant.use64BitOffsets), std::string("writing ") + variant.file);
  }
  return problems;
}

Problems VerifyContainers(const std::string& folder, const std::string& scratch) {
  Problems problems;
  for (const Variant& variant : kVariants) {
    const std::string path = In(folder, variant.file);
    aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
    if (!problems.Expect(storage != nullptr, std::string("cannot open ") + variant.file)) continue;
    VerifyTree(storage, variant.use64BitOffsets != 0 ? '2' : '1', variant.file, problems);
    storage->Release();
    // The same edits made here give the same file, byte for byte: nothing
    // in the format depends on the build that wrote it.
    const std::string again = In(scratch, variant.file);
    if (problems.Expect(Create(again, variant.use64BitOffsets), std::string("rewriting ") + variant.file)) {
      problems.Expect(ReadFile(again) == ReadFile(path), std::string(variant.file) + " differs from this build's");
    }
  }
  return problems;
}

}  // namespace ao::compat
