// Zeroed blocks from the global heap, so that an application may give a
// handed-out buffer back with GlobalFree as well as through the library.
#if defined(_WIN32)

#include <windows.h>

#include <cstring>

#include "platform/memory.h"

namespace ao::platform {

void* AllocZeroed(size_t size) {
  // A fixed block: the handle is the address. The global heap reports an
  // empty block as one byte long, so one byte is what an empty block gets:
  // whatever BlockSize tells may be wiped.
  return ::GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, size == 0 ? 1 : size);
}

void* ReallocZeroed(void* block, size_t size) {
  if (block == nullptr) return AllocZeroed(size);
  if (size == 0) {
    // Reallocating to nothing may discard the block; hand out a new empty one.
    void* empty = AllocZeroed(0);
    if (empty != nullptr) FreeBlock(block);
    return empty;
  }
  const size_t old = BlockSize(block);
  // GMEM_MOVEABLE lets a fixed block move when it cannot grow in place; it
  // stays fixed, and the old block is untouched when this fails.
  void* grown = ::GlobalReAlloc(block, size, GMEM_MOVEABLE | GMEM_ZEROINIT);
  if (grown == nullptr) return nullptr;
  if (size > old) std::memset(static_cast<unsigned char*>(grown) + old, 0, size - old);
  return grown;
}

void FreeBlock(void* block) {
  if (block != nullptr) ::GlobalFree(block);
}

size_t BlockSize(const void* block) {
  return block == nullptr ? 0 : ::GlobalSize(const_cast<void*>(block));
}

}  // namespace ao::platform

#endif  // _WIN32
