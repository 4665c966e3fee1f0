// The serialisation operators on memory and container streams: byte layout,
// the long-string escape, and the memory stream's growth and hand-over.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "support/container_test.h"
#include "platform/memory.h"

namespace ao::test {
namespace {

Bytes DetachAll(aoStream2& stream) {
  int length = 0;
  void* block = stream.Detach(length);
  Bytes bytes;
  if (block != nullptr) {
    bytes.assign(static_cast<unsigned char*>(block), static_cast<unsigned char*>(block) + length);
    aoFreeBuffer(block);
  }
  return bytes;
}

TEST(MemoryStream, ValuesAreLittleEndianAtThePosition) {
  aoStream2 out(nullptr, 0);
  out << static_cast<unsigned short>(0x1234) << -2 << 1.5 << static_cast<int64_t>(0x0102030405060708LL) << "ab";
  const Bytes expected = {
      0x34, 0x12,                                      // unsigned short
      0xFE, 0xFF, 0xFF, 0xFF,                          // int -2
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF8, 0x3F,  // double 1.5
      0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  // __int64
      0x02, 0x00, 'a', 'b',                            // string
  };
  Bytes bytes = DetachAll(out);
  EXPECT_EQ(bytes, expected);

  aoStream2 in(bytes.data(), static_cast<int>(bytes.size()));
  unsigned short u = 0;
  int i = 0;
  double d = 0;
  in >> u >> i >> d;
  unsigned char skipped[8];
  in.Read(skipped, 8);
  std::string s;
  in >> s;
  EXPECT_EQ(u, 0x1234);
  EXPECT_EQ(i, -2);
  EXPECT_EQ(d, 1.5);
  EXPECT_EQ(s, "ab");
  int past = 77;
  in >> past;  // nothing left: the value keeps its bytes
  EXPECT_EQ(past, 77);

  // A damaged length yields only the characters present.
  bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'o', 'k'};
  aoStream2 damaged(bytes.data(), static_cast<int>(bytes.size()));
  s = "previous";
  damaged >> s;
  EXPECT_EQ(s, "ok");
}

TEST(MemoryStream, GrowsByAtLeast1024AndHandsTheBlockOver) {
  aoStream2 untouched(nullptr, 0);
  int length = -1;
  EXPECT_EQ(untouched.Detach(length), nullptr);
  EXPECT_EQ(length, 0);

  aoStream2 stream(nullptr, 0);
  const Bytes ten = Pattern(10, 1);
  EXPECT_EQ(stream.Write(ten.data(), 10, false, nullptr), 10);
  void* block = stream.Detach(length);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(length, 10);
  EXPECT_EQ(ao::platform::BlockSize(block), 1024u);
  EXPECT_EQ(Bytes(static_cast<unsigned char*>(block), static_cast<unsigned char*>(block) + 10), ten);
  aoFreeBuffer(block);
  // Detached, the stream is empty again and allocates anew.
  EXPECT_EQ(stream.Write(ten.data(), 10, false, nullptr), 10);
  EXPECT_EQ(DetachAll(stream), ten);
}


using StringEncoding = ContainerTest;

TEST_F(StringEncoding, LengthsBelow65535UseTwoBytesAndLongerOnesEscape) {
  const std::string below(65534, 'x');
  const std::string at(65535, 'y');
  ASSERT_EQ(storage_->SetEntry("below", below.c_str()), 1);
  ASSERT_EQ(storage_->SetEntry("at", at.c_str()), 1);

  const Bytes belowBytes = ReadChild(storage_, "below");
  ASSERT_EQ(belowBytes.size(), 2u + 65534u);
  EXPECT_EQ(Bytes(belowBytes.begin(), belowBytes.begin() + 2), (Bytes{0xFE, 0xFF}));
  const Bytes atBytes = ReadChild(storage_, "at");
  ASSERT_EQ(atBytes.size(), 6u + 65535u);
  EXPECT_EQ(Bytes(atBytes.begin(), atBytes.begin() + 6), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}));
  EXPECT_EQ(atBytes[6], 'y');

  EXPECT_EQ(storage_->GetEntry("below", ""), below);
  EXPECT_EQ(storage_->GetEntry("at", ""), at);
}

TEST_F(StringEncoding, TheLogHoldsOneWritePerFieldAndNoneForAnEmptyString) {
  ASSERT_EQ(storage_->StartRecording(), 1);
  const std::string at(65535, 'z');
  aoStream* stream = storage_->OpenOrCreateStream("s", 0);
  ASSERT_NE(stream, nullptr);
  *stream << "";
  CCompRecorder* recorder = storage_->GetRecorder();
  EXPECT_EQ(recorder->GetDataLength(), 0u);
  EXPECT_EQ(stream->GetLength(), 2);  // the two zero bytes are written all the same
  *stream << at;
  stream->Release();

  std::unique_ptr<CCompRecorder> log(storage_->StopRecording());
  ASSERT_NE(log, nullptr);
  log->SeekToBegin();
  RecOpEnum op;
  char text[kAoNameFieldSize];
  unsigned char* data = nullptr;
  uint32_t len = 0;
  std::vector<uint32_t> writes;
  while (log->PopOp(&op, text, &data, &len) != 0) {
    if (op == RecOpWrite) writes.push_back(len);
  }
  EXPECT_EQ(writes, (std::vector<uint32_t>{2, 4, 65535}));
}

}  // namespace
}  // namespace ao::test
