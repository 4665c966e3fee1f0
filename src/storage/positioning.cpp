#include "storage/positioning.h"

#include "platform/files.h"

namespace ao {

int64_t MoveImagePosition(int64_t& position, int64_t size, int64_t distance, uint32_t method) {
  switch (method) {
    case 0:
      if (distance < 0 || distance >= size) return -1;
      position = distance;
      break;
    case 1:
      if (position + distance < 0 || position + distance >= size) return -1;
      position += distance;
      break;
    case 2:
      if (distance < 0 || distance > size) return -1;
      position = size - distance;
      break;
    default:
      break;
  }
  return position;
}

int64_t MoveFilePosition(int64_t& position, FileHandle file, int64_t distance, uint32_t method) {
  int64_t target = 0;
  switch (method) {
    case 0:
      target = distance;
      break;
    case 1:
      target = position + distance;
      break;
    case 2: {
      const int64_t size = platform::Files().Size(file);
      if (size < 0) return 0;
      target = size + distance;
      break;
    }
    default:
      return 0;
  }
  if (target < 0) return 0;
  position = target;
  return target;
}

int ReadAtPosition(FileHandle file, void* buffer, int64_t count, int64_t* done, int64_t& position) {
  if (count < 1) {
    if (done != nullptr) *done = 0;
    return 1;
  }
  if (!platform::ReadFully(file, buffer, count, position)) return 0;
  position += count;
  if (done != nullptr) *done = count;
  return 1;
}

}  // namespace ao
