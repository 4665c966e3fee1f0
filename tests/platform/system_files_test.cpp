// The operating system's file backend, on real files: positional I/O that
// never depends on a shared file pointer, sizes, and the path operations.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/files.h"
#include "support/temp_dir.h"

namespace {

using ao::platform::Disposition;
using ao::platform::FileApi;
using ao::test::Pattern;
using ao::test::ReadWholeFile;
using ao::test::TempDir;
using ao::test::WriteWholeFile;
using Bytes = std::vector<unsigned char>;

FileApi& System() { return ao::platform::SystemFiles(); }

// Closes the handle at the end of a test, also when an assertion fails.
class OpenFile {
 public:
  OpenFile(const std::string& path, bool write, Disposition disposition)
      : handle_(System().Open(path.c_str(), write, disposition, ao::platform::Mapping::kAllowed)) {}
  ~OpenFile() { System().Close(handle_); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ao::FileHandle get() const { return handle_; }
  bool valid() const { return handle_ != ao::kInvalidFile; }

 private:
  ao::FileHandle handle_;
};

Bytes ReadAt(ao::FileHandle file, size_t count, int64_t offset, bool* ok = nullptr) {
  Bytes bytes(count, 0xEE);
  size_t done = 0;
  const bool result = System().ReadAt(file, bytes.data(), count, offset, &done);
  if (ok != nullptr) *ok = result;
  bytes.resize(done);
  return bytes;
}

// A temporary folder and a file path in it for each test.
class SystemFiles : public ::testing::Test {
 protected:
  TempDir dir;
  const std::string path = dir.File("file.dat");
};

TEST_F(SystemFiles, PositionalWritesLandWhereTheySayAndReadsStopAtTheEnd) {
  OpenFile file(path, true, Disposition::kOpenAlways);
  ASSERT_TRUE(file.valid());
  size_t done = 0;
  // Written back to front: nothing may follow an implicit file pointer.
  ASSERT_TRUE(System().WriteAt(file.get(), "world", 5, 6, &done));
  EXPECT_EQ(done, 5u);
  ASSERT_TRUE(System().WriteAt(file.get(), "hello ", 6, 0, &done));
  EXPECT_EQ(System().Size(file.get()), 11);

  EXPECT_EQ(ReadAt(file.get(), 5, 6), Bytes({'w', 'o', 'r', 'l', 'd'}));
  bool ok = false;
  EXPECT_EQ(ReadAt(file.get(), 100, 8, &ok), Bytes({'r', 'l', 'd'}));
  EXPECT_TRUE(ok);
  EXPECT_TRUE(ReadAt(file.get(), 4, 11, &ok).empty());
  EXPECT_TRUE(ok);
  EXPECT_TRUE(ReadAt(file.get(), 4, int64_t{1} << 40, &ok).empty());
  EXPECT_TRUE(ok);
  EXPECT_TRUE(System().Flush(file.get()));
}

TEST_F(SystemFiles, SetSizeExtendsWithZerosAndCuts) {
  WriteWholeFile(path, {1, 2, 3});
  {
    OpenFile file(path, true, Disposition::kOpenExisting);
    ASSERT_TRUE(file.valid());
    ASSERT_TRUE(System().SetSize(file.get(), 70000));
    EXPECT_EQ(System().Size(file.get()), 70000);
    const Bytes grown = ReadAt(file.get(), 70000, 0);
    ASSERT_EQ(grown.size(), 70000u);
    EXPECT_EQ(Bytes(grown.begin(), grown.begin() + 3), Bytes({1, 2, 3}));
    EXPECT_EQ(Bytes(grown.begin() + 3, grown.end()), Bytes(69997, 0));
    ASSERT_TRUE(System().SetSize(file.get(), 2));
    EXPECT_FALSE(System().SetSize(file.get(), -1));
  }
  EXPECT_EQ(ReadWholeFile(path), Bytes({1, 2}));
}

// Growing the file while other threads write at their own offsets must
// neither move their bytes nor end the file anywhere but where it was set.
TEST_F(SystemFiles, ResizingWhileOthersWriteKeepsTheirBytesAndTheSize) {
  OpenFile file(path, true, Disposition::kOpenAlways);
  ASSERT_TRUE(file.valid());
  constexpr int kWriters = 3;
  constexpr int kPieces = 64;
  constexpr size_t kPiece = 4096;
  constexpr int64_t kFinalSize = int64_t{kWriters} * kPieces * kPiece * 4;
  std::atomic<bool> failed{false};
  std::vector<std::thread> threads;
  for (int w = 0; w < kWriters; ++w) {
    threads.emplace_back([&, w] {
      const Bytes piece = Pattern(kPiece, static_cast<uint32_t>(w));
      for (int p = 0; p < kPieces; ++p) {
        size_t done = 0;
        const int64_t at = (int64_t{p} * kWriters + w) * static_cast<int64_t>(kPiece);
        if (!System().WriteAt(file.get(), piece.data(), kPiece, at, &done) || done != kPiece) failed = true;
      }
    });
  }
  // Every size set lies beyond the writers' bytes, so none of them is cut.
  threads.emplace_back([&] {
    for (int64_t size = kFinalSize / 4 + 1; size < kFinalSize; size += kFinalSize / 64) {
      if (!System().SetSize(file.get(), size)) failed = true;
    }
    if (!System().SetSize(file.get(), kFinalSize)) failed = true;
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(failed);
  EXPECT_EQ(System().Size(file.get()), kFinalSize);
  for (int p = 0; p < kPieces; ++p) {
    for (int w = 0; w < kWriters; ++w) {
      const int64_t at = (int64_t{p} * kWriters + w) * static_cast<int64_t>(kPiece);
      ASSERT_EQ(ReadAt(file.get(), kPiece, at), Pattern(kPiece, static_cast<uint32_t>(w))) << "piece at " << at;
    }
  }
}

// Reads through one handle follow what happens to the file through any
// other: writes show at once, and a file cut short by another program reads
// as short instead of bringing the process down.
TEST_F(SystemFiles, ReadsFollowWritesAndCutsMadeElsewhere) {
  OpenFile writer(path, true, Disposition::kOpenAlways);
  OpenFile reader(path, false, Disposition::kOpenExisting);
  ASSERT_TRUE(writer.valid() && reader.valid());
  const Bytes first = Pattern(65536, 1);
  size_t done = 0;
  ASSERT_TRUE(System().WriteAt(writer.get(), first.data(), first.size(), 0, &done));
  EXPECT_EQ(ReadAt(reader.get(), 4096, 61440), Bytes(first.begin() + 61440, first.end()));
  const Bytes distant = Pattern(100, 2);
  ASSERT_TRUE(System().WriteAt(writer.get(), distant.data(), distant.size(), 1 << 20, &done));
  EXPECT_EQ(ReadAt(reader.get(), 100, 1 << 20), distant);

  std::filesystem::resize_file(path, 1000);
  bool ok = false;
  EXPECT_TRUE(ReadAt(reader.get(), 4096, 61440, &ok).empty());
  EXPECT_TRUE(ok);
  EXPECT_EQ(ReadAt(reader.get(), 4096, 0), Bytes(first.begin(), first.begin() + 1000));

  const Bytes again = Pattern(4096, 3);
  ASSERT_TRUE(System().WriteAt(writer.get(), again.data(), again.size(), 61440, &done));
  EXPECT_EQ(ReadAt(reader.get(), 4096, 61440), again);
}

// Reads of a few KiB into buffers at every placement relative to the file's
// bytes, including those a copy must take in pieces.
TEST_F(SystemFiles, ReadsArriveWholeWhereverTheBufferLies) {
  const Bytes content = Pattern(16384, 7);
  WriteWholeFile(path, content);
  OpenFile file(path, false, Disposition::kOpenExisting);
  ASSERT_TRUE(file.valid());
  Bytes buffer(8192 + 4096);
  for (size_t shift = 0; shift < 4096; shift += 40) {
    const int64_t at = 100;
    size_t done = 0;
    ASSERT_TRUE(System().ReadAt(file.get(), buffer.data() + shift, 8000, at, &done));
    ASSERT_EQ(done, 8000u);
    ASSERT_TRUE(std::equal(content.begin() + at, content.begin() + at + 8000, buffer.begin() + shift)) << shift;
  }
}

// A writer's file grows ahead of its end in large steps while it is open;
// every handle of the process sees the end that was written, and closing the
// last writer leaves the file exactly that long, unless another program set
// a size of its own meanwhile.
TEST_F(SystemFiles, TheRoomGrownAheadIsNeverSeenAndIsGivenBack) {
  const Bytes piece = Pattern(100, 6);
  size_t done = 0;
  {
    OpenFile writer(path, true, Disposition::kOpenAlways);
    OpenFile reader(path, false, Disposition::kOpenExisting);
    ASSERT_TRUE(writer.valid() && reader.valid());
    for (int64_t at = 0; at < 1000; at += 100) {
      ASSERT_TRUE(System().WriteAt(writer.get(), piece.data(), piece.size(), at, &done));
    }
    EXPECT_EQ(System().Size(reader.get()), 1000);
    EXPECT_EQ(ReadAt(reader.get(), 4096, 900), piece);
#if !defined(_WIN32)
    EXPECT_GT(std::filesystem::file_size(path), 1000u);  // Windows extends the file as it writes
#endif
  }
  const Bytes closed = ReadWholeFile(path);
  ASSERT_EQ(closed.size(), 1000u);
  EXPECT_EQ(Bytes(closed.begin() + 900, closed.end()), piece);

  {
    OpenFile writer(path, true, Disposition::kOpenExisting);
    ASSERT_TRUE(writer.valid());
    ASSERT_TRUE(System().WriteAt(writer.get(), piece.data(), piece.size(), 1000, &done));
    std::filesystem::resize_file(path, 5000);
  }
  EXPECT_EQ(std::filesystem::file_size(path), 5000u);
}

#if !defined(_WIN32)  // only the POSIX backend grows a file ahead of its end
// A container's limit (4 GiB for 32-bit offsets) bounds the room grown
// ahead too: the file on disk never passes it, and a write beyond it fails.
TEST_F(SystemFiles, TheRoomGrownAheadStopsAtTheLimitItIsGiven) {
  constexpr int64_t kLimit = 1536 * 1024;
  const Bytes piece = Pattern(4000, 8);
  size_t done = 0;
  OpenFile writer(path, true, Disposition::kOpenAlways);
  ASSERT_TRUE(writer.valid());
  System().LimitGrowth(writer.get(), kLimit);
  int64_t at = 0;
  for (; at + static_cast<int64_t>(piece.size()) <= kLimit; at += static_cast<int64_t>(piece.size())) {
    ASSERT_TRUE(System().WriteAt(writer.get(), piece.data(), piece.size(), at, &done)) << at;
    ASSERT_LE(static_cast<int64_t>(std::filesystem::file_size(path)), kLimit) << at;
  }
  EXPECT_FALSE(System().WriteAt(writer.get(), piece.data(), piece.size(), at, &done));
  EXPECT_EQ(ao::platform::LastFileError(), ao::platform::FileError::kTooLarge);
  EXPECT_EQ(System().Size(writer.get()), at);
}
#endif

// Small appends well past a step of growth, onto data the file held before,
// with rewrites in between: every byte reads back where it was put, the old
// data is untouched, and the file ends at the last append.
TEST_F(SystemFiles, ALongRunOfSmallAppendsKeepsWhatWasThere) {
  const Bytes before = Pattern(10000, 10);
  WriteWholeFile(path, before);
  const Bytes piece = Pattern(4000, 11);
  const Bytes field = Pattern(8, 12);
  Bytes expected = before;
  {
    OpenFile writer(path, true, Disposition::kOpenExisting);
    ASSERT_TRUE(writer.valid());
    size_t done = 0;
    for (int i = 0; i < 600; ++i) {
      const auto at = static_cast<int64_t>(expected.size());
      ASSERT_TRUE(System().WriteAt(writer.get(), piece.data(), piece.size(), at, &done));
      expected.insert(expected.end(), piece.begin(), piece.end());
      if (i % 100 != 99) continue;
      const int64_t into = at - 1000;
      ASSERT_TRUE(System().WriteAt(writer.get(), field.data(), field.size(), into, &done));
      std::copy(field.begin(), field.end(), expected.begin() + into);
    }
    EXPECT_EQ(System().Size(writer.get()), static_cast<int64_t>(expected.size()));
    EXPECT_EQ(ReadAt(writer.get(), expected.size(), 0), expected);
  }
  EXPECT_EQ(ReadWholeFile(path), expected);
}

// A store rewrites bytes the file holds and never extends it: the room grown
// ahead lies inside the mapping but not inside the file.
TEST_F(SystemFiles, StoresRewriteOnlyWhatTheFileHolds) {
  const Bytes piece = Pattern(100, 8);
  const Bytes field = Pattern(16, 9);
  OpenFile writer(path, true, Disposition::kOpenAlways);
  OpenFile reader(path, false, Disposition::kOpenExisting);
  ASSERT_TRUE(writer.valid() && reader.valid());
  size_t done = 0;
  ASSERT_TRUE(System().WriteAt(writer.get(), piece.data(), piece.size(), 0, &done));

  EXPECT_FALSE(System().StoreAt(writer.get(), field.data(), field.size(), 90));
  EXPECT_FALSE(System().StoreAt(reader.get(), field.data(), field.size(), 8));
  EXPECT_EQ(System().Size(reader.get()), 100);
  EXPECT_EQ(ReadAt(reader.get(), 100, 0), piece);
#if !defined(_WIN32)  // only the POSIX backend keeps the file mapped
  ASSERT_TRUE(System().StoreAt(writer.get(), field.data(), field.size(), 84));
  Bytes expected = piece;
  std::copy(field.begin(), field.end(), expected.begin() + 84);
  EXPECT_EQ(ReadAt(reader.get(), 100, 0), expected);
#endif
}

// Some file systems (tmpfs) take a write at any offset below 2^63; what
// follows such a write must still read back.
TEST_F(SystemFiles, AWriteAtAFarOffsetReadsBack) {
  const std::filesystem::path shm("/dev/shm");
  std::error_code error;
  if (!std::filesystem::is_directory(shm, error)) GTEST_SKIP() << "no memory file system here";
  const std::string onShm = (shm / ("aostore-" + std::filesystem::path(dir.path()).filename().string())).string();
  {
    OpenFile file(onShm, true, Disposition::kOpenAlways);
    ASSERT_TRUE(file.valid());
    const Bytes opening = Pattern(16, 4);
    const Bytes distant = Pattern(8, 5);
    const int64_t at = int64_t{1} << 62;
    size_t done = 0;
    ASSERT_TRUE(System().WriteAt(file.get(), opening.data(), opening.size(), 0, &done));
    if (System().WriteAt(file.get(), distant.data(), distant.size(), at, &done)) {
      EXPECT_EQ(ReadAt(file.get(), 8, at), distant);
    }
    EXPECT_EQ(ReadAt(file.get(), 16, 0), opening);
  }
  System().Delete(onShm.c_str());
}

TEST_F(SystemFiles, DispositionsAndSharing) {
  EXPECT_FALSE(OpenFile(path, true, Disposition::kOpenExisting).valid());
  EXPECT_FALSE(System().Exists(path.c_str()));
  {
    OpenFile created(path, true, Disposition::kOpenAlways);
    ASSERT_TRUE(created.valid());
    size_t done = 0;
    ASSERT_TRUE(System().WriteAt(created.get(), "abcdef", 6, 0, &done));
    // A second handle on the same file sees the bytes at once, and a
    // read-only handle refuses to write.
    OpenFile reader(path, false, Disposition::kOpenExisting);
    ASSERT_TRUE(reader.valid());
    EXPECT_EQ(ReadAt(reader.get(), 3, 3), Bytes({'d', 'e', 'f'}));
    EXPECT_FALSE(System().WriteAt(reader.get(), "x", 1, 0, &done));
  }
  EXPECT_TRUE(System().Exists(path.c_str()));
  {
    OpenFile truncated(path, true, Disposition::kTruncateExisting);
    ASSERT_TRUE(truncated.valid());
    EXPECT_EQ(System().Size(truncated.get()), 0);
  }
  EXPECT_FALSE(OpenFile(dir.path(), false, Disposition::kOpenExisting).valid());
  EXPECT_FALSE(OpenFile(dir.File("missing/below.dat"), true, Disposition::kOpenAlways).valid());
}

TEST_F(SystemFiles, CopyRenameAndDeleteReplaceWhatIsThere) {
  const std::string a = dir.File("a.dat");
  const std::string b = dir.File("b.dat");
  const std::string c = dir.File("c.dat");
  WriteWholeFile(a, {1, 1});
  WriteWholeFile(b, {2, 2, 2});
  ASSERT_TRUE(System().Copy(a.c_str(), b.c_str()));
  EXPECT_EQ(ReadWholeFile(b), Bytes({1, 1}));
  EXPECT_FALSE(System().Copy(c.c_str(), b.c_str()));

  WriteWholeFile(c, {3});
  ASSERT_TRUE(System().Rename(c.c_str(), a.c_str()));
  EXPECT_EQ(ReadWholeFile(a), Bytes({3}));
  EXPECT_FALSE(System().Exists(c.c_str()));
  EXPECT_FALSE(System().Rename(c.c_str(), a.c_str()));

  // A file another handle holds open may still be deleted.
  {
    OpenFile held(b, false, Disposition::kOpenExisting);
    ASSERT_TRUE(held.valid());
    EXPECT_TRUE(System().Delete(b.c_str()));
  }
  EXPECT_FALSE(System().Exists(b.c_str()));
  EXPECT_FALSE(System().Delete(b.c_str()));
}

}  // namespace
