// aoStreamBuf: the standard streams over one aoStream.
//
// One buffer serves either reading or writing at a time. While reading, the
// stream stands at the end of the read-ahead (egptr); while writing, at the
// start of the pending bytes (pbase). Switching direction first gives the
// read-ahead back or writes the pending bytes, so the two never overlap.
#include <algorithm>
#include <cstring>

#include "aostore/file_adapter.h"
#include "aostore/stream.h"

namespace {
// The buffer's pointers are moved by int steps (gbump, pbump).
constexpr size_t kMaxBuffer = size_t{64} << 20;
}  // namespace

aoStreamBuf::aoStreamBuf(aoStream* stream, size_t bufferSize)
    : m_stream(stream), m_buffer(std::clamp<size_t>(bufferSize, 1, kMaxBuffer)) {}

aoStreamBuf::~aoStreamBuf() { sync(); }

int64_t aoStreamBuf::LogicalPosition() const {
  const int64_t position = m_stream->GetCurDataPos();
  if (pbase() != nullptr) return position + (pptr() - pbase());
  if (eback() != nullptr) return position - (egptr() - gptr());
  return position;
}

bool aoStreamBuf::FlushPending() {
  if (pbase() == nullptr) return true;
  const int64_t pending = pptr() - pbase();
  // Written or not, the bytes leave the buffer: a failed write is reported
  // once, through the stream's state.
  setp(nullptr, nullptr);
  if (pending == 0) return true;
  return m_stream->Write(m_buffer.data(), pending, false, nullptr) == pending;
}

bool aoStreamBuf::DropReadAhead() {
  if (eback() == nullptr) return true;
  const int64_t unread = egptr() - gptr();
  setg(nullptr, nullptr, nullptr);
  if (unread == 0) return true;
  return MoveStreamTo(m_stream->GetCurDataPos() - unread);
}

bool aoStreamBuf::MoveStreamTo(int64_t target) {
  const int64_t from = m_stream->GetCurDataPos();
  if (target == from) return true;
  int64_t result;
  if (target == 0) {
    result = m_stream->Seek(0, 0, true);
  } else if (target == m_stream->GetLength()) {
    // Straight to the last block, without walking the chain.
    result = m_stream->Seek(0, 1, false);
  } else if (target > from) {
    result = m_stream->Seek(target - from, 2, true);
  } else {
    result = m_stream->Seek(from - target, 2, false);
  }
  if (result == 0 && m_stream->GetCurDataPos() == target) return true;
  // A failed seek can leave the stream between blocks (and a failed backward
  // seek even reports success): put it back where it stood.
  m_stream->Seek(from, 0, true);
  return false;
}

aoStreamBuf::int_type aoStreamBuf::underflow() {
  if (m_stream == nullptr) return traits_type::eof();
  if (gptr() != nullptr && gptr() < egptr()) return traits_type::to_int_type(*gptr());
  if (!FlushPending()) return traits_type::eof();
  char* base = m_buffer.data();
  const int64_t got = m_stream->Read(base, static_cast<int64_t>(m_buffer.size()));
  if (got <= 0) {
    setg(nullptr, nullptr, nullptr);
    return traits_type::eof();
  }
  setg(base, base, base + got);
  return traits_type::to_int_type(*gptr());
}

aoStreamBuf::int_type aoStreamBuf::overflow(int_type ch) {
  if (m_stream == nullptr || !DropReadAhead()) return traits_type::eof();
  if (pbase() == nullptr) {
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
  } else if (pptr() == epptr()) {
    if (!FlushPending()) return traits_type::eof();
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
  }
  if (traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::not_eof(ch);
  *pptr() = traits_type::to_char_type(ch);
  pbump(1);
  return ch;
}

int aoStreamBuf::sync() {
  if (m_stream == nullptr) return 0;
  const bool written = FlushPending();
  const bool placed = DropReadAhead();
  return written && placed ? 0 : -1;
}

std::streamsize aoStreamBuf::showmanyc() {
  if (m_stream == nullptr) return -1;
  // Compared before subtracting: a damaged length may be far below 0.
  const int64_t length = m_stream->GetLength();
  const int64_t position = LogicalPosition();
  return length > position ? static_cast<std::streamsize>(length - position) : -1;
}

std::streamsize aoStreamBuf::xsgetn(char_type* out, std::streamsize count) {
  if (m_stream == nullptr || count <= 0) return 0;
  std::streamsize total = 0;
  while (total < count) {
    const std::streamsize buffered = (gptr() != nullptr) ? egptr() - gptr() : 0;
    if (buffered > 0) {
      const std::streamsize take = std::min(buffered, count - total);
      std::memcpy(out + total, gptr(), static_cast<size_t>(take));
      gbump(static_cast<int>(take));
      total += take;
      continue;
    }
    const std::streamsize rest = count - total;
    if (rest >= static_cast<std::streamsize>(m_buffer.size())) {
      // Large reads go straight into the caller's memory.
      if (!FlushPending()) break;
      setg(nullptr, nullptr, nullptr);
      const int64_t got = m_stream->Read(out + total, rest);
      if (got > 0) total += got;
      break;
    }
    if (traits_type::eq_int_type(underflow(), traits_type::eof())) break;
  }
  return total;
}

std::streamsize aoStreamBuf::xsputn(const char_type* data, std::streamsize count) {
  if (m_stream == nullptr || count <= 0) return 0;
  if (pbase() == nullptr && traits_type::eq_int_type(overflow(traits_type::eof()), traits_type::eof())) return 0;
  if (count > epptr() - pptr()) {
    if (!FlushPending()) return 0;
    if (count >= static_cast<std::streamsize>(m_buffer.size())) {
      // Large writes go straight to the stream.
      const int64_t written = m_stream->Write(data, count, false, nullptr);
      return written > 0 ? static_cast<std::streamsize>(written) : 0;
    }
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
  }
  std::memcpy(pptr(), data, static_cast<size_t>(count));
  pbump(static_cast<int>(count));
  return count;
}

aoStreamBuf::pos_type aoStreamBuf::seekoff(off_type offset, std::ios_base::seekdir dir,
                                           std::ios_base::openmode which) {
  (void)which;  // one position serves reading and writing
  const pos_type failed(off_type(-1));
  // Only a stream of a container keeps the data position that seeks need.
  if (m_stream == nullptr || m_stream->GetStorage() == nullptr) return failed;
  const int64_t here = LogicalPosition();
  // tellg and tellp: answer without giving up the buffer.
  if (dir == std::ios_base::cur && offset == 0) return pos_type(off_type(here));
  if (sync() != 0) return failed;
  const int64_t length = m_stream->GetLength();
  int64_t base = 0;
  if (dir == std::ios_base::cur) base = here;
  if (dir == std::ios_base::end) base = length;
  // Streams have no holes: a target past the end cannot be reached.
  if (offset < -base || offset > length - base) return failed;
  const int64_t target = base + offset;
  if (!MoveStreamTo(target)) return failed;
  return pos_type(off_type(target));
}

aoStreamBuf::pos_type aoStreamBuf::seekpos(pos_type position, std::ios_base::openmode which) {
  return seekoff(off_type(position), std::ios_base::beg, which);
}
