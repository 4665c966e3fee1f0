#if !defined(_WIN32)

#include "platform/open_files_posix.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/mapped_copy_posix.h"

namespace ao::platform::open_files {
namespace {

// The mapping reserves address space, not memory, and reaches past the
// file's end so that the file can grow into it; a file that outgrows it is
// mapped again, twice as wide. Narrow address spaces are left to pread.
constexpr int64_t kMinWindow = int64_t{1} << 30;
// Beyond this a file is read with pread: some file systems (tmpfs) take a
// write at any offset, and the address space is not endless.
constexpr int64_t kMaxWindow = int64_t{1} << 40;
constexpr bool kWideAddresses = sizeof(void*) >= 8;
// Small transfers gain most: their cost is the system call. A long transfer
// through the mapping pays a page fault per few pages instead, which costs
// more than the copy a read or write call makes.
constexpr size_t kMaxMappedTransfer = 8192;
// The room grown ahead of the end: an eighth of the file, within these, so
// that a small container does not leave much behind a kill and a large one
// is grown a few dozen times at most.
constexpr int64_t kMinRoom = int64_t{1} << 20;
constexpr int64_t kMaxRoom = int64_t{64} << 20;
// A store into the grown room first faults in this much of it, one system
// call for many pages: each page's own fault costs more than its share. Only
// writers that have appended as much already do so: faulting in room that is
// then given back costs far more than the faults it saves.
constexpr int64_t kFaultAhead = int64_t{256} << 10;
constexpr size_t kLoneHeader = 40;

// The last bytes of grown room: a mark, where the writer began appending,
// and the size the file was grown to. Room too short to hold them is left
// unmarked; what a kill leaves of it is then smaller than the mark.
constexpr unsigned char kRoomMark[16] = {'a', 'o', 's', 't', 'o', 'r', 'e', ' ',
                                         'r', 'o', 'o', 'm', 0xA5, 0x5A, 0xC3, 0x3C};

void PutLittle64(unsigned char* at, int64_t value) {
  for (int i = 0; i < 8; ++i) at[i] = static_cast<unsigned char>(static_cast<uint64_t>(value) >> (8 * i));
}

int64_t GetLittle64(const unsigned char* at) {
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = (value << 8) | at[i];
  return static_cast<int64_t>(value);
}

using Inode = std::pair<dev_t, ino_t>;

struct OpenFile {
  Inode inode;
  unsigned char* base = nullptr;
  size_t window = 0;
  bool writableView = false;
  // Bytes the file surely holds: below this a page is backed by the file.
  std::atomic<int64_t> known{0};
  // While writers > 0: the end the process's writes reached, and the size
  // the file was grown to, never below it.
  std::atomic<int64_t> end{0};
  std::atomic<int64_t> grown{0};
  // While writers > 0: the size when the first of them opened the file (or
  // less, when it was cut since), and the end of the room faulted in for
  // writing, never below it.
  int64_t opened = 0;
  // The room grown ahead never reaches beyond this.
  int64_t limit = INT64_MAX;
  std::atomic<int64_t> faulted{0};
  int handles = 0;
  int writers = 0;
  // Set when the system refused a mapping (a file system without mmap, or
  // no address space left): it is not asked again on every write.
  bool refused = false;
};

struct Handle {
  OpenFile* file = nullptr;
  bool writable = false;
};

struct Registry {
  // Copies and stores hold it shared; mapping, unmapping, growing and
  // cutting hold it alone.
  std::shared_mutex lock;
  // Indexed by descriptor (the system hands out the lowest free ones, so
  // they stay few); file is null where none is kept.
  std::vector<Handle> byHandle;
  std::map<Inode, std::unique_ptr<OpenFile>> byInode;
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

size_t WindowFor(int64_t size) {
  static const int64_t page = ::sysconf(_SC_PAGESIZE);
  int64_t window = size >= kMaxWindow / 2 ? kMaxWindow : std::max(kMinWindow, size * 2);
  if (page > 0) window = (window + page - 1) / page * page;
  return static_cast<size_t>(window);
}

// Whether bytes up to end want a wider mapping than file has, and a handle
// may give one: a read-only handle never replaces a writable mapping.
bool Outgrown(const OpenFile& file, const Handle& handle, int64_t end) {
  return end > static_cast<int64_t>(file.window) && static_cast<int64_t>(file.window) < kMaxWindow &&
         !file.refused && (handle.writable || !file.writableView);
}

// Maps fd wide enough for size bytes in place of the current mapping. Called
// with the registry held alone; a failure leaves the transfers to the system.
void Remap(OpenFile& file, int fd, int64_t size, bool writable) {
  const size_t window = WindowFor(size);
  void* base = ::mmap(nullptr, window, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
  if (base == MAP_FAILED) {
    file.refused = true;
    return;
  }
  if (file.base != nullptr) ::munmap(file.base, file.window);
  file.base = static_cast<unsigned char*>(base);
  file.window = window;
  file.writableView = writable;
}

Handle* Find(Registry& registry, int fd) {
  if (fd < 0 || static_cast<size_t>(fd) >= registry.byHandle.size()) return nullptr;
  Handle& handle = registry.byHandle[static_cast<size_t>(fd)];
  return handle.file == nullptr ? nullptr : &handle;
}

void RaiseTo(std::atomic<int64_t>& value, int64_t to) {
  int64_t now = value.load(std::memory_order_relaxed);
  while (to > now && !value.compare_exchange_weak(now, to, std::memory_order_release)) {
  }
}

bool Truncate(int fd, int64_t size) {
  if (size > FileSizeLimit()) {
    errno = EFBIG;
    return false;
  }
  int result;
  do {
    result = ::ftruncate(fd, static_cast<off_t>(size));
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool WriteAll(int fd, const unsigned char* bytes, size_t count, int64_t offset) {
  while (count > 0) {
    const ssize_t put = ::pwrite(fd, bytes, count, static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    bytes += put;
    count -= static_cast<size_t>(put);
    offset += put;
  }
  return true;
}

// Grows the file to hold stop bytes and room for more, the room marked at
// its end (or, where the system refuses that much, just the bytes); under
// the registry alone. Refused, with nothing changed, when stop is beyond
// what the file may hold.
bool Grow(OpenFile& file, const Handle& handle, int fd, int64_t stop) {
  const int64_t limit = std::min(file.limit, FileSizeLimit());
  if (stop > limit) {
    SetLastFileError(FileError::kTooLarge);
    return false;
  }
  const int64_t room = std::clamp(stop / 8, kMinRoom, kMaxRoom);
  const int64_t size = std::min((stop + room + kMinRoom - 1) / kMinRoom * kMinRoom, limit);
  bool grown = false;
  if (size - stop >= kRoomMarkSize) {
    // Writing the mark is what extends the file.
    unsigned char mark[static_cast<size_t>(kRoomMarkSize)];
    std::memcpy(mark, kRoomMark, sizeof kRoomMark);
    PutLittle64(mark + 16, file.opened);
    PutLittle64(mark + 24, size);
    grown = WriteAll(fd, mark, sizeof mark, size - kRoomMarkSize);
  }
  const int64_t reached = grown ? size : stop;
  if (!grown && !Truncate(fd, reached)) {
    SetLastFileError(errno == ENOSPC ? FileError::kNoSpace : FileError::kOther);
    return false;
  }
  file.grown.store(reached, std::memory_order_release);
  RaiseTo(file.known, reached);
  if (Outgrown(file, handle, reached)) Remap(file, fd, reached, handle.writable);
  return true;
}

// The last writer leaves: the file is cut back to the end its writes
// reached, unless its size is no longer the one it was grown to (another
// process wrote to it), when the room stays as unused space.
void GiveBackRoom(OpenFile& file, int fd) {
  const int64_t end = file.end.load(std::memory_order_acquire);
  const int64_t grown = file.grown.load(std::memory_order_acquire);
  struct stat info {};
  if (grown <= end || ::fstat(fd, &info) != 0 || info.st_size != grown) return;
  if (!Truncate(fd, end)) return;
  file.known.store(std::min(file.known.load(std::memory_order_acquire), end));
  file.faulted.store(std::min(file.faulted.load(std::memory_order_acquire), end));
}

// Before a store that appends: faults in the pages from the store's on, up
// to its stop and a stretch of room beyond, where that has not been done.
// Pages of the data the file held before this process began writing it are
// never faulted in this way: they would be read and then written back
// unchanged. Nor are pages for a store below the end: the room beyond a
// rewrite is likely filled by write calls, which need no mapped page. The
// grown size bounds the stretch, so every page lies inside the file. A
// failure only leaves the faults to the stores themselves.
void FaultIn(OpenFile& file, int64_t offset, int64_t stop) {
#if defined(MADV_POPULATE_WRITE)
  static const int64_t page = ::sysconf(_SC_PAGESIZE);
  const int64_t faulted = file.faulted.load(std::memory_order_acquire);
  const bool appends = stop > file.end.load(std::memory_order_acquire);
  if (!appends || stop <= faulted || stop - file.opened < kFaultAhead || page <= 0) return;
  const int64_t from = std::max(faulted, offset) / page * page;
  const int64_t to = std::min({stop + kFaultAhead, file.grown.load(std::memory_order_acquire),
                               static_cast<int64_t>(file.window)});
  if (to <= from) return;
  ::madvise(file.base + from, static_cast<size_t>(to - from), MADV_POPULATE_WRITE);
  RaiseTo(file.faulted, to);
#else
  (void)file, (void)offset, (void)stop;
#endif
}

// Stores head and tail at offset through a writable mapping; false when
// they are too long for it, or the system could not back the pages (the
// file was cut elsewhere), and the write call then reports the file as it is.
bool Store(OpenFile& file, int64_t offset, const void* head, size_t headCount, const void* tail, size_t tailCount) {
  const size_t count = headCount + tailCount;
  const auto stop = offset + static_cast<int64_t>(count);
  if (count > kMaxMappedTransfer || !file.writableView || stop > static_cast<int64_t>(file.window)) return false;
  FaultIn(file, offset, stop);
  unsigned char* at = file.base + offset;
  if (!StoreToView(at, head, headCount) || (tailCount > 0 && !StoreToView(at + headCount, tail, tailCount))) {
    file.known.store(0, std::memory_order_release);
    return false;
  }
  RaiseTo(file.end, stop);
  return true;
}

// Stores head and tail when they end at or below limit, a bound kept for
// the file of fd: nullopt when they reach beyond it, false when fd is not a
// writable descriptor the process keeps or the store failed. With
// appendsOnly, bytes that all lie below the end are left to the caller: a
// page the file held before is likely not mapped in yet, and its first
// store would cost a page fault, more than a write call.
std::optional<bool> StoreBelow(int fd, std::atomic<int64_t> OpenFile::*limit, int64_t offset, const void* head,
                               size_t headCount, const void* tail, size_t tailCount, bool appendsOnly) {
  Registry& registry = TheRegistry();
  std::shared_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle == nullptr || !handle->writable) return false;
  OpenFile& file = *handle->file;
  const int64_t stop = offset + static_cast<int64_t>(headCount + tailCount);
  if (stop > (file.*limit).load(std::memory_order_acquire)) return std::nullopt;
  if (appendsOnly && stop <= file.end.load(std::memory_order_acquire)) return false;
  return Store(file, offset, head, headCount, tail, tailCount);
}

}  // namespace

void Track(int fd, const struct stat& info, bool writable) {
  if (!kWideAddresses || fd < 0 || !S_ISREG(info.st_mode)) return;
  PrepareMappedCopies();
  Registry& registry = TheRegistry();
  std::unique_lock hold(registry.lock);
  const Inode inode{info.st_dev, info.st_ino};
  std::unique_ptr<OpenFile>& file = registry.byInode[inode];
  if (file == nullptr) {
    file = std::make_unique<OpenFile>();
    file->inode = inode;
  }
  ++file->handles;
  const Handle handle{file.get(), writable};
  if (static_cast<size_t>(fd) >= registry.byHandle.size()) registry.byHandle.resize(static_cast<size_t>(fd) + 1);
  registry.byHandle[static_cast<size_t>(fd)] = handle;
  auto size = static_cast<int64_t>(info.st_size);
  if (writable && file->writers++ == 0) {
    // The size from before the lock may be stale: the last writer may have
    // appended and given back its room since.
    struct stat now {};
    if (::fstat(fd, &now) == 0) size = static_cast<int64_t>(now.st_size);
    file->end.store(size, std::memory_order_release);
    file->grown.store(size, std::memory_order_release);
    file->opened = size;
    file->faulted.store(size, std::memory_order_release);
  }
  RaiseTo(file->known, size);
  const bool wanted = file->base == nullptr || (writable && !file->writableView);
  if (wanted && !file->refused) Remap(*file, fd, std::max(size, file->known.load()), writable);
}

void Forget(int fd) {
  Registry& registry = TheRegistry();
  std::unique_lock hold(registry.lock);
  Handle* kept = Find(registry, fd);
  if (kept == nullptr) return;
  const Handle handle = std::exchange(*kept, Handle{});
  OpenFile* file = handle.file;
  if (handle.writable && --file->writers == 0) GiveBackRoom(*file, fd);
  if (--file->handles > 0) return;
  if (file->base != nullptr) ::munmap(file->base, file->window);
  registry.byInode.erase(file->inode);
}

ReadPlan Read(int fd, void* buffer, size_t count, int64_t offset) {
  ReadPlan plan{false, count};
  if (count == 0 || offset < 0) return plan;
  Registry& registry = TheRegistry();
  std::shared_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle == nullptr) return plan;
  OpenFile& file = *handle->file;
  if (file.writers > 0) {
    const int64_t end = file.end.load(std::memory_order_acquire);
    plan.readable = offset >= end ? 0 : static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(count), end - offset));
  }
  if (plan.readable != count || count > kMaxMappedTransfer || file.base == nullptr) return plan;
  const auto stop = static_cast<uint64_t>(offset) + count;
  if (stop > static_cast<uint64_t>(file.known.load(std::memory_order_acquire)) || stop > file.window) return plan;
  if (CopyWithMapping(buffer, file.base + offset, count)) {
    plan.copied = true;
    return plan;
  }
  // The file was cut behind our back: only pread knows how much is left.
  file.known.store(0, std::memory_order_release);
  return plan;
}

MappedVisit Visit(int fd, MappedVisitor visitor, void* context) {
  Registry& registry = TheRegistry();
  std::shared_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle == nullptr || handle->file->base == nullptr) return MappedVisit::kNoMapping;
  OpenFile& file = *handle->file;
  // What the mapping surely holds, and no further than a writer's end.
  int64_t held = std::min<int64_t>(file.known.load(std::memory_order_acquire), static_cast<int64_t>(file.window));
  if (file.writers > 0) held = std::min(held, file.end.load(std::memory_order_acquire));
  if (VisitGuarded(visitor, context, file.base, held)) return MappedVisit::kDone;
  file.known.store(0, std::memory_order_release);
  return MappedVisit::kFaulted;
}

void Prefetch(int fd, int64_t offset, size_t count) {
  constexpr size_t kLine = 64;
  if (count == 0 || count > kMaxMappedTransfer || offset < 0) return;
  Registry& registry = TheRegistry();
  std::shared_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle == nullptr || handle->file->base == nullptr) return;
  const OpenFile& file = *handle->file;
  const auto end = static_cast<uint64_t>(offset) + count;
  if (end > static_cast<uint64_t>(file.known.load(std::memory_order_acquire)) || end > file.window) return;
  // Only the address is handed to the processor: a prefetch never faults.
  for (size_t line = 0; line < count + kLine - 1; line += kLine)
    __builtin_prefetch(file.base + offset + static_cast<int64_t>(std::min(line, count - 1)));
}

