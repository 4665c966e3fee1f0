// aoStreamBuf: the standard streams reading and writing container streams,
// across block boundaries, with seeks in both directions.
#include <gtest/gtest.h>

#include <algorithm>
#include <istream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "support/container_test.h"

namespace {

using ao::test::Bytes;
using ao::test::Pattern;

class StreamBufTest : public ao::test::ContainerTest {
 protected:
  void TearDown() override {
    for (aoStream* stream : streams_) stream->Release();
    ContainerTest::TearDown();
  }
  aoStream* Create(const char* name) {
    aoStream* stream = storage_->CreateStream(name, kAoModeEdit);
    if (stream != nullptr) streams_.push_back(stream);
    return stream;
  }
  // The bytes at position in the istream, or what could be had.
  static Bytes ReadAt(std::istream& in, std::streamoff position, size_t count) {
    Bytes bytes(count);
    in.seekg(position);
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(count));
    bytes.resize(static_cast<size_t>(in.gcount()));
    return bytes;
  }
  static Bytes Slice(const Bytes& bytes, size_t from, size_t count) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                 bytes.begin() + static_cast<std::ptrdiff_t>(from + count));
  }

  std::vector<aoStream*> streams_;
};

TEST_F(StreamBufTest, MegabytesRoundTripAcrossInterleavedBlocks) {
  constexpr size_t kSize = 3 * 1024 * 1024 + 123;
  const Bytes first = Pattern(kSize, 1);
  const Bytes second = Pattern(kSize, 2);
  aoStream* one = Create("one");
  aoStream* two = Create("two");
  ASSERT_NE(one, nullptr);
  ASSERT_NE(two, nullptr);
  {
    // Small buffers and alternating flushes give both streams chains of
    // many blocks; piece sizes mix bytes, buffered runs and direct writes.
    aoStreamBuf bufferOne(one, 4096);
    aoStreamBuf bufferTwo(two, 4096);
    std::ostream outOne(&bufferOne);
    std::ostream outTwo(&bufferTwo);
    const size_t kPieces[] = {1, 7, 4095, 4096, 4097, 100000, 333};
    size_t at = 0;
    for (size_t i = 0; at < kSize; ++i) {
      const size_t piece = std::min(kPieces[i % std::size(kPieces)], kSize - at);
      if (piece == 1) {
        outOne.put(static_cast<char>(first[at]));
        outTwo.put(static_cast<char>(second[at]));
      } else {
        outOne.write(reinterpret_cast<const char*>(&first[at]), static_cast<std::streamsize>(piece));
        outTwo.write(reinterpret_cast<const char*>(&second[at]), static_cast<std::streamsize>(piece));
      }
      outOne.flush();
      outTwo.flush();
      at += piece;
    }
    ASSERT_TRUE(outOne.good());
    ASSERT_TRUE(outTwo.good());
  }
  EXPECT_EQ(one->GetLength(), static_cast<int64_t>(kSize));
  EXPECT_EQ(two->GetLength(), static_cast<int64_t>(kSize));

  aoStreamBuf buffer(two, 10000);
  std::istream in(&buffer);
  in.seekg(0);  // the writers left the stream at its end
  Bytes all(kSize);
  in.read(reinterpret_cast<char*>(all.data()), static_cast<std::streamsize>(kSize));
  ASSERT_EQ(in.gcount(), static_cast<std::streamsize>(kSize));
  EXPECT_TRUE(all == second);
  EXPECT_EQ(in.peek(), std::char_traits<char>::eof());
  in.clear();

  // Backwards, forwards, from the end and relative, each read checked.
  const std::streamoff kPositions[] = {2500000, 100, 3000000, 0, 1048576, 1048570,
                                       static_cast<std::streamoff>(kSize) - 10};
  for (std::streamoff position : kPositions) {
    EXPECT_EQ(ReadAt(in, position, 5000), Slice(second, static_cast<size_t>(position),
                                                std::min<size_t>(5000, kSize - static_cast<size_t>(position))))
        << position;
    in.clear();
  }
  in.seekg(-70000, std::ios_base::end);
  EXPECT_EQ(in.tellg(), static_cast<std::streamoff>(kSize) - 70000);
  in.seekg(-400000, std::ios_base::cur);
  EXPECT_EQ(in.get(), second[kSize - 470000]);
  in.seekg(123456, std::ios_base::cur);
  EXPECT_EQ(in.get(), second[kSize - 470000 + 1 + 123456]);
  EXPECT_EQ(in.tellg(), static_cast<std::streamoff>(kSize - 470000 + 2 + 123456));

  // The first stream, through a buffer of an odd size.
  aoStreamBuf bufferOne(one, 777);
  std::istream inOne(&bufferOne);
  EXPECT_EQ(ReadAt(inOne, 2999999, 20000), Slice(first, 2999999, 20000));
  EXPECT_EQ(ReadAt(inOne, 5, 3), Slice(first, 5, 3));
}

