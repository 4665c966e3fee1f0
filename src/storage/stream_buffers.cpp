// Reading a whole stream into a zeroed block that the caller owns and frees
// with FreeBuffer.
#include <algorithm>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "platform/memory.h"
#include "storage/format.h"

namespace platform = ao::platform;

namespace {

// The most CopyStreamToBuffer hands out in one block.
constexpr int64_t kMaxBufferCopy = 0x3F000000LL;

// A length read from the file asks for no more memory than the file could
// deliver.
bool FileCanHold(aoStorage* storage, int64_t length) {
  if (storage == nullptr) return true;
  const int64_t size = storage->GetFileSize();
  return size >= 0 && length <= size;
}

}  // namespace

uint32_t aoStream::CopyStreamToBuffer(unsigned char*& buffer, int skipPrefix) {
  buffer = nullptr;
  int64_t length = m_header.dataLength;
  if (skipPrefix != 0) {
    // The skipped head is as wide as the file's offsets, deliberately.
    unsigned char skipped[8];
    const int width = m_b64 ? 8 : 4;
    Read(skipped, width);
    length -= width;
  }
  if (length < 1) return 0;
  length = std::min(length, kMaxBufferCopy);
  if (!FileCanHold(m_storage, length)) return 0;
  auto* block = static_cast<unsigned char*>(platform::AllocZeroed(static_cast<size_t>(length)));
  if (block == nullptr) return 0;
  if (Read(block, length) != length) {
    platform::FreeBlock(block);
    return 0;
  }
  buffer = block;
  return static_cast<uint32_t>(length);
}

int aoStream::ReadAll(unsigned char** buffer, int64_t* length) {
  if (buffer == nullptr || length == nullptr) return 0;
  *buffer = nullptr;
  *length = 0;
  // Callers rewind first; the size counts from where the stream stands.
  const int64_t start = m_dataPos;
  int64_t size = m_header.dataLength;
  if ((m_header.flags & kAoFlagSizePrefix) != 0 && m_header.dataLength > 0) {
    unsigned char prefix[4];
    if (Read(prefix, sizeof prefix) != 4 || m_header.dataLength <= 4 ||
        static_cast<int64_t>(ao::format::GetU32(prefix)) != m_header.dataLength - 4)
      return 0;
    size -= 4;
  }
  if (size <= start) return 1;
  size -= start;
  if (!FileCanHold(m_storage, size)) return 0;
  auto* block = static_cast<unsigned char*>(platform::AllocZeroed(static_cast<size_t>(size)));
  if (block == nullptr) return 0;
  if (Read(block, size) != size) {
    platform::FreeBlock(block);
    return 0;
  }
  *buffer = block;
  *length = size;
  return 1;
}

void aoStream::FreeBuffer(unsigned char*& buffer) {
  platform::FreeBlock(buffer);
  buffer = nullptr;
}
