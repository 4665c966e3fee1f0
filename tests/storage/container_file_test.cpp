// The container file as a whole: the bytes of a new file, the header
// variants a reader accepts, the files it refuses, the shared per-path
// record and the in-memory image.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "storage/internals.h"
#include "support/container_test.h"

namespace {

using ao::test::FileExists;
using ao::test::FileSize;
using ao::test::WriteWholeFile;

uint32_t U32(const std::vector<unsigned char>& bytes, size_t at) {
  return bytes[at] | (bytes[at + 1] << 8) | (bytes[at + 2] << 16) | (static_cast<uint32_t>(bytes[at + 3]) << 24);
}

// A container image made by hand: header bytes then one root table.
std::vector<unsigned char> HandMadeFile(char version, bool legacy) {
  std::vector<unsigned char> bytes(legacy ? 26 : 32, 0);
  std::memcpy(bytes.data(), "@_QO_Structured_Storage@_", legacy ? 25 : 24);
  const bool wide = !legacy && version >= '2';
  if (!legacy) {
    bytes[24] = static_cast<unsigned char>(version);
    bytes[26] = 64;
    bytes[28] = 6;
  }
  const size_t recordSize = wide ? 92 : 80, tableHeader = wide ? 16 : 12;
  std::vector<unsigned char> table(tableHeader + 64 * recordSize, 0);
  table[0] = table[1] = table[2] = table[3] = 0xFB;
  table[4] = 64;
  for (size_t slot = 0; slot < 64; ++slot) std::memset(&table[tableHeader + slot * recordSize], 0xFC, 4);
  bytes.insert(bytes.end(), table.begin(), table.end());
  return bytes;
}

using NewContainer = ao::test::ContainerTest;

TEST_F(NewContainer, BothWidthsHaveTheExactHeaderAndFirstTable) {
  Close();
  auto bytes = FileBytes();
  ASSERT_EQ(bytes.size(), 5936u);
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 24), "@_QO_Structured_Storage@");
  const std::vector<unsigned char> tail = {'2', 0, 64, 0, 6, 0, 0, 0};
  EXPECT_EQ(std::vector<unsigned char>(bytes.begin() + 24, bytes.begin() + 32), tail);
  EXPECT_EQ(U32(bytes, 32), 0xFBFBFBFBu);
  EXPECT_EQ(U32(bytes, 36), 64u);
  for (size_t at = 40; at < 48; ++at) EXPECT_EQ(bytes[at], 0) << at;  // no next table
  for (size_t slot = 0; slot < 64; ++slot) {
    const size_t record = 48 + slot * 92;
    EXPECT_EQ(U32(bytes, record), 0xFCFCFCFCu);
    for (size_t at = record + 4; at < record + 92; ++at) ASSERT_EQ(bytes[at], 0) << "slot " << slot;
  }

  // Create replaces whatever file is on the path, here with a 32-bit one.
  WriteWholeFile(path_, std::vector<unsigned char>(100000, 0x55));
  Create(0, false);
  EXPECT_FALSE(storage_->Uses64BitOffsets());
  EXPECT_EQ(storage_->GetVersion(), '1');
  Close();
  bytes = FileBytes();
  ASSERT_EQ(bytes.size(), 5164u);
  EXPECT_EQ(bytes[24], '1');
  EXPECT_EQ(U32(bytes, 32), 0xFBFBFBFBu);
  EXPECT_EQ(U32(bytes, 36), 64u);
  EXPECT_EQ(U32(bytes, 44), 0xFCFCFCFCu);
  EXPECT_EQ(U32(bytes, 44 + 63 * 80), 0xFCFCFCFCu);
}

TEST(HeaderVersions, EachAcceptedVersionIsReadWithItsWidthAndSlotCounts) {
  struct Case {
    char version;
    bool legacy;
    bool wide;
    uint16_t reserved;
    int64_t headerLength;
  };
  const Case cases[] = {{'_', true, false, 2, 26}, {'1', false, false, 6, 32}, {'2', false, true, 6, 32},
                        {'3', false, true, 6, 32}, {'9', false, true, 6, 32}, {0x7F, false, true, 6, 32}};
  ao::test::TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("version ") + c.version);
    const std::string path = dir.File(std::string("v") + std::to_string(int(c.version)) + ".dat");
    WriteWholeFile(path, HandMadeFile(c.version, c.legacy));
    aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(storage->Uses64BitOffsets(), c.wide);
    EXPECT_EQ(storage->GetReservedSlots(), c.reserved);
    EXPECT_EQ(storage->GetSlotsPerTable(), 64);
    EXPECT_EQ(storage->GetHeaderLength(), c.headerLength);
    EXPECT_EQ(storage->GetVersion(), c.version);
    // A stream written and read back proves the widths of records and blocks.
    aoStream* stream = storage->CreateStream("data", kAoModeEdit);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->Write("payload", 7, false, nullptr), 7);
    stream->Release();
    storage->Release();

    storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
    ASSERT_NE(storage, nullptr);
    stream = storage->OpenStream("data", kAoModeInspect);
    ASSERT_NE(stream, nullptr);
    char text[8] = {};
    EXPECT_EQ(stream->Read(text, 7), 7);
    EXPECT_STREQ(text, "payload");
    stream->Release();
    storage->Release();
    const int64_t block = c.wide ? 40 : 20, record = c.wide ? 92 : 80;
    EXPECT_EQ(FileSize(path), c.headerLength + (c.wide ? 16 : 12) + 64 * record + block + 7);
  }
}

