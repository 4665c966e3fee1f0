// Zeroed blocks on the C heap, each preceded by its size so that a grown
// block can zero exactly its new tail.
#if !defined(_WIN32)

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/memory.h"

namespace ao::platform {
namespace {
constexpr size_t kPrefix = alignof(std::max_align_t) > sizeof(size_t) ? alignof(std::max_align_t) : sizeof(size_t);

unsigned char* Base(const void* block) { return static_cast<unsigned char*>(const_cast<void*>(block)) - kPrefix; }
}  // namespace

void* AllocZeroed(size_t size) {
  if (size > SIZE_MAX - kPrefix) return nullptr;
  auto* base = static_cast<unsigned char*>(std::calloc(1, size + kPrefix));
  if (base == nullptr) return nullptr;
  std::memcpy(base, &size, sizeof size);
  return base + kPrefix;
}

void* ReallocZeroed(void* block, size_t size) {
  if (block == nullptr) return AllocZeroed(size);
  if (size > SIZE_MAX - kPrefix) return nullptr;
  const size_t old = BlockSize(block);
  auto* base = static_cast<unsigned char*>(std::realloc(Base(block), size + kPrefix));
  if (base == nullptr) return nullptr;
  if (size > old) std::memset(base + kPrefix + old, 0, size - old);
  std::memcpy(base, &size, sizeof size);
  return base + kPrefix;
}

void FreeBlock(void* block) {
  if (block != nullptr) std::free(Base(block));
}

size_t BlockSize(const void* block) {
  size_t size = 0;
  if (block != nullptr) std::memcpy(&size, Base(block), sizeof size);
  return size;
}

}  // namespace ao::platform

#endif  // !_WIN32
