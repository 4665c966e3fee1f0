// Reads a stream's data in order across its blocks, as the stream itself
// would: the data area of each block in chain order, up to a limit. The
// checker reads folder data through it, record by record, so that records
// straddling a block boundary are read whole.
#ifndef AOSTORE_CHECK_SEGMENT_READER_H
#define AOSTORE_CHECK_SEGMENT_READER_H

#include <cstdint>
#include <vector>

#include "check/chain_walker.h"
#include "check/raw_file.h"

namespace ao::check {

class SegmentReader {
 public:
  SegmentReader(RawFile& file, const std::vector<Segment>& segments, int64_t limit)
      : file_(file), segments_(segments), remaining_(limit) {}

  // Reads the next count bytes into out; *fileOffset receives the file
  // offset of the first of them. False when fewer remain or a read failed.
  bool Next(unsigned char* out, int64_t count, int64_t* fileOffset);

 private:
  bool ReadBuffered(int64_t offset, unsigned char* out, int64_t count, int64_t segmentEnd);

  static constexpr int64_t kBufferBytes = 64 * 1024;
  RawFile& file_;
  const std::vector<Segment>& segments_;
  size_t index_ = 0;
  int64_t inSegment_ = 0;
  int64_t remaining_;
  std::vector<unsigned char> buffer_;
  int64_t bufferStart_ = 0;
};

}  // namespace ao::check

#endif  // AOSTORE_CHECK_SEGMENT_READER_H
