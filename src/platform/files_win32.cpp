// Win32 backend of the file interface. Every read and write names its offset
// in an OVERLAPPED record, so no caller depends on the handle's file pointer
// and two streams of one container may read at once.
#if defined(_WIN32)

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "platform/files.h"
#include "platform/piece_store.h"

namespace ao::platform {
namespace {

// ReadFile and WriteFile take 32-bit counts; larger transfers go in pieces.
constexpr size_t kMaxPiece = 1u << 30;

HANDLE ToHandle(FileHandle file) { return reinterpret_cast<HANDLE>(file); }

OVERLAPPED At(int64_t offset) {
  OVERLAPPED where{};
  where.Offset = static_cast<DWORD>(static_cast<uint64_t>(offset) & 0xFFFFFFFFu);
  where.OffsetHigh = static_cast<DWORD>(static_cast<uint64_t>(offset) >> 32);
  return where;
}

DWORD CreationFor(Disposition disposition) {
  switch (disposition) {
    case Disposition::kTruncateExisting: return TRUNCATE_EXISTING;
    case Disposition::kOpenAlways: return OPEN_ALWAYS;
    case Disposition::kOpenExisting: break;
  }
  return OPEN_EXISTING;
}

// The byte whose lock stands for the whole file. Windows enforces byte
// locks on reads and writes, so it lies far beyond any content.
constexpr DWORD kLockByteHigh = 0x40000000u;

FileError ErrorFromLastError(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND: return FileError::kNotFound;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_WRITE_PROTECT: return FileError::kAccessDenied;
    case ERROR_FILE_TOO_LARGE: return FileError::kTooLarge;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return FileError::kNoSpace;
    default: return FileError::kOther;
  }
}

// Shared like a POSIX descriptor: others may read, write, rename or delete
// the file while it is open.
HANDLE OpenShared(const char* path, DWORD access, DWORD creation) {
  const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  return ::CreateFileA(path, access, share, nullptr, creation, FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool LockByte(HANDLE handle, LockMode mode) {
  OVERLAPPED where{};
  where.OffsetHigh = kLockByteHigh;
  const DWORD flags = LOCKFILE_FAIL_IMMEDIATELY | (mode == LockMode::kExclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0);
  return ::LockFileEx(handle, flags, 0, 1, 0, &where) != 0;
}

void UnlockByte(HANDLE handle) {
  OVERLAPPED where{};
  where.OffsetHigh = kLockByteHigh;
  ::UnlockFileEx(handle, 0, 1, 0, &where);
}

class Win32Files final : public FileApi {
 public:
  FileHandle Open(const char* path, bool write, Disposition disposition, Mapping mapping) override {
    (void)mapping;  // this backend maps nothing
    if (path == nullptr) return kInvalidFile;
    // A folder fails to open here.
    HANDLE handle = OpenShared(path, GENERIC_READ | (write ? GENERIC_WRITE : 0), CreationFor(disposition));
    if (handle == INVALID_HANDLE_VALUE) {
      SetLastFileError(ErrorFromLastError(::GetLastError()));
      return kInvalidFile;
    }
    return reinterpret_cast<FileHandle>(handle);
  }

  bool Identify(FileHandle file, FileIdentity& identity) override {
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(ToHandle(file), &info)) return false;
    identity = {info.dwVolumeSerialNumber,
                (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow};
    return true;
  }

  FileHandle OpenForLocking(const char* path) override {
    if (path == nullptr) return kInvalidFile;
    HANDLE handle = OpenShared(path, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
    if (handle == INVALID_HANDLE_VALUE && ::GetLastError() == ERROR_ACCESS_DENIED)
      handle = OpenShared(path, GENERIC_READ, OPEN_EXISTING);
    if (handle == INVALID_HANDLE_VALUE) {
      SetLastFileError(ErrorFromLastError(::GetLastError()));
      return kInvalidFile;
    }
    return reinterpret_cast<FileHandle>(handle);
  }

  // A byte lock does not convert: the held one is released first and taken
  // again when the wanted one cannot be had.
  LockResult SetLock(FileHandle lockHandle, LockMode held, LockMode wanted) override {
    HANDLE handle = ToHandle(lockHandle);
    if (held == wanted) return LockResult::kLocked;
    if (held != LockMode::kNone) UnlockByte(handle);
    if (wanted == LockMode::kNone || LockByte(handle, wanted)) return LockResult::kLocked;
    const DWORD error = ::GetLastError();
    if (held != LockMode::kNone) LockByte(handle, held);
    return error == ERROR_LOCK_VIOLATION || error == ERROR_IO_PENDING ? LockResult::kBusy : LockResult::kUnsupported;
  }

  void Close(FileHandle file) override {
    if (file != kInvalidFile) ::CloseHandle(ToHandle(file));
  }

  bool ReadAt(FileHandle file, void* buffer, size_t count, int64_t offset, size_t* done) override {
    size_t total = 0;
    auto* bytes = static_cast<char*>(buffer);
    while (total < count) {
      const auto piece = static_cast<DWORD>(std::min(count - total, kMaxPiece));
      OVERLAPPED where = At(offset + static_cast<int64_t>(total));
      DWORD got = 0;
      if (!::ReadFile(ToHandle(file), bytes + total, piece, &got, &where)) {
        // Reading at or past the end reports an error where POSIX reports 0.
        if (::GetLastError() == ERROR_HANDLE_EOF) break;
        *done = total;
        return false;
      }
      if (got == 0) break;
      total += got;
    }
    *done = total;
    return true;
  }

  bool WriteAt(FileHandle file, const void* buffer, size_t count, int64_t offset, size_t* done) override {
    size_t total = 0;
    const auto* bytes = static_cast<const char*>(buffer);
    while (total < count) {
      const auto piece = static_cast<DWORD>(std::min(count - total, kMaxPiece));
      OVERLAPPED where = At(offset + static_cast<int64_t>(total));
      DWORD put = 0;
      if (!::WriteFile(ToHandle(file), bytes + total, piece, &put, &where) || put == 0) {
        SetLastFileError(ErrorFromLastError(::GetLastError()));
        *done = total;
        return false;
      }
      total += put;
    }
    *done = total;
    return true;
  }

  int64_t Size(FileHandle file) override {
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(ToHandle(file), &size)) return -1;
    return size.QuadPart;
  }

  bool SetSize(FileHandle file, int64_t size) override {
    if (size < 0) return false;
    const int64_t before = Size(file);
    // What SetEndOfFile does, at an explicit size: SetEndOfFile itself cuts
    // at the handle's file pointer, which a positional write on another
    // thread moves, so a resize could land anywhere.
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = size;
    if (!::SetFileInformationByHandle(ToHandle(file), FileEndOfFileInfo, &end, sizeof end)) return false;
    // Skips zero-filling the new space when the process holds the volume
    // privilege; without it the call fails, which changes nothing.
    if (size > before) ::SetFileValidData(ToHandle(file), size);
    return true;
  }

  bool Flush(FileHandle file) override { return ::FlushFileBuffers(ToHandle(file)) != 0; }

  bool Copy(const char* from, const char* to) override {
    return from != nullptr && to != nullptr && ::CopyFileA(from, to, FALSE) != 0;
  }

  bool Delete(const char* path) override { return path != nullptr && ::DeleteFileA(path) != 0; }

  bool Exists(const char* path) override {
    return path != nullptr && ::GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
  }

  bool Rename(const char* from, const char* to) override {
    return from != nullptr && to != nullptr && ::MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING) != 0;
  }
};

}  // namespace

// This backend maps nothing, so no view can fault.
bool CopyWithMapping(void* to, const void* from, size_t count) {
  std::memcpy(to, from, count);
  return true;
}

bool StoreToView(void* to, const void* from, size_t count) {
  StoreInPieces(to, from, count);
  return true;
}

FileApi& SystemFiles() {
  static Win32Files files;
  return files;
}

}  // namespace ao::platform

#endif  // _WIN32