TEST(BadFiles, AreRefusedWithoutDamage) {
  ao::test::TempDir dir;
  auto refuse = [&](const std::string& name, std::vector<unsigned char> bytes) {
    SCOPED_TRACE(name);
    const std::string path = dir.File(name);
    WriteWholeFile(path, bytes);
    EXPECT_EQ(aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0), nullptr);
    EXPECT_EQ(aoStorage::Open(path.c_str(), kAoModeInspect, 0, 1), nullptr);
    EXPECT_EQ(aoStorage::OpenFast(path.c_str(), kAoModeInspect, 0), nullptr);
  };
  auto good = HandMadeFile('2', false);
  refuse("short", std::vector<unsigned char>(good.begin(), good.begin() + 31));
  refuse("empty", {});
  auto magic = good;
  magic[3] = 'x';
  refuse("magic", magic);
  for (unsigned char version : {static_cast<unsigned char>('0'), static_cast<unsigned char>(0x80),
                                static_cast<unsigned char>(0xFF), static_cast<unsigned char>(0)}) {
    auto bad = good;
    bad[24] = version;
    refuse("version" + std::to_string(version), bad);
  }
  EXPECT_FALSE(FileExists(dir.File("nothing-here.dat")));
  EXPECT_EQ(aoStorage::Open(dir.File("nothing-here.dat").c_str(), kAoModeInspect, 0, 0), nullptr);
  EXPECT_FALSE(FileExists(dir.File("nothing-here.dat")));
}

TEST(BadFiles, DamagedRootDirectoryIsRefusedAndTheFileDeleted) {
  ao::test::TempDir dir;
  auto damaged = [&](const std::string& name, std::vector<unsigned char> bytes) {
    SCOPED_TRACE(name);
    const std::string path = dir.File(name);
    WriteWholeFile(path, bytes);
    EXPECT_EQ(aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0), nullptr);
    // The header was accepted, the directory was not: the file is removed.
    EXPECT_FALSE(FileExists(path));
    // The fast open reads only the header and keeps the file.
    WriteWholeFile(path, bytes);
    aoStorage* fast = aoStorage::OpenFast(path.c_str(), kAoModeInspect, 0);
    ASSERT_NE(fast, nullptr);
    fast->Release();
    EXPECT_TRUE(FileExists(path));
  };
  const auto good = HandMadeFile('2', false);
  const auto patched = [&good](size_t at, unsigned char value) {
    auto bytes = good;
    bytes.at(at) = value;
    return bytes;
  };
  damaged("marker", patched(32, 0));
  damaged("slots", patched(36, 65));
  damaged("loop", patched(40, 32));  // the next table is the first one again
  damaged("past", patched(44, 1));   // next table far past the end of the file
  damaged("truncated-table", std::vector<unsigned char>(good.begin(), good.begin() + 1000));
}

using OpenContainer = ao::test::ContainerTest;

TEST_F(OpenContainer, OpensOfOneFileShareOneRecordUntilTheLastRelease) {
  aoStorage* second = aoStorage::Open(path_.c_str(), kAoModeEdit, 0, 0);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(ao::StorageInternals::FileRef(*storage_), ao::StorageInternals::FileRef(*second));
  EXPECT_EQ(ao::StorageInternals::RefCount(*storage_), 2);
  EXPECT_EQ(ao::OpenersOf(path_.c_str()), 2);
  Close();
  EXPECT_EQ(ao::StorageInternals::RefCount(*second), 1);
  second->Release();
  EXPECT_EQ(ao::OpenersOf(path_.c_str()), 0);
}

TEST_F(OpenContainer, AnInMemoryImageRefusesWritesAndReadsAfterTheHandleIsClosed) {
  aoStream* stream = storage_->CreateStream("text", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(stream->Write("in memory", 9, false, nullptr), 9);
  stream->Release();
  Close();
  const auto before = FileBytes();

  aoStorage* image = aoStorage::Open(path_.c_str(), kAoModeInspect, 0, 1);
  ASSERT_NE(image, nullptr);
  EXPECT_TRUE(image->IsInMemory());
  EXPECT_EQ(ao::StorageInternals::File(*image), ao::kInvalidFile);
  stream = image->OpenStream("text", kAoModeInspect);
  ASSERT_NE(stream, nullptr);
  char text[10] = {};
  EXPECT_EQ(stream->Read(text, 9), 9);
  EXPECT_STREQ(text, "in memory");
  EXPECT_EQ(stream->Write("x", 1, false, nullptr), 0);
  stream->Release();
  EXPECT_EQ(image->CreateStream("new", kAoModeEdit), nullptr);
  image->Release();
  EXPECT_EQ(FileBytes(), before);

  // Asking for writing disables the image.
  aoStorage* editable = aoStorage::Open(path_.c_str(), kAoModeEdit, 0, 1);
  ASSERT_NE(editable, nullptr);
  EXPECT_FALSE(editable->IsInMemory());
  editable->Release();
}

TEST_F(OpenContainer, OpenOrCreateCreatesOnceThenOpens) {
  const std::string path = dir_.File("ooc.dat");
  aoStorage* storage = aoStorage::OpenOrCreate(path.c_str(), kAoModeEdit, 0);
  ASSERT_NE(storage, nullptr);
  storage->CreateStream("kept", kAoModeEdit)->Release();
  storage->Release();
  storage = aoStorage::OpenOrCreate(path.c_str(), kAoModeEdit, 0);
  ASSERT_NE(storage, nullptr);
  aoStream* stream = storage->OpenStream("kept", kAoModeInspect);
  EXPECT_NE(stream, nullptr);
  if (stream != nullptr) stream->Release();
  EXPECT_STREQ(storage->GetPath(), path.c_str());
  storage->Release();
}

}  // namespace
