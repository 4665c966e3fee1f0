// Moving a position the way the container's seek primitives do, shared by
// aoStorage and aoStream (each of which keeps its own position).
#ifndef AOSTORE_STORAGE_POSITIONING_H
#define AOSTORE_STORAGE_POSITIONING_H

#include <cstdint>

#include "aostore/types.h"

namespace ao {

// In an image of `size` bytes. Method 0 from the start and 1 from the current
// position must land below the size; method 2 lands at size - distance (a
// subtraction on purpose: callers pass 0 to reach the end). -1 on refusal,
// else the new position; other methods leave the position.
int64_t MoveImagePosition(int64_t& position, int64_t size, int64_t distance, uint32_t method);
// In the host file: 0 when the seek fails, else the new position.
int64_t MoveFilePosition(int64_t& position, FileHandle file, int64_t distance, uint32_t method);

// Reads count bytes of the host file at position and advances it: 1 when
// all arrived (done gets count), 0 otherwise. A count below 1 succeeds at once.
int ReadAtPosition(FileHandle file, void* buffer, int64_t count, int64_t* done, int64_t& position);

}  // namespace ao

#endif  // AOSTORE_STORAGE_POSITIONING_H
