// The per-path shared record and the process-wide registry of open paths.
#ifndef AOSTORE_STORAGE_FILE_REF_H
#define AOSTORE_STORAGE_FILE_REF_H

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "aostore/error.h"
#include "aostore/map_sort.h"
#include "aostore/types.h"
#include "platform/files.h"
#include "storage/folder_index.h"
#include "storage/page_rewrites.h"

namespace ao {

// What the library knows of a file's root table chain: every table in chain
// order and every free slot, so that creating a root stream takes the slot
// the chain scan would take without reading the tables again.
class RootTables {
 public:
  struct Table {
    int64_t offset;
    uint32_t slotCount;
    uint32_t freeCount;  // slots without a name
    size_t firstWord;    // where its bits start in freeBits_
  };
  // A slot by its table's place in the chain and its index in the table.
  using Slot = std::pair<size_t, uint32_t>;

  bool known() const { return known_; }
  void Reset();
  // Called for each table in chain order while the chain is walked; used
  // tells which of its slots hold a name (none, when it is empty).
  void AddTable(int64_t offset, uint32_t slotCount, const std::vector<bool>& used = {});
  void MarkKnown() { known_ = true; }
  void SetSlotUsed(size_t table, uint32_t slot, bool used);
  // The first free slot at or after `from` in chain order, if any.
  bool FirstFree(Slot from, Slot& found) const;
  const std::vector<Table>& tables() const { return tables_; }
  // Records that the header record at recordOffset now has a name (or none).
  void NoteRecordWritten(int64_t recordOffset, bool named, int tableHeaderSize, int recordSize);

 private:
  static constexpr uint32_t kWordBits = 64;
  // The first free slot of table at or after slot, if any.
  bool FreeIn(size_t table, uint32_t slot, Slot& found) const;

  bool known_ = false;
  std::vector<Table> tables_;
  // A set bit for each free slot, table after table: a creation finds its
  // slot with a bit scan, and filling or freeing a slot allocates nothing.
  std::vector<uint64_t> freeBits_;
  // The tables that have a free slot; a table joins or leaves it only when
  // its last slot is taken or its first is freed.
  std::set<size_t> withFree_;
  std::map<int64_t, size_t> byOffset_;
};

}  // namespace ao

// Shared by every aoStorage open on one file, whatever the path that named
// it: its identity is the key.
struct t_FileRef {
  std::recursive_mutex lock;  // the storage lock
  int32_t refCount = 0;
  // Of refCount: objects open for writing, and objects that hold the file
  // as an image in memory and read it no more.
  int32_t writers = 0;
  int32_t images = 0;
  // The lock that other processes honour, held for all of this process's
  // objects on the file through a handle of its own: exclusive while one of
  // them writes, shared while any reads.
  ao::FileHandle lockHandle = ao::kInvalidFile;
  ao::platform::LockMode lockHeld = ao::platform::LockMode::kNone;
  bool lockUnsupported = false;
  ao::platform::FileIdentity identity;
  int64_t tail = 0;
  CMapStringToStreamOffset rootMap;
  int mapCount = 0;
  ao::RootTables tables;
  // Pages of the file that small writes keep landing in, under the lock.
  ao::PageRewrites rewrites;
  // The indexes of the file's folders, under the lock.
  ao::FolderIndexes folders;
};

namespace ao {

// File identity -> t_FileRef, guarded by the registry lock.
struct FileRegistry {
  std::recursive_mutex lock;
  std::map<platform::FileIdentity, t_FileRef*> map;
  ~FileRegistry();
};
FileRegistry& Registry();

enum class FileUse { kRead, kWrite };

// The reason to report for a failure the file backend explained.
errc ErrorOf(platform::FileError error);

// The shared reference of the file that `file` (opened at path) reaches,
// made when this is the first object on it, counted for one more object.
// Takes the lock other processes honour that the use needs, waiting for it
// up to aoStorage::g_iLockWaitMilliseconds; null, with LastError busy,
// when another process holds a lock that conflicts. The first writer of
// the process gives back room a killed writer left at the file's end.
t_FileRef* JoinFileRef(FileHandle file, const char* path, FileUse use);
// The object no longer reads the file: it holds an image of it.
void NoteImageOnly(t_FileRef* ref);
// Uncounts an object; the last one releases the lock and the reference.
void LeaveFileRef(t_FileRef* ref, FileUse use, bool imageOnly);
// How many objects of this process have the file at path open (0 when
// there is no file there), and, when they do, their shared reference.
int32_t OpenersOf(const char* path, const t_FileRef** ref = nullptr);

}  // namespace ao

#endif  // AOSTORE_STORAGE_FILE_REF_H
