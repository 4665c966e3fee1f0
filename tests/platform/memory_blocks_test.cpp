// Zeroed blocks handed across the library's boundary.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/memory.h"

namespace {

using ao::platform::AllocZeroed;
using ao::platform::BlockSize;
using ao::platform::FreeBlock;
using ao::platform::ReallocZeroed;

bool AllZero(const void* block, size_t from, size_t to) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  for (size_t i = from; i < to; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

TEST(MemoryBlocks, ComeZeroedAndKnowTheirSize) {
  void* block = AllocZeroed(5000);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(BlockSize(block), 5000u);
  EXPECT_TRUE(AllZero(block, 0, 5000));
  FreeBlock(block);

  // The Windows global heap hands out one byte for an empty block.
  void* empty = AllocZeroed(0);
  ASSERT_NE(empty, nullptr);
  EXPECT_LE(BlockSize(empty), 1u);
  FreeBlock(empty);
  FreeBlock(nullptr);
  EXPECT_EQ(BlockSize(nullptr), 0u);
  EXPECT_EQ(AllocZeroed(SIZE_MAX), nullptr);
}

TEST(MemoryBlocks, ReallocationKeepsTheDataAndZeroesEveryNewByte) {
  auto* block = static_cast<unsigned char*>(AllocZeroed(100));
  ASSERT_NE(block, nullptr);
  std::memset(block, 0xAB, 100);
  // Shrinking and growing again must not bring the old bytes back.
  block = static_cast<unsigned char*>(ReallocZeroed(block, 10));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(BlockSize(block), 10u);
  block = static_cast<unsigned char*>(ReallocZeroed(block, 300000));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(BlockSize(block), 300000u);
  EXPECT_EQ(std::vector<unsigned char>(block, block + 10), std::vector<unsigned char>(10, 0xAB));
  EXPECT_TRUE(AllZero(block, 10, 300000));

  // A request that cannot be met leaves the block as it was.
  EXPECT_EQ(ReallocZeroed(block, SIZE_MAX), nullptr);
  EXPECT_EQ(BlockSize(block), 300000u);
  EXPECT_EQ(block[9], 0xAB);

  void* none = ReallocZeroed(block, 0);
  ASSERT_NE(none, nullptr);
  EXPECT_LE(BlockSize(none), 1u);
  FreeBlock(none);

  void* fresh = ReallocZeroed(nullptr, 64);
  ASSERT_NE(fresh, nullptr);
  EXPECT_TRUE(AllZero(fresh, 0, 64));
  FreeBlock(fresh);
}

}  // namespace
