#include "check/raw_file.h"

#include "aostore/storage.h"
#include "platform/files.h"
#include "storage/file_ref.h"

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
  const auto mapping = aoStorage::g_bUseFileMapping != 0 ? platform::Mapping::kAllowed : platform::Mapping::kNever;
  file_ = platform::Files().Open(path, false, platform::Disposition::kOpenExisting, mapping);
  if (file_ == kInvalidFile) {
    const errc why = ErrorOf(platform::LastFileError());
    error_ = why == errc::io_error ? "cannot open the file for reading" : ErrorText(why);
    return;
  }
  ref_ = JoinFileRef(file_, path, FileUse::kRead);
  if (ref_ == nullptr) {
    error_ = ErrorText(LastError());
    platform::Files().Close(file_);
    file_ = kInvalidFile;
    return;
  }
  size_ = platform::Files().Size(file_);
  if (size_ < 0) error_ = "cannot find the size of the file";
}

RawFile::~RawFile() {
  if (file_ != kInvalidFile) platform::Files().Close(file_);
  LeaveFileRef(ref_, FileUse::kRead, false);
}

bool RawFile::Read(int64_t offset, void* buffer, int64_t count) {
  if (!ok() || !Contains(offset, count)) return false;
  if (count == 0) return true;
  if (platform::ReadFully(file_, buffer, count, offset)) return true;
  if (failedAt_ < 0) failedAt_ = offset;
  return false;
}

}  // namespace ao::check
