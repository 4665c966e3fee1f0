// aoStorage's positioned I/O primitives, over the host file or the in-memory
// image. Each object keeps its own position: nothing shares a file pointer.
#include <algorithm>
#include <cstring>

#include "aostore/storage.h"
#include "platform/files.h"
#include "storage/file_ref.h"
#include "storage/format.h"
#include "storage/positioning.h"

namespace platform = ao::platform;
namespace format = ao::format;

namespace {
constexpr int64_t kMaxTransfer = 0x80000000LL;
}

int aoStorage::ReadFile(ao::FileHandle file, void* buffer, int64_t count, int64_t* done, void* overlapped) {
  (void)overlapped;
  if (m_inMemory) {
    // Deliberately a read past the end of the image reports complete success;
    // the bytes beyond the end are left as they were in the buffer.
    int64_t available = std::min(count, m_imageSize - m_imagePos);
    auto* out = static_cast<unsigned char*>(buffer);
    int64_t from = m_imagePos;
    while (available > 0 && from >= 0) {
      const int64_t piece = std::min(available, kMaxTransfer);
      std::memcpy(out, m_image + from, static_cast<size_t>(piece));
      out += piece;
      from += piece;
      available -= piece;
    }
    m_imagePos += count;
    if (done != nullptr) *done = count;
    return 1;
  }
  return ao::ReadAtPosition(file, buffer, count, done, m_filePos);
}

int64_t aoStorage::SetFilePointer(ao::FileHandle file, int64_t distance, uint32_t method) {
  if (m_inMemory) return ao::MoveImagePosition(m_imagePos, m_imageSize, distance, method);
  return ao::MoveFilePosition(m_filePos, file, distance, method);
}

bool aoStorage::WriteInPlace(int64_t offset, const void* bytes, int64_t count) {
  if (m_inMemory || m_file == ao::kInvalidFile) return false;
  const bool written = m_fileRef != nullptr ? m_fileRef->rewrites.Write(m_file, offset, bytes, count)
                                            : platform::WriteFully(m_file, bytes, count, offset);
  if (!written) return false;
  m_filePos = offset + count;
  return true;
}

bool aoStorage::WriteStreamHeader(int64_t offset, t_aoStreamU& header) {
  if (m_inMemory) return false;  // an in-memory image is never written
  unsigned char bytes[92];
  format::EncodeRecord(header, m_b64, bytes);
  Lock();
  const bool written = WriteInPlace(offset, bytes, RecordSize());
  if (written && m_fileRef != nullptr)
    m_fileRef->tables.NoteRecordWritten(offset, header.name[0] != '\0', TableHeaderSize(), RecordSize());
  Unlock();
  return written;
}
