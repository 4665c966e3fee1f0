// CAoStreamFile: a stream read, written and sought through the CFile
// interface.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/container_test.h"

namespace {

using ao::test::Bytes;

class StreamFile : public ao::test::ContainerTest {
 protected:
  void SetUp() override {
    ContainerTest::SetUp();
    stream_ = storage_->CreateStream("data", kAoModeEdit);
    ASSERT_NE(stream_, nullptr);
    ASSERT_EQ(stream_->Write("0123456789", 10, false, nullptr), 10);
  }
  void TearDown() override {
    if (stream_ != nullptr) stream_->Release();
    ContainerTest::TearDown();
  }
  // The next count bytes at the file's position.
  std::string Next(CFile& file, uint32_t count) {
    std::string bytes(count, '\0');
    bytes.resize(file.Read(bytes.data(), count));
    return bytes;
  }

  aoStream* stream_ = nullptr;
};

TEST_F(StreamFile, SeeksByTheFileRulesOfTheAdapter) {
  CAoStreamFile file(stream_);
  const struct {
    int32_t offset;
    uint32_t from;
    int32_t position;
  } kSteps[] = {
      {-4, CFile::begin, 6},   // a negative offset from the beginning counts from the end
      {3, CFile::end, 0},      // the end origin goes to the start, whatever the offset
      {4, CFile::begin, 4},    //
      {2, CFile::current, 6},  //
      {-3, CFile::current, 1}, //
      {0, CFile::end, 0},      //
      {0, 7, 0},               // an unknown origin too
      {10, CFile::begin, 10},  // the end itself is reachable
      {0, CFile::begin, 0},    //
      {-10, CFile::begin, 0},  //
  };
  for (const auto& step : kSteps) {
    ASSERT_EQ(file.Seek(4, CFile::begin), 4);  // start each step away from the target
    EXPECT_EQ(file.Seek(step.offset, step.from), step.position) << step.offset << " from " << step.from;
    EXPECT_EQ(stream_->GetCurDataPos(), step.position);
  }
  EXPECT_EQ(file.Seek(-4, CFile::begin), 6);
  EXPECT_EQ(Next(file, 10), "6789");
  // Seeks that cannot arrive fail; a distance back past the start stops there.
  EXPECT_EQ(file.Seek(11, CFile::begin), -1);
  EXPECT_EQ(file.Seek(8, CFile::begin), 8);
  EXPECT_EQ(file.Seek(3, CFile::current), -1);
  EXPECT_EQ(file.Seek(-20, CFile::begin), 0);
  EXPECT_EQ(Next(file, 3), "012");
}

TEST_F(StreamFile, ReadsAndWritesThroughTheFileBase) {
  CAoStreamFile adapter(stream_);
  CFile& file = adapter;
  EXPECT_EQ(file.GetLength(), 10);
  ASSERT_EQ(file.Seek(2, CFile::begin), 2);
  // Writing overwrites without cutting the stream short.
  file.Write("ab", 2);
  EXPECT_EQ(file.GetLength(), 10);
  ASSERT_EQ(file.Seek(-1, CFile::begin), 9);
  file.Write("XYZ", 3);
  EXPECT_EQ(file.GetLength(), 12);
  ASSERT_EQ(file.Seek(0, CFile::begin), 0);
  EXPECT_EQ(Next(file, 100), "01ab45678XYZ");
  EXPECT_EQ(Next(file, 100), "");
  EXPECT_EQ(adapter.GetStorageName(), "data");
  EXPECT_EQ(file.Duplicate(), nullptr);
  // The adapter owns no file: closing leaves the stream usable.
  file.Flush();
  file.Close();
  file.Abort();
  EXPECT_EQ(stream_->GetLength(), 12);
  adapter.SetFilePath("container/data");
  EXPECT_EQ(adapter.GetFilePath(), "container/data");
  EXPECT_THROW(adapter.SetFilePath(nullptr), std::invalid_argument);
  EXPECT_EQ(adapter.GetFilePath(), "container/data");
}

TEST_F(StreamFile, WithoutAStreamEverythingIsEmpty) {
  CAoStreamFile file;
  char byte = 'x';
  EXPECT_EQ(file.Read(&byte, 1), 0u);
  file.Write("abc", 3);
  EXPECT_EQ(file.GetLength(), 0);
  EXPECT_EQ(file.Seek(0, CFile::begin), -1);
  EXPECT_EQ(file.GetStorageName(), "");
  void* start = &byte;
  EXPECT_EQ(file.GetBufferPtr(0, 0, &start, nullptr), 0u);
  EXPECT_EQ(start, nullptr);
}

}  // namespace
