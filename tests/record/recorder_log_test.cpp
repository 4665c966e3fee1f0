// The log's wire format, written out by hand, and how PopOp decodes it,
// including logs that are cut short or are not logs at all.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aostore/recorder.h"
#include "support/temp_dir.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Stand-ins for stream objects, compared by address only: root-level enters
// and data ops on the stream on top never ask a stream anything.
int g_a, g_b;
void* const kA = &g_a;
void* const kB = &g_b;

Bytes LogOf(CCompRecorder& recorder) {
  recorder.SeekToBegin();
  unsigned int len = 0;
  unsigned char* at = recorder.PeekAll(&len);
  return at != nullptr ? Bytes(at, at + len) : Bytes();
}

struct Record {
  RecOpEnum op;
  std::string text;
  Bytes data;
  uint32_t value;
};

// Decodes records until PopOp fails; the log is copied into a buffer of
// exactly its size, so any read past the end is caught.
std::vector<Record> Decode(const Bytes& log, int throwFlag = 0) {
  auto* copy = static_cast<unsigned char*>(std::malloc(log.empty() ? 1 : log.size()));
  if (!log.empty()) std::memcpy(copy, log.data(), log.size());
  CCompRecorder reader;
  reader.Attach(copy, static_cast<unsigned int>(log.size()), 1);
  reader.ThrowExceptions(throwFlag);
  std::vector<Record> records;
  RecOpEnum op;
  char text[kAoNameFieldSize];
  unsigned char* data = nullptr;
  uint32_t value = 0;
  while (reader.PopOp(&op, text, &data, &value) != 0) {
    Record record{op, text, {}, value};
    if (op == RecOpWrite || op == RecOpAppend) record.data.assign(data, data + value);
    records.push_back(record);
  }
  return records;
}

// One record of each kind, on one stream entered through the fast path.
Bytes SessionOfEveryOp() {
  CCompRecorder recorder;
  unsigned char three[] = {1, 2, 3};
  unsigned char nine[] = {9};
  recorder.OpEnterFast("cfg", 1, kA);
  recorder.OpWrite(three, 3, 0, kA, 1);
  recorder.OpWrite(nine, 1, 1, kA, 0);
  recorder.OpAppend(three, 3, kA, 1);
  recorder.OpAppend(nine, 1, kA, 0);
  recorder.OpLeave(kA);
  recorder.OpRemove("old", nullptr);
  EXPECT_EQ(recorder.GetOpCount(), 7u);
  EXPECT_EQ(recorder.HasBeenStopped(), 0);
  return LogOf(recorder);
}

const Bytes kEveryOpLog = {
    0x02, 0x03, 0x00, 'c', 'f', 'g', 0x01,                    // enter fast "cfg", at end
    0x05, 0x00, 0x01, 0x03, 0x00, 0x00, 0x00, 1, 2, 3,        // write, size prefix
    0x05, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 9,              // write, truncate
    0x06, 0x01, 0x03, 0x00, 0x00, 0x00, 1, 2, 3,              // append with slot
    0x06, 0x00, 0x01, 0x00, 0x00, 0x00, 9,                    // plain append
    0x03,                                                     // leave
    0x04, 0x03, 0x00, 'o', 'l', 'd',                          // root-level remove "old"
};

TEST(RecorderLog, EveryOpIsEncodedByteForByteAndDecodedBack) {
  EXPECT_EQ(SessionOfEveryOp(), kEveryOpLog);
  const std::vector<Record> records = Decode(kEveryOpLog);
  ASSERT_EQ(records.size(), 7u);
  EXPECT_EQ(records[0].op, RecOpEnterFast);
  EXPECT_EQ(records[0].text, "cfg");
  EXPECT_EQ(records[0].value, 1u);
  EXPECT_EQ(records[1].op, RecOpWrite);
  EXPECT_EQ(records[1].text, "01");
  EXPECT_EQ(records[1].data, (Bytes{1, 2, 3}));
  EXPECT_EQ(records[2].text, "10");
  EXPECT_EQ(records[2].data, (Bytes{9}));
  EXPECT_EQ(records[3].op, RecOpAppend);
  EXPECT_EQ(records[3].text, "1");
  EXPECT_EQ(records[4].text, "0");
  EXPECT_EQ(records[5].op, RecOpLeave);
  EXPECT_EQ(records[6].op, RecOpRemove);
  EXPECT_EQ(records[6].text, "old");
}