WriteOutcome Write(int fd, int64_t offset, const void* head, size_t headCount, const void* tail, size_t tailCount) {
  const size_t count = headCount + tailCount;
  if (offset < 0 || count == 0) return WriteOutcome::kLeftToCaller;
  const auto stop = offset + static_cast<int64_t>(count);
  // A lone block header goes ahead of data that a write call brings into
  // the same page: stored, its page would fault first. It only needs room.
  const bool lone = count <= kLoneHeader;
  if (!lone) {
    if (const std::optional<bool> stored =
            StoreBelow(fd, &OpenFile::grown, offset, head, headCount, tail, tailCount, true))
      return *stored ? WriteOutcome::kStored : WriteOutcome::kLeftToCaller;
  }
  Registry& registry = TheRegistry();
  std::unique_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle == nullptr || !handle->writable) return WriteOutcome::kLeftToCaller;
  OpenFile& file = *handle->file;
  if (stop > file.grown.load(std::memory_order_acquire) && !Grow(file, *handle, fd, stop))
    return WriteOutcome::kRefused;
  if (lone) return WriteOutcome::kLeftToCaller;
  return Store(file, offset, head, headCount, tail, tailCount) ? WriteOutcome::kStored : WriteOutcome::kLeftToCaller;
}

bool Rewrite(int fd, int64_t offset, const void* bytes, size_t count) {
  if (offset < 0 || count == 0) return false;
  return StoreBelow(fd, &OpenFile::end, offset, bytes, count, nullptr, 0, false).value_or(false);
}

