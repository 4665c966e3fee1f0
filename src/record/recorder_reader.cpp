// CCompRecorder: reading the log back, op record by op record.
#include <cstring>
#include <string>

#include "aostore/recorder.h"
#include "storage/format.h"

int CCompRecorder::PeekByte(unsigned char& b) {
  if (m_position >= Readable()) return 0;
  b = m_buffer[m_position];
  return 1;
}

unsigned char* CCompRecorder::PeekAll(unsigned int* len) {
  const unsigned int readable = Readable();
  if (len != nullptr) *len = m_position < readable ? readable - m_position : 0;
  return m_buffer != nullptr ? m_buffer + m_position : nullptr;
}

int CCompRecorder::Read(unsigned char* out, unsigned int n, int mayThrow) {
  const unsigned int readable = Readable();
  if (m_position <= readable && n <= readable - m_position && (out != nullptr || n == 0)) {
    if (n != 0) std::memcpy(out, m_buffer + m_position, n);
    m_position += n;
    NoteHighWater();
    return 1;
  }
  if (mayThrow != 0 && m_throw != 0) throw std::string("Read error");
  return 0;
}

int CCompRecorder::PopOp(RecOpEnum* op, char* text, unsigned char** data, uint32_t* len) {
  char scratch[kAoNameFieldSize];
  if (text == nullptr) text = scratch;
  text[0] = '\0';
  unsigned char code = 0;
  if (Read(&code, 1, 1) == 0) return 0;
  if (op != nullptr) *op = static_cast<RecOpEnum>(code);

  unsigned char field[4];
  switch (code) {
    case RecOpEnter:
    case RecOpEnterFast:
    case RecOpRemove: {
      if (Read(field, 2, 1) == 0) return 0;
      const uint16_t n = ao::format::GetU16(field);
      // No stream name is this long: the record is not ours to replay.
      if (n >= kAoNameFieldSize) return 0;
      if (Read(reinterpret_cast<unsigned char*>(text), n, 1) == 0) return 0;
      text[n] = '\0';
      if (code == RecOpRemove) return 1;
      if (Read(field, 1, 1) == 0) return 0;
      if (len != nullptr) *len = field[0];
      return 1;
    }
    case RecOpLeave:
      return 1;
    case RecOpWrite:
    case RecOpAppend: {
      const unsigned int flags = code == RecOpWrite ? 2 : 1;
      if (Read(field, flags, 1) == 0) return 0;
      for (unsigned int i = 0; i < flags; ++i) text[i] = field[i] != 0 ? '1' : '0';
      text[flags] = '\0';
      if (Read(field, 4, 1) == 0) return 0;
      const uint32_t length = ao::format::GetU32(field);
      if (len != nullptr) *len = length;
      if (length > Readable() - m_position) return 0;
      if (data != nullptr) *data = m_buffer + m_position;
      m_position += length;
      NoteHighWater();
      return 1;
    }
    default:
      return 0;
  }
}