TEST_F(StreamBufTest, FormattedValuesAndLines) {
  aoStream* stream = Create("text");
  ASSERT_NE(stream, nullptr);
  aoStreamBuf buffer(stream, 16);
  std::iostream io(&buffer);
  io << "visitors " << 42 << ' ' << 3.25 << '\n' << "weather: sunny and warm\n" << -7 << std::flush;
  ASSERT_TRUE(io.good());
  const std::string expected = "visitors 42 3.25\nweather: sunny and warm\n-7";
  EXPECT_EQ(stream->GetLength(), static_cast<int64_t>(expected.size()));

  io.seekg(0);
  std::string word;
  int visitors = 0;
  double rate = 0;
  io >> word >> visitors >> rate;
  EXPECT_EQ(word, "visitors");
  EXPECT_EQ(visitors, 42);
  EXPECT_EQ(rate, 3.25);
  std::string line;
  std::getline(io >> std::ws, line);
  EXPECT_EQ(line, "weather: sunny and warm");
  int last = 0;
  io >> last;
  EXPECT_EQ(last, -7);
  EXPECT_TRUE(io.eof());
  io.clear();

  // Seen from the stream itself, byte for byte.
  ASSERT_EQ(stream->Seek(0, 0, true), 0);
  std::string raw(expected.size(), '\0');
  EXPECT_EQ(stream->Read(raw.data(), static_cast<int64_t>(raw.size())), static_cast<int64_t>(raw.size()));
  EXPECT_EQ(raw, expected);
}

TEST_F(StreamBufTest, ReadingAndWritingShareOnePosition) {
  aoStream* stream = Create("mixed");
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(stream->Write("abcdefghijklmnopqrstuvwxyz", 26, false, nullptr), 26);
  ASSERT_EQ(stream->Seek(0, 0, true), 0);
  {
    aoStreamBuf buffer(stream, 8);
    std::iostream io(&buffer);
    char head[4] = {};
    io.read(head, 3);  // the buffer has read ahead past "c"
    EXPECT_EQ(std::string(head), "abc");
    EXPECT_EQ(io.tellp(), 3);
    io << "DEF";  // overwrites at the position read up to, no truncation
    EXPECT_EQ(io.get(), 'g');
    io.seekp(-2, std::ios_base::end);
    io << "YZ!";  // past the old end: the stream grows
    io.seekg(0);
    std::string all;
    std::getline(io, all);
    EXPECT_EQ(all, "abcDEFghijklmnopqrstuvwxYZ!");
    io.clear();
    // Past the end and before the start are refused, the position kept.
    io.seekg(10);
    io.seekg(28);
    EXPECT_TRUE(io.fail());
    io.clear();
    io.seekg(-1, std::ios_base::beg);
    EXPECT_TRUE(io.fail());
    io.clear();
    EXPECT_EQ(io.tellg(), 10);
    io.seekp(0, std::ios_base::end);
    io << "tail";  // left pending for the destructor
  }
  EXPECT_EQ(stream->GetLength(), 31);
  // After sync the stream stands where the standard stream stood.
  EXPECT_EQ(stream->GetCurDataPos(), 31);
}

TEST_F(StreamBufTest, WithoutAStreamNothingMoves) {
  aoStreamBuf buffer(nullptr);
  std::iostream io(&buffer);
  io << "lost" << std::flush;
  EXPECT_TRUE(io.bad());
  io.clear();
  EXPECT_EQ(io.get(), std::char_traits<char>::eof());
  io.clear();
  EXPECT_EQ(io.tellg(), -1);
}

}  // namespace