void Reached(int fd, int64_t end) {
  Registry& registry = TheRegistry();
  {
    std::shared_lock hold(registry.lock);
    const Handle* handle = Find(registry, fd);
    if (handle == nullptr) return;
    OpenFile& file = *handle->file;
    RaiseTo(file.known, end);
    // Reads stop at the kept end, so only a write moves it.
    if (file.writers > 0) {
      RaiseTo(file.end, end);
      RaiseTo(file.grown, end);
    }
    if (!Outgrown(file, *handle, end)) return;
  }
  std::unique_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle != nullptr && Outgrown(*handle->file, *handle, end)) Remap(*handle->file, fd, end, handle->writable);
}

int64_t Size(int fd) {
  Registry& registry = TheRegistry();
  std::shared_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle == nullptr || handle->file->writers == 0) return -1;
  return handle->file->end.load(std::memory_order_acquire);
}

bool Resize(int fd, int64_t size) {
  Registry& registry = TheRegistry();
  std::unique_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  OpenFile* file = handle != nullptr ? handle->file : nullptr;
  // Growing the kept end costs nothing while the room grown ahead holds it.
  if (file != nullptr && handle->writable && size >= file->end.load(std::memory_order_acquire)) {
    if (size > file->grown.load(std::memory_order_acquire) && !Grow(*file, *handle, fd, size)) return false;
    file->end.store(size, std::memory_order_release);
    return true;
  }
  if (!Truncate(fd, size)) return false;
  if (file == nullptr) return true;
  file->known.store(size, std::memory_order_release);
  file->faulted.store(std::min(file->faulted.load(std::memory_order_acquire), size));
  if (file->writers > 0) {
    file->end.store(size, std::memory_order_release);
    file->grown.store(size, std::memory_order_release);
    file->opened = std::min(file->opened, size);
  }
  if (Outgrown(*file, *handle, size)) Remap(*file, fd, size, handle->writable);
  return true;
}

