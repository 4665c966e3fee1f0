// CCompRecorder: the growable log buffer and the encoding of fixed fields.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "aostore/recorder.h"
#include "storage/format.h"

namespace {
// Fields and data are appended in steps of at least this many bytes.
constexpr unsigned int kMinGrowth = 4096;
}  // namespace

CCompRecorder::CCompRecorder(unsigned int growBy) : m_growBy(std::max(growBy, kMinGrowth)) {}

CCompRecorder::~CCompRecorder() {
  if (m_ownsBuffer != 0) std::free(m_buffer);
}

bool CCompRecorder::AllocateFresh(unsigned int size) {
  auto* buffer = static_cast<unsigned char*>(std::malloc(size));
  if (buffer == nullptr) return false;
  // A borrowed buffer is simply let go; an owned one cannot be here, since
  // callers allocate only when there is no buffer.
  m_buffer = buffer;
  m_capacity = size;
  m_position = 0;
  // Whatever data length was left from a detached buffer does not describe
  // the new one.
  m_dataLength = 0;
  m_ownsBuffer = 1;
  return true;
}

void CCompRecorder::Init(unsigned int size) {
  if (m_buffer == nullptr) AllocateFresh(size);
}

int CCompRecorder::Expand(unsigned int n) {
  if (m_buffer == nullptr && !AllocateFresh(kMinGrowth)) return 0;
  const unsigned int step = n != 0 ? n : m_growBy;
  if (step > UINT32_MAX - m_capacity) return 0;
  const unsigned int capacity = m_capacity + step;
  unsigned char* grown = nullptr;
  if (m_ownsBuffer != 0) {
    grown = static_cast<unsigned char*>(std::realloc(m_buffer, capacity));
  } else {
    // A borrowed buffer belongs to someone else's allocator: continue in a
    // copy of our own instead of reallocating it.
    grown = static_cast<unsigned char*>(std::malloc(capacity));
    if (grown != nullptr) std::memcpy(grown, m_buffer, m_capacity);
  }
  if (grown == nullptr) return 0;
  m_buffer = grown;
  m_capacity = capacity;
  m_ownsBuffer = 1;
  return 1;
}

bool CCompRecorder::EnsureRoom(unsigned int n, unsigned int grow) {
  if (m_buffer == nullptr && !AllocateFresh(kMinGrowth)) return false;
  if (n <= m_capacity - m_position) return true;
  return Expand(std::max(n, grow)) != 0 && n <= m_capacity - m_position;
}

void CCompRecorder::Add(unsigned char* const data, unsigned int len, unsigned int minGrow) {
  if (data == nullptr || len == 0) return;
  if (m_buffer == nullptr && minGrow != 0) Init(minGrow);
  if (!EnsureRoom(len, std::max(len, minGrow))) return;
  std::memcpy(m_buffer + m_position, data, len);
  m_position += len;
  NoteHighWater();
}

void CCompRecorder::Attach(unsigned char* buf, unsigned int len, int owns) {
  if (m_ownsBuffer != 0 && m_buffer != buf) std::free(m_buffer);
  m_buffer = buf;
  // Without a buffer there is nothing to read, whatever length was claimed.
  m_capacity = buf != nullptr ? len : 0;
  m_dataLength = m_capacity;
  m_position = 0;
  m_ownsBuffer = owns;
}

unsigned char* CCompRecorder::Detach(unsigned int* len) {
  unsigned char* buffer = m_buffer;
  m_buffer = nullptr;
  if (len != nullptr) *len = m_dataLength;
  return buffer;
}

CCompRecorder* CCompRecorder::Clone() {
  auto* copy = new (std::nothrow) CCompRecorder(m_growBy);
  if (copy == nullptr) return nullptr;
  if (m_buffer != nullptr && m_capacity != 0 && copy->AllocateFresh(m_capacity)) {
    std::memcpy(copy->m_buffer, m_buffer, m_dataLength);
    copy->m_dataLength = m_dataLength;
  }
  return copy;
}

void CCompRecorder::Empty() {
  if (m_ownsBuffer != 0 && m_buffer != nullptr) {
    std::free(m_buffer);
    m_buffer = nullptr;
  }
  m_position = 0;
  m_dataLength = 0;
}

void CCompRecorder::Free(unsigned char* p) { std::free(p); }

void CCompRecorder::PutField(const unsigned char* bytes, unsigned int n) {
  if (m_stopped != 0) return;
  if (!EnsureRoom(n, kMinGrowth)) {
    // A record missing a field would misframe everything after it; an
    // incomplete log is reported through the stopped flag instead.
    m_stopped = 1;
    return;
  }
  std::memcpy(m_buffer + m_position, bytes, n);
  m_position += n;
  NoteHighWater();
}

void CCompRecorder::PutU8(uint8_t v) { PutField(&v, 1); }

void CCompRecorder::PutU16(uint16_t v) {
  unsigned char bytes[2];
  ao::format::PutU16(bytes, v);
  PutField(bytes, sizeof bytes);
}

void CCompRecorder::PutU32(uint32_t v) {
  unsigned char bytes[4];
  ao::format::PutU32(bytes, v);
  PutField(bytes, sizeof bytes);
}
