// Moving a stream's bytes in and out in pieces, with failures explained.
#ifndef AOSTORE_TOOLS_STREAM_DATA_H
#define AOSTORE_TOOLS_STREAM_DATA_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "container.h"
#include "progress.h"

namespace aotool {

// Two reusable buffers of kScratchBytes each (per thread), so that copying
// many small streams does not allocate a large buffer for each.
inline constexpr size_t kScratchBytes = 1 << 20;
unsigned char* Scratch(int which);

using ByteSink = std::function<void(const unsigned char* bytes, size_t count)>;
// Fills buffer with up to capacity bytes; 0 at the end of the source.
using ByteSource = std::function<size_t(unsigned char* buffer, size_t capacity)>;

// Reads the data of stream from its start into sink as far as it can be
// read, up to the first damaged block; returns the byte count, which falls
// short of the stream's length when its chain is damaged.
int64_t ReadAvailable(aoStream& stream, const ByteSink& sink, Progress* progress);

// Reads the whole data of stream (at path, for messages) from its start.
// Returns the byte count; fails with kDamaged or kUnreadable when the data
// cannot be read whole.
int64_t ReadWhole(const Container& container, aoStream& stream, const std::string& path, const ByteSink& sink,
                  Progress* progress);

// Replaces the stream's data with what source gives, or with append adds it
// after the end. Returns the byte count written; fails with kWriteFailed
// when the stream cannot take it all.
int64_t WriteWhole(const Container& container, aoStream& stream, const std::string& path, bool append,
                   const ByteSource& source, Progress* progress);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_STREAM_DATA_H
