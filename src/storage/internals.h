// Access to aoStorage's private state for the library's own subsystems and
// for tests; not part of the public interface.
#ifndef AOSTORE_STORAGE_INTERNALS_H
#define AOSTORE_STORAGE_INTERNALS_H

#include "aostore/storage.h"
#include "storage/file_ref.h"

namespace ao {

struct StorageInternals {
  static void Lock(aoStorage& storage) { storage.Lock(); }
  static void Unlock(aoStorage& storage) { storage.Unlock(); }
  static t_FileRef* FileRef(aoStorage& storage) { return storage.m_fileRef; }
  static FileHandle File(aoStorage& storage) { return storage.m_file; }
  static int64_t CachedTail(const aoStorage& storage) { return storage.m_tail; }
  static bool HasUsableFile(const aoStorage& storage) { return storage.HasUsableFile(); }
  static int32_t RefCount(aoStorage& storage) {
    return storage.m_fileRef != nullptr ? storage.m_fileRef->refCount : 0;
  }
};

// Holds the storage lock (shared by every container open on the path) for a scope.
class StorageLockGuard {
 public:
  explicit StorageLockGuard(aoStorage& storage) : storage_(storage) { StorageInternals::Lock(storage_); }
  ~StorageLockGuard() { StorageInternals::Unlock(storage_); }
  StorageLockGuard(const StorageLockGuard&) = delete;
  StorageLockGuard& operator=(const StorageLockGuard&) = delete;

 private:
  aoStorage& storage_;
};

}  // namespace ao

#endif  // AOSTORE_STORAGE_INTERNALS_H
