#include "check/segment_reader.h"

#include <algorithm>
#include <cstring>

namespace ao::check {

bool SegmentReader::Next(unsigned char* out, int64_t count, int64_t* fileOffset) {
  if (count > remaining_) return false;
  bool first = true;
  while (count > 0) {
    while (index_ < segments_.size() && inSegment_ >= segments_[index_].length) {
      ++index_;
      inSegment_ = 0;
    }
    if (index_ == segments_.size()) return false;
    const Segment& segment = segments_[index_];
    const int64_t piece = std::min(count, segment.length - inSegment_);
    const int64_t at = segment.start + inSegment_;
    if (first && fileOffset != nullptr) *fileOffset = at;
    first = false;
    if (!ReadBuffered(at, out, piece, segment.start + segment.length)) return false;
    out += piece;
    count -= piece;
    remaining_ -= piece;
    inSegment_ += piece;
  }
  return true;
}

bool SegmentReader::ReadBuffered(int64_t offset, unsigned char* out, int64_t count, int64_t segmentEnd) {
  const auto buffered = static_cast<int64_t>(buffer_.size());
  if (offset < bufferStart_ || offset + count > bufferStart_ + buffered) {
    if (count > kBufferBytes) return file_.Read(offset, out, count);
    const int64_t fill = std::max(count, std::min(kBufferBytes, segmentEnd - offset));
    buffer_.resize(static_cast<size_t>(fill));
    bufferStart_ = offset;
    if (!file_.Read(offset, buffer_.data(), fill)) {
      buffer_.clear();
      return false;
    }
  }
  std::memcpy(out, buffer_.data() + (offset - bufferStart_), static_cast<size_t>(count));
  return true;
}

}  // namespace ao::check
