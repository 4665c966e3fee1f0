#include "check/raw_file.h"

#include "platform/files.h"

namespace ao::check {

RawFile::RawFile(const char* path) {
  if (path == nullptr || path[0] == '\0') {
    error_ = "no file name given";
    return;
  }
  if (!platform::Files().Exists(path)) {
    error_ = "no such file";
    return;
  }
  file_ = platform::Files().Open(path, false, platform::Disposition::kOpenExisting);
  if (file_ == kInvalidFile) {
    error_ = "cannot open the file for reading";
    return;
  }
  size_ = platform::Files().Size(file_);
  if (size_ < 0) error_ = "cannot find the size of the file";
}

RawFile::~RawFile() {
  if (file_ != kInvalidFile) platform::Files().Close(file_);
}

bool RawFile::Read(int64_t offset, void* buffer, int64_t count) {
  if (!ok() || !Contains(offset, count)) return false;
  if (count == 0) return true;
  if (platform::ReadFully(file_, buffer, count, offset)) return true;
  if (failedAt_ < 0) failedAt_ = offset;
  return false;
}

}  // namespace ao::check
