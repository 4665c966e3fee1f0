// Small helpers shared by the generic and child stream operations.
#ifndef AOSTORE_GENFILE_VASTREL_IO_H
#define AOSTORE_GENFILE_VASTREL_IO_H

#include <cstdint>

#include "aostore/stream.h"

namespace ao::genfile {

// Origins of aoStream::Seek.
inline constexpr unsigned char kFromStart = 0;
inline constexpr unsigned char kFromEnd = 1;
inline constexpr unsigned char kFromCurrent = 2;

// Stream type argument that makes a folder.
inline constexpr uint32_t kFolderType = 1;

// Whether all length bytes were written: the count the stream reports must
// equal length taken as unsigned 32 bits, so a negative length never counts
// as complete (and is not handed to the stream at all).
inline bool WroteAll(aoStream* stream, const unsigned char* data, int32_t length, bool setEnd) {
  if (stream == nullptr || length < 0) return false;
  return stream->Write(data, length, setEnd, nullptr) == static_cast<int64_t>(static_cast<uint32_t>(length));
}

}  // namespace ao::genfile

#endif  // AOSTORE_GENFILE_VASTREL_IO_H
