// The shared reference of each open file, and the lock by which processes
// keep out of each other's way: one process at a time writes a container,
// and no process reads it meanwhile, since a reader elsewhere would see the
// writer's records change under it. Within a process every object on the
// file shares one reference, one lock and one view of the file's end.
#include <algorithm>
#include <chrono>
#include <thread>

#include "aostore/error.h"
#include "aostore/storage.h"
#include "storage/file_ref.h"
#include "storage/room_reclaim.h"

namespace platform = ao::platform;
using platform::LockMode;
using platform::LockResult;

namespace ao {
namespace {

// The lock the objects counted in ref need together.
LockMode NeededLock(const t_FileRef& ref) {
  if (ref.writers > 0) return LockMode::kExclusive;
  return ref.refCount > ref.images ? LockMode::kShared : LockMode::kNone;
}

// Lowers the lock held to what the objects still need.
void LowerLock(t_FileRef& ref) {
  const LockMode needed = NeededLock(ref);
  if (ref.lockHandle == kInvalidFile || needed >= ref.lockHeld) return;
  if (platform::Files().SetLock(ref.lockHandle, ref.lockHeld, needed) == LockResult::kLocked) ref.lockHeld = needed;
}

void Forget(FileRegistry& registry, t_FileRef* ref) {
  if (ref->lockHandle != kInvalidFile) {
    platform::Files().SetLock(ref->lockHandle, ref->lockHeld, LockMode::kNone);
    platform::Files().Close(ref->lockHandle);
  }
  registry.map.erase(ref->identity);
  delete ref;
}

// Raises the lock held to wanted. A file system without such locks leaves
// the file unguarded, as it was before locks existed.
LockResult RaiseLock(t_FileRef& ref, LockMode wanted) {
  if (ref.lockUnsupported || ref.lockHeld >= wanted) return LockResult::kLocked;
  const LockResult result = platform::Files().SetLock(ref.lockHandle, ref.lockHeld, wanted);
  if (result == LockResult::kLocked) {
    ref.lockHeld = wanted;
  } else if (result != LockResult::kBusy) {
    ref.lockUnsupported = true;
    return LockResult::kLocked;
  }
  return result;
}

// Why a lock could not be had: a writer elsewhere, or only readers (which
// the shared lock, taken and given back at once, tells apart).
errc BusyReason(t_FileRef& ref, LockMode wanted) {
  if (wanted != LockMode::kExclusive) return errc::busy;
  if (ref.lockHeld == LockMode::kShared) return errc::read_elsewhere;
  if (platform::Files().SetLock(ref.lockHandle, LockMode::kNone, LockMode::kShared) != LockResult::kLocked)
    return errc::busy;
  platform::Files().SetLock(ref.lockHandle, LockMode::kShared, LockMode::kNone);
  return errc::read_elsewhere;
}

// One attempt under the registry lock: the reference counted for one more
// object, null with why when the lock cannot be had now.
t_FileRef* TryJoin(const platform::FileIdentity& identity, FileHandle file, const char* path, FileUse use,
                   errc& why) {
  FileRegistry& registry = Registry();
  t_FileRef*& slot = registry.map[identity];
  if (slot == nullptr) {
    const FileHandle lockHandle = platform::Files().OpenForLocking(path);
    platform::FileIdentity locked;
    const bool opened = lockHandle != kInvalidFile;
    // The path may name another file by now: this one was replaced (a
    // compacted copy put in its place), and whoever replaced it held it.
    if (opened && platform::Files().Identify(lockHandle, locked) && locked != identity) {
      platform::Files().Close(lockHandle);
      registry.map.erase(identity);
      why = errc::busy;
      return nullptr;
    }
    auto* ref = new t_FileRef;
    ref->identity = identity;
    ref->rewrites.AllowViews(aoStorage::g_bUseFileMapping != 0);
    ref->lockHandle = lockHandle;
    ref->lockUnsupported = !opened;
    slot = ref;
  }
  t_FileRef* ref = slot;
  const bool firstWriter = use == FileUse::kWrite && ref->writers == 0;
  const LockMode wanted = use == FileUse::kWrite ? LockMode::kExclusive : LockMode::kShared;
  if (RaiseLock(*ref, wanted) != LockResult::kLocked) {
    why = BusyReason(*ref, wanted);
    if (ref->refCount == 0) Forget(registry, ref);
    return nullptr;
  }
  ++ref->refCount;
  if (use == FileUse::kWrite) ++ref->writers;
  // Room left behind is given back only where no other process can be
  // writing the file meanwhile.
  if (firstWriter && ref->lockHeld == LockMode::kExclusive) GiveBackRoomLeftBehind(file);
  return ref;
}

}  // namespace

errc ErrorOf(platform::FileError error) {
  switch (error) {
    case platform::FileError::kNotFound: return errc::not_found;
    case platform::FileError::kAccessDenied: return errc::permission_denied;
    case platform::FileError::kIsDirectory: return errc::is_a_directory;
    case platform::FileError::kTooLarge: return errc::too_large;
    case platform::FileError::kNoSpace: return errc::no_space;
    default: return errc::io_error;
  }
}

t_FileRef* JoinFileRef(FileHandle file, const char* path, FileUse use) {
  platform::FileIdentity identity;
  if (!platform::Files().Identify(file, identity)) {
    SetLastError(ErrorOf(platform::LastFileError()));
    return nullptr;
  }
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(0, aoStorage::g_iLockWaitMilliseconds));
  auto pause = std::chrono::milliseconds(1);
  for (;;) {
    errc why = errc::busy;
    {
      std::lock_guard<std::recursive_mutex> hold(Registry().lock);
      if (t_FileRef* ref = TryJoin(identity, file, path, use, why)) return ref;
    }
    const auto now = Clock::now();
    if (now >= deadline) {
      SetLastError(why);
      return nullptr;
    }
    // Other threads may open other files meanwhile: the registry is free
    // while this one waits.
    std::this_thread::sleep_for(std::min<Clock::duration>(pause, deadline - now));
    pause = std::min(pause * 2, std::chrono::milliseconds(50));
  }
}

int32_t OpenersOf(const char* path, const t_FileRef** ref) {
  if (ref != nullptr) *ref = nullptr;
  const FileHandle file = platform::Files().Open(path, false, platform::Disposition::kOpenExisting,
                                                 platform::Mapping::kNever);
  if (file == kInvalidFile) return 0;
  platform::FileIdentity identity;
  const bool known = platform::Files().Identify(file, identity);
  platform::Files().Close(file);
  if (!known) return 0;
  std::lock_guard<std::recursive_mutex> hold(Registry().lock);
  const auto found = Registry().map.find(identity);
  if (found == Registry().map.end()) return 0;
  if (ref != nullptr) *ref = found->second;
  return found->second->refCount;
}

void NoteImageOnly(t_FileRef* ref) {
  std::lock_guard<std::recursive_mutex> hold(Registry().lock);
  ++ref->images;
  LowerLock(*ref);
}

void LeaveFileRef(t_FileRef* ref, FileUse use, bool imageOnly) {
  if (ref == nullptr) return;
  std::lock_guard<std::recursive_mutex> hold(Registry().lock);
  if (use == FileUse::kWrite) --ref->writers;
  if (imageOnly) --ref->images;
  if (--ref->refCount < 1) {
    Forget(Registry(), ref);
    return;
  }
  LowerLock(*ref);
}

}  // namespace ao
