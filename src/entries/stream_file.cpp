// CAoStreamFile: one stream behind the CFile interface.
#include <cstdint>

#include "aostore/file_adapter.h"
#include "aostore/stream.h"

CAoStreamFile::~CAoStreamFile() = default;

CFile* CAoStreamFile::Duplicate() const { return nullptr; }

uint32_t CAoStreamFile::Read(void* buffer, uint32_t count) {
  if (m_pStream == nullptr) return 0;
  const int64_t got = m_pStream->Read(buffer, count);
  // The interface counts bytes: a read error delivers none.
  return got > 0 ? static_cast<uint32_t>(got) : 0;
}

void CAoStreamFile::Write(const void* data, uint32_t count) {
  if (m_pStream != nullptr) m_pStream->Write(data, count, false, nullptr);
}

int32_t CAoStreamFile::Seek(int32_t offset, uint32_t from) {
  if (m_pStream == nullptr) return -1;
  // The stream's second seek has exactly the file rules: from the beginning
  // a negative offset counts back from the end, and every origin other than
  // begin and current (the end included) goes to the start.
  if (m_pStream->Seek2(offset, from) != 0) return -1;
  // Stream positions stay below the largest stream size, which fits.
  return static_cast<int32_t>(m_pStream->GetCurDataPos());
}

int64_t CAoStreamFile::GetLength() { return m_pStream != nullptr ? m_pStream->GetLength() : 0; }

void CAoStreamFile::Flush() {}

void CAoStreamFile::Close() {}

void CAoStreamFile::Abort() {}

const std::string CAoStreamFile::GetStorageName() {
  return m_pStream != nullptr ? std::string(m_pStream->GetName()) : std::string();
}
