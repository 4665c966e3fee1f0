// POSIX backend of the file interface: positional I/O, so that no two users
// of one descriptor ever share a file pointer.
#if !defined(_WIN32)

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "platform/files.h"
#include "platform/mapped_copy_posix.h"
#include "platform/open_files_posix.h"

namespace ao::platform {
namespace {

// Each view is a kernel mapping; the process may hold only so many of them,
// and the library must leave most to the application.
constexpr int kMaxViews = 4096;

// The byte whose lock stands for the whole file: far beyond any content, so
// that a system that enforces byte locks never stops a read or a write.
constexpr off_t kLockByte = off_t{1} << 62;

FileError ErrorFromErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR: return FileError::kNotFound;
    case EACCES:
    case EPERM:
    case EROFS: return FileError::kAccessDenied;
    case EISDIR: return FileError::kIsDirectory;
    case EFBIG: return FileError::kTooLarge;
    case ENOSPC:
    case EDQUOT: return FileError::kNoSpace;
    default: return FileError::kOther;
  }
}

int OpenRetrying(const char* path, int flags, mode_t mode) {
  int fd;
  do {
    fd = ::open(path, flags, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Converts or releases the lock this descriptor's open file holds; open
// file locks belong to the descriptor, not to the process, so locks of two
// descriptors of one process conflict like those of two processes, and
// closing some other descriptor of the file never drops them.
LockResult SetOpenFileLock(int fd, LockMode held, LockMode mode) {
#if defined(F_OFD_SETLK)
  struct flock lock {};
  lock.l_type = mode == LockMode::kExclusive ? F_WRLCK : mode == LockMode::kShared ? F_RDLCK : F_UNLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = kLockByte;
  lock.l_len = 1;
  int result;
  do {
    result = ::fcntl(fd, F_OFD_SETLK, &lock);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return LockResult::kLocked;
  if (errno == EAGAIN || errno == EACCES) return LockResult::kBusy;
  if (errno == EBADF) return LockResult::kFailed;
  if (errno != EINVAL) return LockResult::kUnsupported;
#endif
  // Without open file locks (an older system): flock, which also belongs to
  // the open file, but converts by releasing first, so a failed conversion
  // takes the lock that was held again.
  const auto take = [fd](LockMode kind) {
    const int operation = kind == LockMode::kExclusive ? LOCK_EX : kind == LockMode::kShared ? LOCK_SH : LOCK_UN;
    int taken;
    do {
      taken = ::flock(fd, operation | LOCK_NB);
    } while (taken != 0 && errno == EINTR);
    return taken == 0;
  };
  if (take(mode)) return LockResult::kLocked;
  if (errno != EWOULDBLOCK) return LockResult::kUnsupported;
  if (held != LockMode::kNone) take(held);
  return LockResult::kBusy;
}

class PosixFiles final : public FileApi {
 public:
  FileHandle Open(const char* path, bool write, Disposition disposition, Mapping mapping) override {
    int flags = (write ? O_RDWR : O_RDONLY) | O_CLOEXEC;
    if (disposition == Disposition::kOpenAlways) flags |= O_CREAT;
    const int fd = OpenRetrying(path, flags, 0644);
    if (fd < 0) {
      SetLastFileError(ErrorFromErrno(errno));
      return kInvalidFile;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
      SetLastFileError(S_ISDIR(info.st_mode) ? FileError::kIsDirectory : ErrorFromErrno(errno));
      ::close(fd);
      return kInvalidFile;
    }
    if (mapping == Mapping::kAllowed) open_files::Track(fd, info, write);
    // Cut after the descriptor is known: another descriptor of the file may
    // be copying out of the part that goes.
    if (disposition == Disposition::kTruncateExisting && !open_files::Resize(fd, 0)) {
      Close(fd);
      return kInvalidFile;
    }
    return fd;
  }

  void Close(FileHandle file) override {
    if (file == kInvalidFile) return;
    open_files::Forget(static_cast<int>(file));
    ::close(static_cast<int>(file));
  }

  bool ReadAt(FileHandle file, void* buffer, size_t count, int64_t offset, size_t* done) override {
    const open_files::ReadPlan plan = open_files::Read(static_cast<int>(file), buffer, count, offset);
    if (plan.copied) {
      *done = count;
      return true;
    }
    count = plan.readable;
    size_t total = 0;
    auto* bytes = static_cast<char*>(buffer);
    while (total < count) {
      const ssize_t got = ::pread(static_cast<int>(file), bytes + total, count - total,
                                  static_cast<off_t>(offset + static_cast<int64_t>(total)));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) {
        *done = total;
        return false;
      }
      if (got == 0) break;
      total += static_cast<size_t>(got);
    }
    *done = total;
    if (total > 0) open_files::Reached(static_cast<int>(file), offset + static_cast<int64_t>(total));
    return true;
  }

  bool WriteAt(FileHandle file, const void* buffer, size_t count, int64_t offset, size_t* done) override {
    const open_files::WriteOutcome outcome = open_files::Write(static_cast<int>(file), offset, buffer, count, nullptr, 0);
    if (outcome != open_files::WriteOutcome::kLeftToCaller) {
      *done = outcome == open_files::WriteOutcome::kStored ? count : 0;
      return outcome == open_files::WriteOutcome::kStored;
    }
    if (!WithinSizeLimit(offset, count, done)) return false;
    size_t total = 0;
    const auto* bytes = static_cast<const char*>(buffer);
    while (total < count) {
      const ssize_t put = ::pwrite(static_cast<int>(file), bytes + total, count - total,
                                   static_cast<off_t>(offset + static_cast<int64_t>(total)));
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) {
        if (put < 0) SetLastFileError(ErrorFromErrno(errno));
        *done = total;
        return false;
      }
      total += static_cast<size_t>(put);
    }
    *done = total;
    open_files::Reached(static_cast<int>(file), offset + static_cast<int64_t>(total));
    return true;
  }

  bool WriteAtPair(FileHandle file, const void* head, size_t headCount, const void* tail, size_t tailCount,
                   int64_t offset, size_t* done) override {
    const open_files::WriteOutcome outcome =
        open_files::Write(static_cast<int>(file), offset, head, headCount, tail, tailCount);
    if (outcome != open_files::WriteOutcome::kLeftToCaller) {
      *done = outcome == open_files::WriteOutcome::kStored ? headCount + tailCount : 0;
      return outcome == open_files::WriteOutcome::kStored;
    }
    if (!WithinSizeLimit(offset, headCount + tailCount, done)) return false;
    iovec parts[2] = {{const_cast<void*>(head), headCount}, {const_cast<void*>(tail), tailCount}};
    ssize_t put;
    do {
      put = ::pwritev(static_cast<int>(file), parts, 2, static_cast<off_t>(offset));
    } while (put < 0 && errno == EINTR);
    if (put <= 0) {
      if (put < 0) SetLastFileError(ErrorFromErrno(errno));
      *done = 0;
      return headCount + tailCount == 0;
    }
    *done = static_cast<size_t>(put);
    open_files::Reached(static_cast<int>(file), offset + put);
    if (*done == headCount + tailCount) return true;
    // A transfer the system cut short: the rest goes through plain writes.
    size_t more = 0;
    bool ok;
    if (*done < headCount) {
      ok = FileApi::WriteAtPair(file, static_cast<const char*>(head) + *done, headCount - *done, tail, tailCount,
                                offset + put, &more);
    } else {
      const size_t into = *done - headCount;
      ok = WriteAt(file, static_cast<const char*>(tail) + into, tailCount - into, offset + put, &more);
    }
    *done += more;
    return ok;
  }

  int64_t Size(FileHandle file) override {
    const int64_t kept = open_files::Size(static_cast<int>(file));
    if (kept >= 0) return kept;
    struct stat info {};
    if (::fstat(static_cast<int>(file), &info) != 0) return -1;
    return static_cast<int64_t>(info.st_size);
  }

  bool SetSize(FileHandle file, int64_t size) override {
    return size >= 0 && open_files::Resize(static_cast<int>(file), size);
  }

  bool Flush(FileHandle file) override {
    return open_files::SyncMapping(static_cast<int>(file)) && ::fsync(static_cast<int>(file)) == 0;
  }

  bool FlushFolderOf(const char* path) override {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const int fd = OpenRetrying(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (fd < 0) return false;
    // Some file systems cannot sync a folder; its entry is then as safe as
    // they make it.
    const bool synced = ::fsync(fd) == 0 || errno == EINVAL;
    ::close(fd);
    return synced;
  }

  bool Identify(FileHandle file, FileIdentity& identity) override {
    struct stat info {};
    if (::fstat(static_cast<int>(file), &info) != 0) return false;
    identity = {static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino)};
    return true;
  }

  FileHandle OpenForLocking(const char* path) override {
    int fd = OpenRetrying(path, O_RDWR | O_CLOEXEC, 0);
    if (fd < 0 && (errno == EACCES || errno == EPERM || errno == EROFS)) fd = OpenRetrying(path, O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0) {
      SetLastFileError(ErrorFromErrno(errno));
      return kInvalidFile;
    }
    return fd;
  }

  LockResult SetLock(FileHandle lockHandle, LockMode held, LockMode wanted) override {
    return SetOpenFileLock(static_cast<int>(lockHandle), held, wanted);
  }

  void LimitGrowth(FileHandle file, int64_t limit) override { open_files::LimitGrowth(static_cast<int>(file), limit); }

  int64_t RoomLeftBehind(FileHandle file) override { return open_files::RoomLeftBehind(static_cast<int>(file)); }

  bool Copy(const char* from, const char* to) override {
    std::error_code error;
    return std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, error);
  }

  bool Delete(const char* path) override { return ::unlink(path) == 0; }

  bool Exists(const char* path) override { return ::access(path, F_OK) == 0; }

  bool Rename(const char* from, const char* to) override { return std::rename(from, to) == 0; }

  FileView MapForWriting(FileHandle file, int64_t offset, size_t count) override {
    static const int64_t page = ::sysconf(_SC_PAGESIZE);
    if (offset < 0 || count == 0 || page <= 0) return {};
    PrepareMappedCopies();
    if (views_.fetch_add(1, std::memory_order_relaxed) >= kMaxViews) {
      views_.fetch_sub(1, std::memory_order_relaxed);
      return {};
    }
    const int64_t start = offset - offset % page;
    const auto length = static_cast<size_t>(offset + static_cast<int64_t>(count) - start);
    void* base = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int>(file),
                        static_cast<off_t>(start));
    if (base == MAP_FAILED) {
      views_.fetch_sub(1, std::memory_order_relaxed);
      return {};
    }
    return {static_cast<unsigned char*>(base), length, start};
  }

  bool StoreAt(FileHandle file, const void* bytes, size_t count, int64_t offset) override {
    return open_files::Rewrite(static_cast<int>(file), offset, bytes, count);
  }

  MappedVisit VisitMapping(FileHandle file, MappedVisitor visitor, void* context) override {
    return open_files::Visit(static_cast<int>(file), visitor, context);
  }

  void WillRead(FileHandle file, int64_t offset, size_t count) override {
    open_files::Prefetch(static_cast<int>(file), offset, count);
  }

  void Unmap(const FileView& view) override {
    if (view.base == nullptr) return;
    ::munmap(view.base, view.length);
    views_.fetch_sub(1, std::memory_order_relaxed);
  }

 private:
  // A write beyond the process's file size limit would be answered by a
  // signal that ends the process: it fails instead.
  static bool WithinSizeLimit(int64_t offset, size_t count, size_t* done) {
    if (offset + static_cast<int64_t>(count) <= open_files::FileSizeLimit()) return true;
    SetLastFileError(FileError::kTooLarge);
    *done = 0;
    return false;
  }

  std::atomic<int> views_{0};
};

}  // namespace

FileApi& SystemFiles() {
  static PosixFiles files;
  return files;
}

}  // namespace ao::platform

#endif  // !_WIN32
