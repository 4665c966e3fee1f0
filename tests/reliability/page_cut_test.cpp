// A process killed inside a write call can leave the call done only up to a
// page boundary: Linux copies a write a page at a time and lets a fatal
// signal end it between pages. A backend that cuts the first small in-place
// write crossing a page that way, and keeps the file exactly as it stood at
// that moment, stands in for such a kill at the worst place.
#if !defined(_WIN32)
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "aostore/check.h"
#include "platform/files.h"
#include "storage/format.h"
#include "support/temp_dir.h"

namespace {

using ao::platform::FileApi;
using ao::platform::FileView;

constexpr int64_t kPage = 4096;

class PageCutFiles final : public FileApi {
 public:
  explicit PageCutFiles(FileApi& inner) : inner_(inner) {}

  // The file as the killed writer left it; empty while nothing was cut.
  const std::vector<unsigned char>& image() const { return image_; }

  ao::FileHandle Open(const char* path, bool write, ao::platform::Disposition disposition,
                      ao::platform::Mapping mapping) override {
    return inner_.Open(path, write, disposition, mapping);
  }
  void Close(ao::FileHandle file) override { inner_.Close(file); }
  bool ReadAt(ao::FileHandle file, void* buffer, size_t count, int64_t offset, size_t* done) override {
    return inner_.ReadAt(file, buffer, count, offset, done);
  }
  bool WriteAt(ao::FileHandle file, const void* buffer, size_t count, int64_t offset, size_t* done) override {
    const int64_t end = offset + static_cast<int64_t>(count);
    const int64_t boundary = (offset / kPage + 1) * kPage;
    // A field rewritten in place (an append is new bytes nobody refers to).
    const bool rewrite = count <= 92 && end <= inner_.Size(file);
    if (!image_.empty() || !rewrite || end <= boundary) return inner_.WriteAt(file, buffer, count, offset, done);
    size_t head = 0;
    if (!inner_.WriteAt(file, buffer, static_cast<size_t>(boundary - offset), offset, &head)) return false;
    image_.resize(static_cast<size_t>(inner_.Size(file)));
    size_t got = 0;
    EXPECT_TRUE(inner_.ReadAt(file, image_.data(), image_.size(), 0, &got) && got == image_.size());
    // The writer carries on unaware; only the image matters from here.
    return inner_.WriteAt(file, buffer, count, offset, done);
  }
  int64_t Size(ao::FileHandle file) override { return inner_.Size(file); }
  bool SetSize(ao::FileHandle file, int64_t size) override { return inner_.SetSize(file, size); }
  bool Flush(ao::FileHandle file) override { return inner_.Flush(file); }
  bool Identify(ao::FileHandle file, ao::platform::FileIdentity& identity) override {
    return inner_.Identify(file, identity);
  }
  ao::FileHandle OpenForLocking(const char* path) override { return inner_.OpenForLocking(path); }
  ao::platform::LockResult SetLock(ao::FileHandle handle, ao::platform::LockMode held,
                                   ao::platform::LockMode wanted) override {
    return inner_.SetLock(handle, held, wanted);
  }
  bool Copy(const char* from, const char* to) override { return inner_.Copy(from, to); }
  bool Delete(const char* path) override { return inner_.Delete(path); }
  bool Exists(const char* path) override { return inner_.Exists(path); }
  bool Rename(const char* from, const char* to) override { return inner_.Rename(from, to); }
  FileView MapForWriting(ao::FileHandle file, int64_t offset, size_t count) override {
    return inner_.MapForWriting(file, offset, count);
  }
  void Unmap(const FileView& view) override { inner_.Unmap(view); }
  // A store is not a write call: no kill cuts it between pages.
  bool StoreAt(ao::FileHandle file, const void* bytes, size_t count, int64_t offset) override {
    return inner_.StoreAt(file, bytes, count, offset);
  }

 private:
  FileApi& inner_;
  std::vector<unsigned char> image_;
};

std::string Name(int i) {
  char name[16];
  std::snprintf(name, sizeof name, "s%04d", i);
  return name;
}

TEST(PageCut, ALengthAcrossAPageIsNeverLeftHalfWritten) {
  // Only a store into a mapping is never cut between pages.
  if (aoStorage::g_bUseFileMapping == 0) GTEST_SKIP() << "file mapping is off: write calls can be cut between pages";
  ao::test::TempDir dir;
  const std::string path = dir.File("cut.dat");
  constexpr int kStreams = 2000;
  aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  ASSERT_NE(storage, nullptr);
  for (int i = 0; i < kStreams; ++i) {
    aoStream* stream = storage->CreateStream(Name(i).c_str(), kAoModeEdit);
    ASSERT_NE(stream, nullptr);
    stream->Release();
  }
  // The streams whose length and last-block link straddle a page boundary.
  std::vector<int> straddling;
  const int pairSize = ao::format::LengthPairSize(storage->Uses64BitOffsets());
  for (int i = 0; i < kStreams; ++i) {
    tag_aoStreamOffset where;
    ASSERT_TRUE(storage->FindStreamOffset(Name(i).c_str(), where));
    const int64_t pair = where.recordOffset + ao::format::kRecordLengthOffset;
    if (pair / kPage != (pair + pairSize - 1) / kPage) straddling.push_back(i);
  }
  ASSERT_FALSE(straddling.empty());

  // Each straddling stream gets its first bytes (length and link both change
  // from 0) and then more (the length grows past a byte boundary).
  std::vector<std::string> finished;
  PageCutFiles cutter(ao::platform::SystemFiles());
  FileApi* previous = ao::platform::SetFilesForTesting(&cutter);
  const std::vector<unsigned char> bytes = ao::test::Pattern(300, 7);
  for (int i : straddling) {
    aoStream* stream = storage->OpenStream(Name(i).c_str(), kAoModeEdit);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->Write(bytes.data(), 4, false, nullptr), 4);
    EXPECT_EQ(stream->Write(bytes.data() + 4, 296, false, nullptr), 296);
    stream->Release();
    if (!cutter.image().empty()) break;
    finished.push_back(Name(i));
  }
  storage->Release();
  ao::platform::SetFilesForTesting(previous);

  const std::string examined = cutter.image().empty() ? path : dir.File("killed.dat");
  if (examined != path) ao::test::WriteWholeFile(examined, cutter.image());
  const ao::CheckReport report = ao::CheckContainer(examined.c_str());
  EXPECT_EQ(report.problemCount, 0) << (report.problems.empty() ? "" : report.problems[0].message);
  aoStorage* reopened = aoStorage::Open(examined.c_str(), kAoModeInspect, 0, 0);
  ASSERT_NE(reopened, nullptr);
  for (const std::string& name : finished) {
    aoStream* stream = reopened->OpenStream(name.c_str(), kAoModeInspect);
    ASSERT_NE(stream, nullptr) << name;
    std::vector<unsigned char> back(bytes.size());
    EXPECT_EQ(stream->GetLength(), static_cast<int64_t>(bytes.size())) << name;
    EXPECT_EQ(stream->Read(back.data(), static_cast<int64_t>(back.size())), static_cast<int64_t>(back.size()));
    EXPECT_EQ(back, bytes) << name;
    stream->Release();
  }
  reopened->Release();
}

}  // namespace
#endif
