// Stream data I/O through real files: block chains shared between stream
// objects, the size limits, the seek families, size prefixes, and failure
// paths driven by the fault-injecting file backend.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "platform/fault_files.h"
#include "storage/internals.h"
#include "support/container_test.h"

namespace {

using ao::test::Pattern;
using ao::test::ReadChild;

class StreamIo : public ao::test::ContainerTest {
 protected:
  // Puts value's 8 bytes, lowest first, at offset of the closed container,
  // reopens it to be read and opens its stream "s".
  aoStream* PatchAndOpen(int64_t offset, uint64_t value) {
    auto bytes = FileBytes();
    for (int i = 0; i < 8; ++i) bytes[offset + i] = static_cast<unsigned char>(value >> (8 * i));
    ao::test::WriteWholeFile(path_, bytes);
    Reopen(kAoModeInspect);
    return storage_->OpenStream("s", kAoModeInspect);
  }
};

TEST_F(StreamIo, TheMostRecentStreamGrowsInOneContiguousBlock) {
  aoStream* stream = storage_->CreateStream("log", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  const int64_t before = storage_->GetFileSize();
  const auto chunk = Pattern(16384, 1);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(stream->Write(chunk.data(), 16384, false, nullptr), 16384);
  // One block header and the data, nothing else.
  EXPECT_EQ(storage_->GetFileSize(), before + 40 + 64 * 16384);
  EXPECT_EQ(stream->GetAllocLength(), 64 * 16384);
  stream->Release();
}

TEST_F(StreamIo, CreatingOverAnOpenContainerLeavesItsWritersWorking) {
  // The writer has rewritten its header often enough to store it through a
  // mapped page, pages past the end of the fresh container the file is then
  // cut to.
  const auto bytes = Pattern(16384, 4);
  aoStream* filler = storage_->CreateStream("filler", kAoModeEdit);
  ASSERT_NE(filler, nullptr);
  ASSERT_EQ(filler->Write(bytes.data(), 16384, false, nullptr), 16384);
  filler->Release();
  aoStream* stream = storage_->CreateStream("old", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  for (int i = 0; i < 8; ++i) ASSERT_EQ(stream->Write(bytes.data(), 16384, false, nullptr), 16384);
  // A reader whose bytes were read through the file's mapping before the cut.
  aoStream* reader = storage_->OpenStream("filler", kAoModeInspect);
  ASSERT_NE(reader, nullptr);
  std::vector<unsigned char> back(4096);
  ASSERT_EQ(reader->Read(back.data(), 4096), 4096);
  aoStorage* fresh = aoStorage::Create(path_.c_str(), kAoModeEdit, 0);
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(stream->Write(bytes.data(), 100, false, nullptr), 100);
  reader->Read(back.data(), 4096);
  reader->Release();
  stream->Release();
  fresh->Release();
}

TEST_F(StreamIo, AContainerCutShortByAnotherProgramFailsWithoutCrashing) {
  const auto bytes = Pattern(4096, 5);
  aoStream* stream = storage_->CreateStream("s", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  // Small writes that rewrite the same header and length, then read back.
  for (int i = 0; i < 64; ++i) ASSERT_EQ(stream->Write(bytes.data() + i * 64, 64, false, nullptr), 64);
  ASSERT_EQ(stream->Seek(0, 0, true), 0);
  std::vector<unsigned char> back(4096);
  ASSERT_EQ(stream->Read(back.data(), 4096), 4096);
  EXPECT_EQ(back, bytes);

  std::filesystem::resize_file(path_, 16);
  ASSERT_EQ(stream->Seek(0, 0, true), 0);
  EXPECT_LT(stream->Read(back.data(), 4096), 4096);
  for (int i = 0; i < 8; ++i) stream->Write(bytes.data(), 64, false, nullptr);
  stream->Release();
}

TEST_F(StreamIo, InterleavedSmallAppendsReadBackWhateverTheBufferSize) {
  // Each stream becomes a chain of small blocks among the others' blocks,
  // and a few larger appends in between.
  constexpr int kStreams = 20, kAppends = 150;
  std::vector<aoStream*> streams;
  std::vector<std::vector<unsigned char>> expected(kStreams);
  for (int i = 0; i < kStreams; ++i) streams.push_back(storage_->CreateStream(("s" + std::to_string(i)).c_str(), kAoModeEdit));
  for (int round = 0; round < kAppends; ++round)
    for (int i = 0; i < kStreams; ++i) {
      const auto bytes = Pattern(round % 50 == 7 ? 10000 : 1 + (round * 7 + i) % 120, round * kStreams + i);
      ASSERT_EQ(streams[i]->Write(bytes.data(), static_cast<int64_t>(bytes.size()), false, nullptr),
                static_cast<int64_t>(bytes.size()));
      expected[i].insert(expected[i].end(), bytes.begin(), bytes.end());
    }
  for (aoStream* stream : streams) stream->Release();
  Reopen(kAoModeInspect);
  for (const int64_t buffer : {1, 7, 100, 4096, 16384, 65536, 1 << 20}) {
    for (int i = 0; i < kStreams; ++i) {
      aoStream* stream = storage_->OpenStream(("s" + std::to_string(i)).c_str(), kAoModeInspect);
      ASSERT_NE(stream, nullptr);
      std::vector<unsigned char> back, piece(static_cast<size_t>(buffer));
      int64_t got;
      while ((got = stream->Read(piece.data(), buffer)) > 0) back.insert(back.end(), piece.begin(), piece.begin() + got);
      EXPECT_EQ(got, 0);
      EXPECT_EQ(back, expected[i]) << "stream " << i << ", reads of " << buffer;
      stream->Release();
    }
  }
}

TEST_F(StreamIo, WritesWithAndWithoutSetEnd) {
  aoStream* stream = storage_->CreateStream("s", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  // A write of 0 bytes still gives the stream its first block.
  EXPECT_EQ(stream->GetAllocLength(), 0);
  EXPECT_EQ(stream->Write("", 0, false, nullptr), 0);
  EXPECT_EQ(stream->GetLength(), 0);
  const auto hundred = Pattern(100, 7);
  ASSERT_EQ(stream->Write(hundred.data(), 100, false, nullptr), 100);

  // An overwrite inside the data with setEnd false rewrites no header.
  const auto fileBefore = ao::test::ReadWholeFile(path_);
  ASSERT_EQ(stream->Seek(10, 0, true), 0);
  ASSERT_EQ(stream->Write("0123456789", 10, false, nullptr), 10);
  auto fileAfter = ao::test::ReadWholeFile(path_);
  ASSERT_EQ(fileAfter.size(), fileBefore.size());
  size_t changed = 0;
  for (size_t i = 0; i < fileAfter.size(); ++i) changed += fileAfter[i] != fileBefore[i];
  EXPECT_LE(changed, 10u);
  EXPECT_EQ(stream->GetLength(), 100);

  // Writing 10 bytes with setEnd at position 4 leaves a length of 14.
  ASSERT_EQ(stream->Seek(4, 0, true), 0);
  int64_t where = 0;
  ASSERT_EQ(stream->Write("abcdefghij", 10, true, &where), 10);
  EXPECT_EQ(stream->GetLength(), 14);
  EXPECT_GT(where, 0);
  stream->Release();
  Reopen();
  auto bytes = ReadChild(storage_, "s");
  ASSERT_EQ(bytes.size(), 14u);
  EXPECT_EQ(std::string(bytes.begin() + 4, bytes.end()), "abcdefghij");
  EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 4),
            std::vector<unsigned char>(hundred.begin(), hundred.begin() + 4));
}

TEST_F(StreamIo, SeekFamilies) {
  aoStream* other = storage_->CreateStream("other", kAoModeEdit);
  aoStream* stream = storage_->CreateStream("s", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  // Two blocks: 30 bytes, then another stream takes the tail, then 20 more.
  std::string text = "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMN";
  ASSERT_EQ(stream->Write(text.data(), 30, false, nullptr), 30);
  ASSERT_EQ(other->Write("x", 1, false, nullptr), 1);
  ASSERT_EQ(stream->Write(text.data() + 30, 20, false, nullptr), 20);
  other->Release();
  auto readOne = [&]() {
    char c = 0;
    EXPECT_EQ(stream->Read(&c, 1), 1);
    return c;
  };
  EXPECT_EQ(stream->Seek(35, 0, true), 0);
  EXPECT_EQ(stream->GetCurDataPos(), 35);
  EXPECT_EQ(readOne(), text[35]);
  EXPECT_EQ(stream->Seek(5, 1, true), 0);  // 5 bytes before the end
  EXPECT_EQ(stream->GetCurDataPos(), 45);
  EXPECT_EQ(readOne(), text[45]);
  EXPECT_EQ(stream->Seek(20, 2, false), 0);  // back across the block boundary
  EXPECT_EQ(stream->GetCurDataPos(), 26);
  EXPECT_EQ(readOne(), text[26]);
  EXPECT_EQ(stream->Seek(10, 2, true), 0);
  EXPECT_EQ(readOne(), text[37]);
  EXPECT_EQ(stream->Seek(51, 0, true), -1);  // beyond the end
  EXPECT_EQ(stream->Seek(1, 9, true), -1);
  EXPECT_EQ(stream->Seek2(-3, 0), 0);  // counted back from the end
  EXPECT_EQ(stream->GetCurDataPos(), 47);
  EXPECT_EQ(stream->Seek2(-2, 1), 0);
  EXPECT_EQ(stream->GetCurDataPos(), 45);
  EXPECT_EQ(stream->Seek2(2, 1), 0);
  EXPECT_EQ(stream->GetCurDataPos(), 47);
  EXPECT_EQ(stream->Seek2(12, 2), 0);  // any other origin goes to the start
  EXPECT_EQ(stream->GetCurDataPos(), 0);
  EXPECT_EQ(readOne(), text[0]);
  EXPECT_EQ(stream->Seek2(0, 0), 0);
  EXPECT_EQ(stream->GetCurDataPos(), 0);
  // From the start while the first block is current, and from elsewhere.
  EXPECT_EQ(readOne(), text[0]);
  EXPECT_EQ(stream->Seek(30, 0, true), 0);  // the end of the first block
  EXPECT_EQ(readOne(), text[30]);
  EXPECT_EQ(stream->Seek(12, 0, true), 0);
  EXPECT_EQ(readOne(), text[12]);
  EXPECT_EQ(stream->Seek(49, 0, true), 0);
  EXPECT_EQ(readOne(), text[49]);
  EXPECT_EQ(stream->Seek(51, 0, true), -1);
  stream->Release();
}

TEST_F(StreamIo, EveryWriteIsInTheFileAtOnce) {
  // The same header and length are rewritten by every write; another
  // container on the path, reading the file, sees each write as it returns.
  aoStream* stream = storage_->CreateStream("growing", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  aoStorage* reader = aoStorage::Open(path_.c_str(), kAoModeInspect, 0, 0);
  ASSERT_NE(reader, nullptr);
  const auto bytes = Pattern(40 * 25, 3);
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(stream->Write(bytes.data() + i * 25, 25, false, nullptr), 25);
    aoStream* view = reader->OpenStream("growing", kAoModeInspect);
    ASSERT_NE(view, nullptr);
    ASSERT_EQ(view->GetLength(), (i + 1) * 25);
    std::vector<unsigned char> seen(static_cast<size_t>((i + 1) * 25));
    ASSERT_EQ(view->Read(seen.data(), static_cast<int64_t>(seen.size())), static_cast<int64_t>(seen.size()));
    ASSERT_EQ(0, std::memcmp(seen.data(), bytes.data(), seen.size())) << "after write " << i;
    view->Release();
  }
  // Shortening rewrites the same places again.
  ASSERT_EQ(stream->Seek(100, 0, true), 0);
  ASSERT_EQ(stream->Write(bytes.data(), 10, true, nullptr), 10);
  stream->Release();
  reader->Release();
  Reopen(kAoModeInspect);
  std::vector<unsigned char> expected(bytes.begin(), bytes.begin() + 110);
  std::memcpy(expected.data() + 100, bytes.data(), 10);
  EXPECT_EQ(ReadChild(storage_, "growing"), expected);
}

TEST_F(StreamIo, SetLengthOnlyShrinksAndNeedsWriteMode) {
  aoStream* stream = storage_->CreateStream("s", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(stream->Write("0123456789", 10, false, nullptr), 10);
  EXPECT_FALSE(stream->SetLength(11));
  EXPECT_TRUE(stream->SetLength(6));
  EXPECT_EQ(stream->GetCurDataPos(), 0);
  stream->Release();
  aoStream* reader = storage_->OpenStream("s", kAoModeInspect);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader->GetLength(), 6);
  EXPECT_FALSE(reader->SetLength(2));
  reader->Release();
  EXPECT_EQ(ReadChild(storage_, "s").size(), 6u);
}

TEST_F(StreamIo, SizePrefixIsVerifiedAgainstTheData) {
  aoStream* stream = storage_->CreateStream("p", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(stream->PrependSize(5), 1);
  ASSERT_EQ(stream->Write("hello", 5, false, nullptr), 5);
  stream->Release();
  Reopen();
  stream = storage_->OpenStream("p", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  EXPECT_NE(stream->GetHeader().flags & kAoFlagSizePrefix, 0);
  int64_t length = 0;
  EXPECT_EQ(stream->GetVerifiedDataLength(length), 1);
  EXPECT_EQ(length, 5);
  // A prefix that promises more than the data holds fails.
  ASSERT_EQ(stream->Seek(0, 0, true), 0);
  ASSERT_EQ(stream->PrependSize(9), 1);
  ASSERT_EQ(stream->Write("abc", 3, false, nullptr), 3);
  ASSERT_EQ(stream->Seek(0, 0, true), 0);
  EXPECT_EQ(stream->GetVerifiedDataLength(length), 0);
  stream->Release();
}

TEST_F(StreamIo, PreallocationReservesOneBlockForTheWholeStream) {
  aoStream* stream = storage_->CreateStream("pre", kAoModeEdit);
  aoStream* other = storage_->CreateStream("other", kAoModeEdit);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->PreallocateSpace(64 * 1024), 1);
  EXPECT_EQ(stream->PreallocateSpace(10), 0);  // it has a block already
  ASSERT_EQ(other->Write("tail", 4, false, nullptr), 4);
  const auto data = Pattern(60000, 3);
  ASSERT_EQ(stream->Write(data.data(), 60000, false, nullptr), 60000);
  EXPECT_EQ(stream->GetAllocLength(), 64 * 1024);
  stream->Release();
  other->Release();
  EXPECT_EQ(ReadChild(storage_, "pre"), data);
}

TEST_F(StreamIo, ReadingStopsAtTheBlockRecordedAsLast) {
  aoStream* stream = storage_->CreateStream("s", kAoModeEdit);
  aoStream* other = storage_->CreateStream("o", kAoModeEdit);
  ASSERT_EQ(stream->Write("first", 5, false, nullptr), 5);
  ASSERT_EQ(other->Write("-", 1, false, nullptr), 1);
  ASSERT_EQ(stream->Write("second", 6, false, nullptr), 6);
  const int64_t record = stream->GetWhere().recordOffset;
  const int64_t first = stream->GetHeader().firstBlock;
  stream->Release();
  other->Release();
  Close();
  // Point the record's last-block field (offset 76) at its first block.
  stream = PatchAndOpen(record + 76, static_cast<uint64_t>(first));
  ASSERT_NE(stream, nullptr);
  char text[16] = {};
  EXPECT_EQ(stream->Read(text, 11), 5);
  EXPECT_STREQ(text, "first");
  stream->Release();
}

// A record's length field (offset 68) holding the extremes: seeks and reads
// keep the position within 0 and the largest number, and find what the
// blocks hold.
TEST_F(StreamIo, AnExtremeLengthInADamagedRecordKeepsThePositionInRange) {
  aoStream* stream = storage_->CreateStream("s", kAoModeEdit);
  ASSERT_EQ(stream->Write("hello", 5, false, nullptr), 5);
  const int64_t record = stream->GetWhere().recordOffset;
  const int64_t block = stream->GetHeader().firstBlock;
  stream->Release();
  Close();
  for (const uint64_t length : {uint64_t{1} << 63, ~(uint64_t{1} << 63)}) {
    stream = PatchAndOpen(record + 68, length);
    ASSERT_NE(stream, nullptr);
    const bool negative = stream->GetLength() < 0;
    char text[16] = {};
    EXPECT_EQ(stream->Read(text, 16), negative ? 0 : 5);
    EXPECT_EQ(stream->Seek2(-3, 0), 0);
    EXPECT_GE(stream->GetCurDataPos(), 0);
    EXPECT_EQ(stream->Seek(2, 2, false), 0);
    EXPECT_GE(stream->GetCurDataPos(), 0);
    EXPECT_EQ(stream->Seek(std::numeric_limits<int64_t>::max(), 2, true), -1);
    // From inside the data, the whole rest is nothing, or more than a file holds.
    ASSERT_EQ(stream->Seek(2, 0, true), 0);
    unsigned char* rest = nullptr;
    int64_t restLength = -1;
    EXPECT_EQ(stream->ReadAll(&rest, &restLength), negative ? 1 : 0);
    EXPECT_EQ(rest, nullptr);
    EXPECT_EQ(restLength, 0);
    stream->Release();
    Close();
  }
  // A block whose data end (offset 8 of its header) lies beyond any file is
  // damage: reads fail and a seek from the end finds nothing.
  stream = PatchAndOpen(record + 68, 5);
  ASSERT_NE(stream, nullptr);
  stream->Release();
  Close();
  stream = PatchAndOpen(block + 8, ~(uint64_t{1} << 63));
  ASSERT_NE(stream, nullptr);
  char text[16] = {};
  EXPECT_EQ(stream->Read(text, 16), -1);
  EXPECT_EQ(stream->Seek2(-3, 0), 0);
  EXPECT_EQ(stream->GetCurDataPos(), 0);
  stream->Release();
}

TEST_F(StreamIo, WritesStopAtTheStreamAndFileSizeLimits) {
  const int64_t savedStream = aoStorage::g_iMaxCompStmSize, savedFile = aoStorage::g_iMaxVastrelSize;
  aoStream* limited = storage_->CreateStream("limited", kAoModeEdit);
  aoStream* grower = storage_->CreateStream("grow", kAoModeEdit);
  aoStream* blocked = storage_->CreateStream("blocked", kAoModeEdit);
  const auto data = Pattern(5000, 1);
  aoStorage::g_iMaxCompStmSize = 1000;
  EXPECT_EQ(limited->Write(data.data(), 900, false, nullptr), 900);
  EXPECT_EQ(limited->Write(data.data(), 500, false, nullptr), 100);
  EXPECT_EQ(limited->Write(data.data(), 10, false, nullptr), 0);
  EXPECT_EQ(limited->GetLength(), 1000);
  aoStorage::g_iMaxCompStmSize = savedStream;

  ASSERT_EQ(blocked->Write("b", 1, false, nullptr), 1);
  aoStorage::g_iMaxVastrelSize = storage_->GetFileSize() + 1000;
  // The tail block grows in place up to the file limit; no new block can be
  // appended, so the first write of another stream fails.
  EXPECT_EQ(blocked->Write(data.data(), 5000, false, nullptr), 1000);
  EXPECT_EQ(storage_->GetFileSize(), aoStorage::g_iMaxVastrelSize);
  EXPECT_EQ(grower->Write(data.data(), 10, false, nullptr), -1);
  aoStorage::g_iMaxVastrelSize = savedFile;
  for (aoStream* stream : {limited, grower, blocked}) stream->Release();
}

TEST_F(StreamIo, FailedWritesAndReadsGiveMinusOneAndTheContainerStillOpens) {
  aoStream* stream = storage_->CreateStream("s", kAoModeEdit);
  ASSERT_EQ(stream->Write("kept", 4, false, nullptr), 4);
  const auto data = Pattern(4000, 9);
  aoStream* other = storage_->CreateStream("other", kAoModeEdit);
  std::vector<unsigned char> out(4000);
  {
    ao::platform::ScopedFaultFiles faults;
    // Write 1 is the data, 2 the block header, 3 the stream header.
    for (int nth = 1; nth <= 3; ++nth) {
      faults->FailWrite(nth);
      EXPECT_EQ(stream->Write("more", 4, false, nullptr), -1) << nth;
    }
    faults->FailRead(1);
    EXPECT_EQ(storage_->OpenStream("s", kAoModeInspect), nullptr);
    // A short read of a block is an error too, and not remembered.
    faults->Disarm();
    ASSERT_EQ(other->Write(data.data(), 4000, false, nullptr), 4000);
    ASSERT_EQ(other->Seek(0, 0, true), 0);
    faults->FailRead(1, ao::platform::FaultFiles::Fault::kShort);
    EXPECT_EQ(other->Read(out.data(), 4000), -1);
    faults->Disarm();
  }
  ASSERT_EQ(other->Seek(0, 0, true), 0);
  EXPECT_EQ(other->Read(out.data(), 4000), 4000);
  EXPECT_EQ(out, data);
  stream->Release();
  other->Release();
  Reopen(kAoModeInspect);
  const auto kept = ReadChild(storage_, "s");
  ASSERT_GE(kept.size(), 4u);
  EXPECT_EQ(std::string(kept.begin(), kept.begin() + 4), "kept");
}

TEST_F(StreamIo, ChainLoopsAndBadBlocksEndWalks) {
  aoStream* stream = storage_->CreateStream("s", kAoModeEdit);
  aoStream* other = storage_->CreateStream("o", kAoModeEdit);
  ASSERT_EQ(stream->Write("aaaa", 4, false, nullptr), 4);
  ASSERT_EQ(other->Write("b", 1, false, nullptr), 1);
  ASSERT_EQ(stream->Write("cccc", 4, false, nullptr), 4);
  const int64_t first = stream->GetHeader().firstBlock;
  const int64_t second = stream->GetHeader().lastBlock;
  ASSERT_NE(first, second);
  stream->Release();
  other->Release();
  Close();
  // Make the second block point back at the first one.
  stream = PatchAndOpen(second + 32, static_cast<uint64_t>(first));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->GetAllocLength(), -1);
  EXPECT_EQ(stream->Seek(100, 0, true), -1);
  char text[9] = {};
  EXPECT_EQ(stream->Seek(0, 0, true), 0);
  EXPECT_EQ(stream->Read(text, 8), 8);
  stream->Release();
  Close();
  // A data end inside the block header is damage: reads fail.
  stream = PatchAndOpen(first + 8, 5);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->Read(text, 8), -1);
  stream->Release();
}

}  // namespace
