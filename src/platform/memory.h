// Zeroed memory blocks handed across the library's boundary (the stand-in for
// global-memory blocks). Free them with FreeBlock.
#ifndef AOSTORE_PLATFORM_MEMORY_H
#define AOSTORE_PLATFORM_MEMORY_H

#include <cstddef>

namespace ao::platform {

// A zero-filled block, or null. A size of 0 gives a valid, empty block.
void* AllocZeroed(size_t size);
// Grows or shrinks a block; new bytes are zero. Null (old block intact) on failure.
void* ReallocZeroed(void* block, size_t size);
void FreeBlock(void* block);
// The size the block was allocated with.
size_t BlockSize(const void* block);

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_MEMORY_H
