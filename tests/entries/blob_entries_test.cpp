// Blob entries: the appended form with its slot, the plain append, and the
// replacing form with its optional size prefix.
#include <gtest/gtest.h>

#include "aostore/aostore.h"
#include "support/container_test.h"

namespace ao::test {
namespace {

using BlobEntries = ContainerTest;

const Bytes kThree = {0xA1, 0xA2, 0xA3};
const Bytes kFive = {0xB1, 0xB2, 0xB3, 0xB4, 0xB5};

void* Data(const Bytes& bytes) { return const_cast<unsigned char*>(bytes.data()); }

TEST_F(BlobEntries, TheSlotHoldsWhereTheLastRecordBeginsInTheOffsetWidth) {
  ASSERT_EQ(storage_->SetEntry("log", Data(kThree), 3), 1);
  EXPECT_EQ(ReadChild(storage_, "log"), (Bytes{0x08, 0, 0, 0, 0, 0, 0, 0, 0xA1, 0xA2, 0xA3}));
  ASSERT_EQ(storage_->SetEntry("log", Data(kFive), 5), 1);
  EXPECT_EQ(ReadChild(storage_, "log"),
            (Bytes{0x0B, 0, 0, 0, 0, 0, 0, 0, 0xA1, 0xA2, 0xA3, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5}));
  // Plain appends have no slot: they simply follow one another.
  ASSERT_EQ(storage_->SetEntryNoPrefix("raw", Data(kThree), 3), 1);
  ASSERT_EQ(storage_->SetEntryNoPrefix("raw", Data(kFive), 5), 1);
  EXPECT_EQ(ReadChild(storage_, "raw"), (Bytes{0xA1, 0xA2, 0xA3, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5}));

  ASSERT_NE(Create(0, false), nullptr);
  ASSERT_EQ(storage_->SetEntry("log", Data(kThree), 3), 1);
  ASSERT_EQ(storage_->SetEntry("log", Data(kFive), 5), 1);
  EXPECT_EQ(ReadChild(storage_, "log"), (Bytes{0x07, 0, 0, 0, 0xA1, 0xA2, 0xA3, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5}));
  aoStream* folder = storage_->OpenOrCreateStream("f", 1);
  ASSERT_NE(folder, nullptr);
  ASSERT_EQ(folder->SetEntry("log", Data(kThree), 3), 1);
  ASSERT_EQ(folder->SetEntry("log", Data(kFive), 5), 1);
  EXPECT_EQ(ReadChild(folder, "log"), (Bytes{0x07, 0, 0, 0, 0xA1, 0xA2, 0xA3, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5}));
  folder->Release();
}

TEST_F(BlobEntries, EmptyBlobsSucceedWithoutCreatingAnything) {
  aoStream* folder = storage_->OpenOrCreateStream("f", 1);
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(storage_->SetEntry("a", Data(kThree), 0), 1);
  EXPECT_EQ(storage_->SetEntryNoPrefix("b", Data(kThree), 0), 1);
  EXPECT_EQ(storage_->SetEntryEraseOld("c", Data(kThree), 0, 1), 1);
  EXPECT_EQ(folder->SetEntry("a", Data(kThree), 0), 1);
  EXPECT_EQ(folder->SetEntryEraseOld("c", Data(kThree), 0, 0), 1);
  tag_aoStreamOffset where;
  for (const char* name : {"a", "b", "c"}) EXPECT_FALSE(storage_->FindStreamOffset(name, where)) << name;
  EXPECT_EQ(folder->GetNumChildren(), 0u);
  folder->Release();
}

TEST_F(BlobEntries, ReplacingCutsTheOldTailAndCarriesTheSize) {
  const Bytes ten = Pattern(10, 3);
  ASSERT_EQ(storage_->SetEntryEraseOld("e", Data(ten), 10, 1), 1);
  Bytes expected = {10, 0, 0, 0};
  expected.insert(expected.end(), ten.begin(), ten.end());
  EXPECT_EQ(ReadChild(storage_, "e"), expected);
  void* data = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(storage_->GetEntryErasedOld("e", &data, &size), 1);
  ASSERT_EQ(size, 10u);
  EXPECT_EQ(Bytes(static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + size), ten);
  aoFreeBuffer(data);

  ASSERT_EQ(storage_->SetEntryEraseOld("e", Data(kThree), 3, 1), 1);
  EXPECT_EQ(ReadChild(storage_, "e"), (Bytes{3, 0, 0, 0, 0xA1, 0xA2, 0xA3}));

  // Without the prefix the entry is the bytes alone, and reads back whole.
  ASSERT_EQ(storage_->SetEntryEraseOld("plain", Data(ten), 10, 0), 1);
  EXPECT_EQ(ReadChild(storage_, "plain"), ten);
  ASSERT_EQ(storage_->GetEntryErasedOld("plain", &data, &size), 1);
  EXPECT_EQ(size, 10u);
  aoFreeBuffer(data);
}

TEST_F(BlobEntries, APrefixThatDisagreesWithTheLengthIsRefused) {
  const Bytes ten = Pattern(10, 4);
  ASSERT_EQ(storage_->SetEntryEraseOld("e", Data(ten), 10, 1), 1);
  // The size-prefixed mark stays: six plain bytes are read as a prefix
  // (A1 A2 A3 B1) and two bytes of data.
  const Bytes six = {0xA1, 0xA2, 0xA3, 0xB1, 0xB2, 0xB3};
  ASSERT_EQ(storage_->SetEntryEraseOld("e", Data(six), 6, 0), 1);
  void* data = reinterpret_cast<void*>(1);
  unsigned int size = 1;
  EXPECT_EQ(storage_->GetEntryErasedOld("e", &data, &size), 0);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(size, 0u);
  unsigned char buffer[2];
  EXPECT_EQ(storage_->GetEntryErasedOld("e", buffer, 2), 0);

  // Two bytes whose prefix happens to match the two bytes after it pass.
  const Bytes agreeing = {2, 0, 0, 0, 0xC1, 0xC2};
  ASSERT_EQ(storage_->SetEntryEraseOld("e", Data(agreeing), 6, 0), 1);
  ASSERT_EQ(storage_->GetEntryErasedOld("e", &data, &size), 1);
  EXPECT_EQ(size, 2u);
  aoFreeBuffer(data);
}

TEST_F(BlobEntries, TheFixedBufferReaderIsLenientOnceThePrefixAgrees) {
  aoStream* folder = storage_->OpenOrCreateStream("f", 1);
  ASSERT_NE(folder, nullptr);
  ASSERT_EQ(folder->SetEntryEraseOld("e", Data(kFive), 5, 1), 1);
  unsigned char small[3] = {};
  EXPECT_EQ(folder->GetEntryErasedOld("e", small, 3), 1);
  EXPECT_EQ(Bytes(small, small + 3), (Bytes{0xB1, 0xB2, 0xB3}));
  unsigned char large[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(folder->GetEntryErasedOld("e", large, 8), 1);  // larger than the value: nothing copied
  EXPECT_EQ(large[0], 0xEE);
  EXPECT_EQ(folder->GetEntryErasedOld("missing", large, 8), 0);

  // An entry that exists but holds nothing reads as empty.
  aoStream* empty = folder->CreateStream("empty", 0, kAoModeEdit, 1);
  ASSERT_NE(empty, nullptr);
  empty->Release();
  void* data = reinterpret_cast<void*>(1);
  unsigned int size = 1;
  EXPECT_EQ(folder->GetEntryErasedOld("empty", &data, &size), 1);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(size, 0u);
  folder->Release();
}

}  // namespace
}  // namespace ao::test
