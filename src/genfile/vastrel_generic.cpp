// CVastrelFile: the generic streams, the root streams of the container.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "aostore/types.h"
#include "aostore/vastrel_file.h"
#include "genfile/vastrel_io.h"

using ao::genfile::kFromCurrent;
using ao::genfile::kFromEnd;
using ao::genfile::kFromStart;

namespace {

// The application numbers its data streams: exactly 8 hexadecimal digits
// from 10000000 to fffffffe. Other root streams ("System", ...) are skipped.
bool IsNumberedStreamName(const char* name) {
  if (name == nullptr) return false;
  char text[32] = {};
  std::memcpy(text, name, std::min<size_t>(std::strlen(name), sizeof text - 1));
  if (std::strlen(text) != 8) return false;
  // Parsing stops at the first non-hexadecimal character, which leaves
  // such a name below the range.
  unsigned long value = std::strtoul(text, nullptr, 16);
  return value >= 0x10000000UL && value < 0xFFFFFFFFUL;
}

}  // namespace

int CVastrelFile::OpenGenericStream(const char* name, int write) {
  CloseStream();
  if (m_pStorage == nullptr || name == nullptr) return 0;
  m_pGenericStream = m_pStorage->OpenStream(name, write != 0 ? kAoModeEdit : kAoModeInspect);
  return m_pGenericStream != nullptr;
}

int CVastrelFile::OpenGenericStreams(const char* name, const char* childName) {
  CloseStream();
  if (m_pStorage == nullptr || name == nullptr) return 0;
  m_pGenericStream = m_pStorage->OpenStream(name, ModeFlags());
  if (m_pGenericStream == nullptr) return 0;
  if (m_pGenericStream->IsFolder() == 0) return 1;
  if (childName == nullptr) return 0;
  m_pChildStream = m_pGenericStream->OpenStream(childName, ModeFlags());
  return m_pChildStream != nullptr;
}

int CVastrelFile::OpenOrCreateGenericStream(const char* name, int seekToEnd, uint32_t type) {
  int created = 0;
  return OpenOrCreateGenericStream(name, seekToEnd, type, created);
}

int CVastrelFile::OpenOrCreateGenericStream(const char* name, int seekToEnd, uint32_t type, int& created) {
  CloseStream();
  created = 0;
  if (m_pStorage == nullptr || name == nullptr) return 0;
  m_pGenericStream = m_pStorage->OpenStream(name, kAoModeEdit);
  if (m_pGenericStream == nullptr) {
    created = 1;
    m_pGenericStream = m_pStorage->CreateStreamHelper(name, type, kAoModeEdit, false, false);
    if (m_pGenericStream == nullptr) return 0;
  }
  if (seekToEnd != 0) m_pGenericStream->Seek(0, kFromEnd, true);
  return 1;
}

int CVastrelFile::OpenNextGenericStream() {
  if (m_pStorage == nullptr) return 0;
  if (m_pGenericStream == nullptr) {
    m_pGenericStream = m_pStorage->OpenStreamFirst(ModeFlags());
  } else if (!m_pGenericStream->GoNext()) {
    CloseStream();
    return 0;
  }
  return m_pGenericStream != nullptr;
}

int CVastrelFile::OpenNextStream() {
  if (m_pStorage == nullptr) return 0;
  if (m_pGenericStream == nullptr) {
    m_pGenericStream = m_pStorage->OpenStreamFirst(kAoModeInspect);
    if (m_pGenericStream == nullptr) return 0;
  } else if (!m_pGenericStream->GoNext()) {
    CloseStream();
    return 0;
  }
  while (!IsNumberedStreamName(m_pGenericStream->GetName())) {
    if (!m_pGenericStream->GoNext()) {
      CloseStream();
      return 0;
    }
  }
  return 1;
}

int64_t CVastrelFile::ReadGenericStream(unsigned char* data, int64_t length) {
  if (m_pGenericStream == nullptr) return 0;
  return m_pGenericStream->Read(data, length);
}

int CVastrelFile::WriteGenericStream(unsigned char* data, int32_t length) {
  return ao::genfile::WroteAll(m_pGenericStream, data, length, false);
}

int CVastrelFile::WriteGenericStream(aoStream* stream, unsigned char* data, int32_t length) {
  return ao::genfile::WroteAll(stream, data, length, false);
}

int64_t CVastrelFile::ReadTagSeekBack(unsigned char* data, int64_t length) {
  if (m_pGenericStream == nullptr) return 0;
  int64_t read = m_pGenericStream->Read(data, length);
  if (read < 1) return 0;
  // Back by what was asked for, not by what came: callers ask for a whole
  // tag and only look at it when it came whole.
  m_pGenericStream->Seek(length, kFromCurrent, false);
  return read;
}

int CVastrelFile::SeekForward(int64_t count) {
  if (m_pGenericStream == nullptr) return 0;
  return m_pGenericStream->Seek(count, kFromCurrent, true) != -1;
}

int CVastrelFile::GoToBeginningOfGenericStream() {
  if (m_pGenericStream == nullptr) return 0;
  return m_pGenericStream->Seek(0, kFromStart, true) != -1;
}

int64_t CVastrelFile::GetStreamSize() { return m_pGenericStream == nullptr ? 0 : m_pGenericStream->GetLength(); }

char* CVastrelFile::GetStreamName() {
  if (m_pGenericStream == nullptr) return nullptr;
  CopyName(m_pGenericStream->GetName());
  return m_szName;
}

char* CVastrelFile::GetNextStreamName(uint32_t flags) {
  if (m_pStorage == nullptr) return nullptr;
  if (m_pGenericStream == nullptr) {
    m_pGenericStream = m_pStorage->OpenStreamFirst(flags);
  } else if (!m_pGenericStream->GoNext()) {
    return nullptr;  // the last stream stays current
  }
  if (m_pGenericStream == nullptr) return nullptr;
  CopyName(m_pGenericStream->GetName());
  return m_szName;
}

char* CVastrelFile::CreateStreamName(uint32_t value, char* out) {
  static char shared[16];
  char* target = out != nullptr ? out : shared;
  std::snprintf(target, 9, "%" PRIx32, value);  // at most 8 digits and the terminator
  return target;
}

int CVastrelFile::RemoveGenericStream(const char* name) {
  CloseStream();
  if (m_pStorage == nullptr || name == nullptr) return 0;
  m_pGenericStream = m_pStorage->OpenStream(name, kAoModeEdit);
  if (m_pGenericStream == nullptr) return 0;
  if (!m_pGenericStream->Remove()) return 0;
  m_pGenericStream = nullptr;  // a successful Remove released the object
  return 1;
}

int CVastrelFile::RemoveGenericStream() {
  if (m_pGenericStream == nullptr) return 0;
  // The child refers to the generic stream object, which a successful
  // Remove destroys; end the child first.
  CloseChildStream(0);
  if (!m_pGenericStream->Remove()) return 0;
  m_pGenericStream = nullptr;
  return 1;
}

int CVastrelFile::UpdateStreamHeaderChildStreamInfo(uint64_t info) {
  if (!HasGenericFolder()) return 0;
  return m_pGenericStream->UpdateStreamHeaderChildStreamInfo(info);
}

int CVastrelFile::CloseStream() {
  if (m_pChildStream != nullptr) {
    m_pChildStream->Release();
    m_pChildStream = nullptr;
  }
  FreeChildBuffer();
  FreeGenericBuffer();
  if (m_pGenericStream == nullptr) return 0;
  m_pGenericStream->Release();
  m_pGenericStream = nullptr;
  return 1;
}