TEST(RecorderLog, ACutLogYieldsItsWholeRecordsOnly) {
  // Record ends in kEveryOpLog: a cut anywhere inside a record stops before it.
  const std::vector<size_t> ends = {7, 17, 25, 34, 41, 42, 48};
  for (size_t cut = 0; cut <= kEveryOpLog.size(); ++cut) {
    size_t whole = 0;
    while (whole < ends.size() && ends[whole] <= cut) ++whole;
    const Bytes prefix(kEveryOpLog.begin(), kEveryOpLog.begin() + static_cast<std::ptrdiff_t>(cut));
    EXPECT_EQ(Decode(prefix).size(), whole) << "cut at " << cut;
  }
  // Cut in a length field it throws when the reader asked for that.
  const Bytes cutInLength(kEveryOpLog.begin(), kEveryOpLog.begin() + 2);
  EXPECT_THROW(Decode(cutInLength, 1), std::string);
  // A data length beyond the log is refused without an exception.
  const Bytes cutInData(kEveryOpLog.begin(), kEveryOpLog.begin() + 15);
  EXPECT_EQ(Decode(cutInData, 1).size(), 1u);
}

TEST(RecorderLog, ForeignBytesNeverDecodeToAnythingHarmful) {
  EXPECT_TRUE(Decode({}).empty());
  EXPECT_TRUE(Decode({0x07, 0x03}).empty());
  EXPECT_TRUE(Decode({0x00}).empty());
  // A length field claiming nearly 4 GiB of data.
  EXPECT_TRUE(Decode({0x05, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 1}).empty());
  for (uint32_t seed = 0; seed < 300; ++seed) {
    Bytes noise = ao::test::Pattern(1 + seed % 97, seed);
    noise[0] = static_cast<unsigned char>(1 + seed % 6);  // start like a record
    for (const Record& record : Decode(noise)) {
      EXPECT_LT(record.text.size(), static_cast<size_t>(kAoNameFieldSize));
      EXPECT_LE(record.data.size(), noise.size());
    }
  }
}

TEST(RecorderLog, NamesOfFiftyTwoCharactersAreLoggedButRefusedOnReading) {
  const std::string longest(51, 'n');
  const std::string tooLong(52, 'n');
  CCompRecorder recorder;
  recorder.OpEnterFast(longest.c_str(), 0, kA);
  recorder.OpLeave(kA);
  recorder.OpEnterFast(tooLong.c_str(), 0, kB);
  const Bytes log = LogOf(recorder);
  ASSERT_EQ(log.size(), (1 + 2 + 51 + 1) + 1 + (1 + 2 + 52 + 1));
  EXPECT_EQ(log[56], 0x02);
  EXPECT_EQ(log[57], 52);
  const std::vector<Record> records = Decode(log);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].text, longest);
}

TEST(RecorderStack, OnlyTheTopStreamCanBeLeft) {
  CCompRecorder recorder;
  recorder.OpEnterFast("a", 0, kA);
  const unsigned int before = recorder.GetDataLength();
  recorder.OpLeave(kB);
  recorder.OpLeave(nullptr);
  EXPECT_EQ(recorder.GetDataLength(), before);
  EXPECT_EQ(recorder.GetStmDepth(), 1);
  recorder.OpLeave(kA);
  EXPECT_EQ(recorder.GetStmDepth(), 0);
  recorder.OpLeave(kA);  // nothing left to leave
  EXPECT_EQ(recorder.GetDataLength(), before + 1);
  EXPECT_EQ(recorder.GetOpCount(), 2u);
}

}  // namespace
