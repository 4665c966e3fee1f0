#if !defined(_WIN32)

#include "platform/read_mappings_posix.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

#include "platform/files.h"
#include "platform/mapped_copy_posix.h"

namespace ao::platform::read_mappings {
namespace {

// The mapping reserves address space, not memory, and reaches past the
// file's end so that the file can grow into it; a file that outgrows it is
// mapped again, twice as wide. Narrow address spaces are left to pread.
constexpr int64_t kMinWindow = int64_t{1} << 30;
// Beyond this a file is read with pread: some file systems (tmpfs) take a
// write at any offset, and the address space is not endless.
constexpr int64_t kMaxWindow = int64_t{1} << 40;
constexpr bool kWideAddresses = sizeof(void*) >= 8;
// Small reads gain most: their cost is the system call. A long sequential
// read through the mapping pays a page fault per few pages instead, which
// costs more than pread's copy.
constexpr size_t kMaxMappedRead = 8192;

using Inode = std::pair<dev_t, ino_t>;

struct MappedFile {
  Inode inode;
  const unsigned char* base = nullptr;
  size_t window = 0;
  // Bytes the file surely holds: below this a page is backed by the file.
  std::atomic<int64_t> known{0};
  int handles = 0;
  // Set when the system refused a mapping (a file system without mmap, or
  // no address space left): it is not asked again on every write.
  bool refused = false;
};

struct Registry {
  // Copies hold it shared; mapping, unmapping and cutting hold it alone.
  std::shared_mutex lock;
  std::unordered_map<int, MappedFile*> byHandle;
  std::map<Inode, std::unique_ptr<MappedFile>> byInode;
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

// Whether reads reaching end want a wider mapping than file has, and may get one.
bool Outgrown(const MappedFile& file, int64_t end) {
  return end > static_cast<int64_t>(file.window) && static_cast<int64_t>(file.window) < kMaxWindow && !file.refused;
}

// Maps fd wide enough for size bytes in place of the current mapping. Called
// with the registry held alone; a failure leaves the reads to pread.
void Remap(MappedFile& file, int fd, int64_t size) {
  const size_t window = WindowFor(size);
  void* base = ::mmap(nullptr, window, PROT_READ, MAP_SHARED, fd, 0);
  if (base == MAP_FAILED) {
    file.refused = true;
    return;
  }
  if (file.base != nullptr) ::munmap(const_cast<unsigned char*>(file.base), file.window);
  file.base = static_cast<const unsigned char*>(base);
  file.window = window;
}

MappedFile* Find(Registry& registry, int fd) {
  auto found = registry.byHandle.find(fd);
  return found == registry.byHandle.end() ? nullptr : found->second;
}

void RaiseKnown(MappedFile& file, int64_t end) {
  int64_t known = file.known.load(std::memory_order_relaxed);
  while (end > known && !file.known.compare_exchange_weak(known, end, std::memory_order_release)) {
  }
}

}  // namespace

void Track(int fd, const struct stat& info) {
  if (!kWideAddresses || !S_ISREG(info.st_mode)) return;
  PrepareMappedCopies();
  Registry& registry = TheRegistry();
  std::unique_lock hold(registry.lock);
  const Inode inode{info.st_dev, info.st_ino};
  std::unique_ptr<MappedFile>& file = registry.byInode[inode];
  if (file == nullptr) {
    file = std::make_unique<MappedFile>();
    file->inode = inode;
  }
  ++file->handles;
  registry.byHandle[fd] = file.get();
  const auto size = static_cast<int64_t>(info.st_size);
  RaiseKnown(*file, size);
  if (file->base == nullptr) Remap(*file, fd, size);
}

void Forget(int fd) {
  Registry& registry = TheRegistry();
  std::unique_lock hold(registry.lock);
  auto found = registry.byHandle.find(fd);
  if (found == registry.byHandle.end()) return;
  MappedFile* file = found->second;
  registry.byHandle.erase(found);
  if (--file->handles > 0) return;
  if (file->base != nullptr) ::munmap(const_cast<unsigned char*>(file->base), file->window);
  registry.byInode.erase(file->inode);
}

bool Read(int fd, void* buffer, size_t count, int64_t offset) {
  if (count == 0 || count > kMaxMappedRead || offset < 0) return false;
  Registry& registry = TheRegistry();
  std::shared_lock hold(registry.lock);
  MappedFile* file = Find(registry, fd);
  if (file == nullptr || file->base == nullptr) return false;
  const auto end = static_cast<uint64_t>(offset) + count;
  if (end > static_cast<uint64_t>(file->known.load(std::memory_order_acquire)) || end > file->window) return false;
  if (CopyWithMapping(buffer, file->base + offset, count)) return true;
  // The file was cut behind our back: only pread knows how much is left.
  file->known.store(0, std::memory_order_release);
  return false;
}

void Prefetch(int fd, int64_t offset, size_t count) {
  constexpr size_t kLine = 64;
  if (count == 0 || count > kMaxMappedRead || offset < 0) return;
  Registry& registry = TheRegistry();
  std::shared_lock hold(registry.lock);
  const MappedFile* file = Find(registry, fd);
  if (file == nullptr || file->base == nullptr) return;
  const auto end = static_cast<uint64_t>(offset) + count;
  if (end > static_cast<uint64_t>(file->known.load(std::memory_order_acquire)) || end > file->window) return;
  // Only the address is handed to the processor: a prefetch never faults.
  for (size_t line = 0; line < count + kLine - 1; line += kLine)
    __builtin_prefetch(file->base + offset + static_cast<int64_t>(std::min(line, count - 1)));
}

void Reached(int fd, int64_t end) {
  Registry& registry = TheRegistry();
  {
    std::shared_lock hold(registry.lock);
    MappedFile* file = Find(registry, fd);
    if (file == nullptr) return;
    RaiseKnown(*file, end);
    if (!Outgrown(*file, end)) return;
  }
  std::unique_lock hold(registry.lock);
  MappedFile* file = Find(registry, fd);
  if (file != nullptr && Outgrown(*file, end)) Remap(*file, fd, end);
}

bool Resize(int fd, int64_t size) {
  Registry& registry = TheRegistry();
  std::unique_lock hold(registry.lock);
  int result;
  do {
    result = ::ftruncate(fd, static_cast<off_t>(size));
  } while (result != 0 && errno == EINTR);
  if (result != 0) return false;
  MappedFile* file = Find(registry, fd);
  if (file == nullptr) return true;
  file->known.store(size, std::memory_order_release);
  if (Outgrown(*file, size)) Remap(*file, fd, size);
  return true;
}

}  // namespace ao::platform::read_mappings

#endif  // !_WIN32
