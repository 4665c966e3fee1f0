// aoStream2: a stream over a growable zeroed memory block.
#include <algorithm>
#include <cstring>

#include "aostore/stream.h"
#include "platform/memory.h"

namespace platform = ao::platform;

namespace {
// A memory stream grows by at least this many bytes at a time.
constexpr uint64_t kMinGrowth = 1024;
}  // namespace

aoStream2::aoStream2(void* buffer, int size) {
  if (buffer != nullptr) {
    m_base = static_cast<unsigned char*>(buffer);
    m_size = size > 0 ? static_cast<unsigned int>(size) : 0;
    m_owns = 0;
  } else {
    m_owns = 1;
  }
  m_cursor = m_base;
}

aoStream2::~aoStream2() {
  if (m_owns != 0) platform::FreeBlock(m_base);
}

int64_t aoStream2::Read(void* out, int64_t n) {
  if (n <= 0 || out == nullptr || m_base == nullptr) return 0;
  const auto count = static_cast<unsigned int>(std::min<uint64_t>(static_cast<uint64_t>(n), m_size - m_position));
  std::memcpy(out, m_cursor, count);
  m_position += count;
  m_cursor = m_base + m_position;
  return count;
}

int64_t aoStream2::Write(const void* data, int64_t n, bool setEnd, int64_t* written) {
  (void)setEnd;  // a memory stream's end is its block's size
  (void)written;
  if (n <= 0 || data == nullptr) return 0;
  const uint64_t room = m_size - m_position;
  const auto wanted = static_cast<uint64_t>(n);
  if (wanted > room) {
    const uint64_t size = m_base != nullptr ? m_size + std::max(wanted - room, kMinGrowth) : std::max(wanted, kMinGrowth);
    void* block = nullptr;
    if (size <= UINT32_MAX) {
      if (m_base == nullptr) {
        block = platform::AllocZeroed(size);
      } else if (m_owns != 0) {
        block = platform::ReallocZeroed(m_base, size);
      } else {
        // The caller's block is not ours to reallocate: go on in a copy.
        block = platform::AllocZeroed(size);
        if (block != nullptr) std::memcpy(block, m_base, m_size);
      }
    }
    if (block != nullptr) {
      m_base = static_cast<unsigned char*>(block);
      m_size = static_cast<unsigned int>(size);
      m_owns = 1;
      m_cursor = m_base + m_position;
    }
  }
  if (m_base == nullptr) return 0;
  const auto count = static_cast<unsigned int>(std::min<uint64_t>(wanted, m_size - m_position));
  std::memcpy(m_cursor, data, count);
  m_position += count;
  m_cursor = m_base + m_position;
  return count;
}

void* aoStream2::Detach(int& length) {
  length = static_cast<int>(m_position);
  if (m_position == 0) return nullptr;
  void* block = m_base;
  m_base = nullptr;
  m_cursor = nullptr;
  m_size = 0;
  m_position = 0;
  // Whatever the stream allocates from now on is its own again.
  m_owns = 1;
  return block;
}
