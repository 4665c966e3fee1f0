#include "platform/files.h"

#include <algorithm>
#include <atomic>

namespace ao::platform {
namespace {
std::atomic<FileApi*> g_override{nullptr};
thread_local FileError t_lastError = FileError::kNone;
// One transfer moves at most this many bytes.
constexpr int64_t kMaxTransfer = 0x80000000LL;
}  // namespace

bool FileApi::WriteAtPair(FileHandle file, const void* head, size_t headCount, const void* tail, size_t tailCount,
                          int64_t offset, size_t* done) {
  size_t first = 0;
  size_t second = 0;
  const bool ok = WriteAt(file, head, headCount, offset, &first) && first == headCount &&
                  WriteAt(file, tail, tailCount, offset + static_cast<int64_t>(headCount), &second);
  *done = first + second;
  return ok;
}

FileError LastFileError() { return t_lastError; }

void SetLastFileError(FileError error) { t_lastError = error; }

FileApi& Files() {
  FileApi* files = g_override.load(std::memory_order_acquire);
  return files != nullptr ? *files : SystemFiles();
}

FileApi* SetFilesForTesting(FileApi* files) { return g_override.exchange(files); }

ReadStatus ReadExactly(FileHandle file, void* buffer, int64_t count, int64_t offset) {
  auto* bytes = static_cast<unsigned char*>(buffer);
  while (count > 0) {
    const auto piece = static_cast<size_t>(std::min(count, kMaxTransfer));
    size_t done = 0;
    if (!Files().ReadAt(file, bytes, piece, offset, &done)) return ReadStatus::kFailed;
    if (done != piece) return ReadStatus::kShort;
    bytes += piece;
    offset += static_cast<int64_t>(piece);
    count -= static_cast<int64_t>(piece);
  }
  return ReadStatus::kComplete;
}

bool ReadFully(FileHandle file, void* buffer, int64_t count, int64_t offset) {
  return ReadExactly(file, buffer, count, offset) == ReadStatus::kComplete;
}

bool WriteFully(FileHandle file, const void* buffer, int64_t count, int64_t offset) {
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  while (count > 0) {
    const auto piece = static_cast<size_t>(std::min(count, kMaxTransfer));
    size_t done = 0;
    if (!Files().WriteAt(file, bytes, piece, offset, &done) || done != piece) return false;
    bytes += piece;
    offset += static_cast<int64_t>(piece);
    count -= static_cast<int64_t>(piece);
  }
  return true;
}

bool WritePairFully(FileHandle file, const void* head, int64_t headCount, const void* tail, int64_t tailCount,
                    int64_t offset) {
  if (headCount < 0 || tailCount < 0 || headCount >= kMaxTransfer || tailCount >= kMaxTransfer) return false;
  size_t done = 0;
  const auto total = static_cast<size_t>(headCount + tailCount);
  return Files().WriteAtPair(file, head, static_cast<size_t>(headCount), tail, static_cast<size_t>(tailCount), offset,
                             &done) &&
         done == total;
}

}  // namespace ao::platform