void LimitGrowth(int fd, int64_t limit) {
  Registry& registry = TheRegistry();
  std::unique_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle != nullptr) handle->file->limit = std::min(handle->file->limit, limit);
}

bool SyncMapping(int fd) {
  Registry& registry = TheRegistry();
  std::shared_lock hold(registry.lock);
  const Handle* handle = Find(registry, fd);
  if (handle == nullptr || handle->file->base == nullptr || !handle->file->writableView) return true;
  const OpenFile& file = *handle->file;
  const int64_t held = file.writers > 0 ? file.grown.load(std::memory_order_acquire)
                                        : file.known.load(std::memory_order_acquire);
  const auto length = static_cast<size_t>(std::clamp<int64_t>(held, 0, static_cast<int64_t>(file.window)));
  return length == 0 || ::msync(file.base, length, MS_SYNC) == 0;
}

int64_t RoomLeftBehind(int fd) {
  struct stat info {};
  if (::fstat(fd, &info) != 0 || info.st_size < static_cast<off_t>(kRoomMarkSize)) return -1;
  const auto size = static_cast<int64_t>(info.st_size);
  unsigned char mark[static_cast<size_t>(kRoomMarkSize)];
  size_t got = 0;
  while (got < sizeof mark) {
    const ssize_t read = ::pread(fd, mark + got, sizeof mark - got,
                                 static_cast<off_t>(size - static_cast<int64_t>(sizeof mark - got)));
    if (read < 0 && errno == EINTR) continue;
    if (read <= 0) return -1;
    got += static_cast<size_t>(read);
  }
  const int64_t began = GetLittle64(mark + 16);
  if (std::memcmp(mark, kRoomMark, sizeof kRoomMark) != 0 || GetLittle64(mark + 24) != size) return -1;
  return began >= 0 && began <= size - kRoomMarkSize ? began : -1;
}

int64_t FileSizeLimit() {
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
      limit.rlim_cur > static_cast<rlim_t>(INT64_MAX))
    return INT64_MAX;
  return static_cast<int64_t>(limit.rlim_cur);
}

}  // namespace ao::platform::open_files

#endif  // !_WIN32
