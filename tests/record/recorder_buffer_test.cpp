// The recorder's log buffer: growth, handing the log over, and reading it
// back without ever passing the end of the data.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aostore/recorder.h"

namespace {

// Stands for a stream object: the recorder compares it by address only,
// and a fast enter at depth 0 or a data op on the top stream asks it nothing.
int g_streamA;
void* const kStreamA = &g_streamA;

std::vector<unsigned char> Unread(CCompRecorder& recorder) {
  unsigned int len = 0;
  unsigned char* at = recorder.PeekAll(&len);
  return at != nullptr ? std::vector<unsigned char>(at, at + len) : std::vector<unsigned char>();
}

unsigned char* MallocCopy(const std::vector<unsigned char>& bytes) {
  auto* copy = static_cast<unsigned char*>(std::malloc(bytes.empty() ? 1 : bytes.size()));
  if (!bytes.empty()) std::memcpy(copy, bytes.data(), bytes.size());
  return copy;
}

TEST(RecorderBuffer, GrowsLinearlyByTheAskedAmountOrTheStep) {
  CCompRecorder recorder(100);  // a step below 4096 is raised to 4096
  EXPECT_EQ(recorder.Expand(100), 1);
  EXPECT_EQ(recorder.GetLength(), 4096u + 100u);  // a first 4096 bytes, then the 100
  EXPECT_EQ(recorder.Expand(0), 1);
  EXPECT_EQ(recorder.GetLength(), 4096u + 100u + 4096u);

  CCompRecorder large(10000);
  large.Init(16);
  EXPECT_EQ(large.GetLength(), 16u);
  EXPECT_EQ(large.Expand(0), 1);
  EXPECT_EQ(large.GetLength(), 16u + 10000u);
}

TEST(RecorderBuffer, DetachHandsTheLogOverAndRecordingStartsAfresh) {
  CCompRecorder recorder;
  recorder.OpEnterFast("ab", 0, kStreamA);
  unsigned int len = 0;
  unsigned char* log = recorder.Detach(&len);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(std::vector<unsigned char>(log, log + len), (std::vector<unsigned char>{2, 2, 0, 'a', 'b', 0}));
  EXPECT_EQ(recorder.PeekAll(&len), nullptr);
  EXPECT_EQ(len, 0u);
  unsigned char byte = 0;
  EXPECT_EQ(recorder.PeekByte(byte), 0);
  CCompRecorder::Free(log);

  // The next op goes to a new buffer, which holds only what follows.
  recorder.OpLeave(kStreamA);
  EXPECT_EQ(recorder.GetDataLength(), 1u);
  recorder.SeekToBegin();
  EXPECT_EQ(Unread(recorder), (std::vector<unsigned char>{3}));
}

TEST(RecorderBuffer, BorrowedBufferIsNeverReallocatedOrFreed) {
  std::vector<unsigned char> borrowed{7, 8, 9};
  {
    CCompRecorder recorder;
    recorder.Attach(borrowed.data(), 3, 0);
    unsigned char skipped[3];
    ASSERT_EQ(recorder.Read(skipped, 3, 0), 1);
    recorder.OpEnterFast("x", 0, kStreamA);  // past the borrowed end: moves to a copy
    recorder.SeekToBegin();
    EXPECT_EQ(Unread(recorder), (std::vector<unsigned char>{7, 8, 9, 2, 1, 0, 'x', 0}));

    CCompRecorder kept;
    kept.Attach(borrowed.data(), 3, 0);
    kept.Empty();  // a borrowed buffer stays with its owner
    EXPECT_EQ(kept.GetDataLength(), 0u);
  }
  EXPECT_EQ(borrowed, (std::vector<unsigned char>{7, 8, 9}));
}

TEST(RecorderBuffer, CloneCopiesTheLogButNotTheStack) {
  CCompRecorder empty;
  CCompRecorder* emptyClone = empty.Clone();
  ASSERT_NE(emptyClone, nullptr);
  EXPECT_EQ(emptyClone->GetLength(), 0u);
  EXPECT_EQ(emptyClone->GetDataLength(), 0u);
  delete emptyClone;

  CCompRecorder source(8192);
  source.OpEnterFast("ab", 1, kStreamA);
  CCompRecorder* clone = source.Clone();
  ASSERT_NE(clone, nullptr);
  EXPECT_EQ(clone->GetLength(), source.GetLength());
  EXPECT_EQ(clone->GetDataLength(), 6u);
  EXPECT_EQ(clone->GetBufferPos(), 0u);
  EXPECT_EQ(clone->GetStmDepth(), 0);
  EXPECT_EQ(clone->GetOpCount(), 0u);
  EXPECT_EQ(Unread(*clone), (std::vector<unsigned char>{2, 2, 0, 'a', 'b', 1}));
  clone->Expand(0);
  EXPECT_EQ(clone->GetLength(), source.GetLength() + 8192u);  // the growth step is copied
  // Empty drops the owned log; the clone keeps its own buffer.
  source.Empty();
  EXPECT_EQ(source.GetDataLength(), 0u);
  EXPECT_EQ(source.GetBufferPos(), 0u);
  EXPECT_EQ(source.GetLength(), 4096u);  // stale until the next write allocates
  unsigned int len = 7;
  EXPECT_EQ(source.PeekAll(&len), nullptr);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(clone->GetDataLength(), 6u);
  delete clone;
}

TEST(RecorderReading, ReadStopsAtTheDataAndThrowsOnlyWhenAsked) {
  CCompRecorder recorder;
  recorder.Attach(MallocCopy({1, 2, 3}), 3, 1);
  unsigned char byte = 0;
  ASSERT_EQ(recorder.PeekByte(byte), 1);
  EXPECT_EQ(byte, 1);
  EXPECT_EQ(recorder.GetBufferPos(), 0u);
  unsigned char two[2];
  ASSERT_EQ(recorder.Read(two, 2, 1), 1);
  EXPECT_EQ(two[1], 2);
  unsigned char more[2] = {0xEE, 0xEE};
  EXPECT_EQ(recorder.Read(more, 2, 1), 0);  // only one byte left, no throw flag
  EXPECT_EQ(more[0], 0xEE);
  EXPECT_EQ(recorder.GetBufferPos(), 2u);

  recorder.ThrowExceptions(1);
  EXPECT_EQ(recorder.Read(more, 2, 0), 0);  // the caller did not allow throwing
  try {
    recorder.Read(more, 2, 1);
    FAIL() << "no exception";
  } catch (const std::string& error) {
    EXPECT_EQ(error, "Read error");
  }
  ASSERT_EQ(recorder.Read(more, 1, 1), 1);
  EXPECT_EQ(recorder.PeekByte(byte), 0);
  unsigned int len = 9;
  recorder.PeekAll(&len);
  EXPECT_EQ(len, 0u);
}

}  // namespace
