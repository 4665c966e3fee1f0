// Read-only access to a container's bytes for the checker: every read is
// bounded by the file's size, so no value taken from the file can make the
// checker read outside it.
#ifndef AOSTORE_CHECK_RAW_FILE_H
#define AOSTORE_CHECK_RAW_FILE_H

#include <cstdint>
#include <string>

#include "aostore/types.h"

struct t_FileRef;

namespace ao::check {

class RawFile {
 public:
  explicit RawFile(const char* path);
  ~RawFile();
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;

  // False when the file could not be opened or its size found; error() says why.
  bool ok() const { return file_ != kInvalidFile && size_ >= 0; }
  const std::string& error() const { return error_; }
  int64_t size() const { return size_; }
  // True when [offset, offset + count) lies inside the file.
  bool Contains(int64_t offset, int64_t count) const {
    return offset >= 0 && count >= 0 && offset <= size_ && count <= size_ - offset;
  }
  // Reads exactly count bytes that lie inside the file. False for a range
  // outside the file, and on a read error (failed() then tells).
  bool Read(int64_t offset, void* buffer, int64_t count);
  // True once a read inside the file failed: the disk, not the format, is at fault.
  bool failed() const { return failedAt_ >= 0; }
  int64_t failedAt() const { return failedAt_; }

 private:
  FileHandle file_ = kInvalidFile;
  // The file's shared reference: it holds the lock that keeps other
  // processes from writing the file while it is examined.
  t_FileRef* ref_ = nullptr;
  int64_t size_ = -1;
  int64_t failedAt_ = -1;
  std::string error_;
};

}  // namespace ao::check

#endif  // AOSTORE_CHECK_RAW_FILE_H
