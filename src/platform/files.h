// The host file system as the library sees it. Everything above platform/
// reaches files only through Files().
#ifndef AOSTORE_PLATFORM_FILES_H
#define AOSTORE_PLATFORM_FILES_H

#include <cstddef>
#include <cstdint>

#include "aostore/types.h"

namespace ao::platform {

// A shared, writable view of part of a file: a store into it changes the
// file exactly as a write of the same bytes would, with no system call.
struct FileView {
  unsigned char* base = nullptr;  // null: nothing is mapped
  size_t length = 0;
  int64_t offset = 0;  // the file offset of base
};

enum class Disposition {
  kTruncateExisting,  // open an existing file and cut it to 0 bytes
  kOpenAlways,        // open, creating the file when missing
  kOpenExisting,      // open only an existing file
};

// Whether the backend may read and write the file through a mapping of it
// (and grow it ahead of its end while it is written), or must use plain
// read and write calls only.
enum class Mapping { kAllowed, kNever };

// Which file a handle reaches, whatever the path that opened it: every
// spelling, hard link and symbolic link of one file gives the same identity.
struct FileIdentity {
  uint64_t device = 0;
  uint64_t index = 0;
  auto operator<=>(const FileIdentity&) const = default;
};

// A lock that several processes honour: any number of shared holders, or
// one exclusive holder.
enum class LockMode { kNone, kShared, kExclusive };
enum class LockResult {
  kLocked,
  kBusy,         // another process holds a lock that conflicts
  kUnsupported,  // the file system keeps no such locks
  kFailed,       // the handle cannot hold this lock (exclusive needs write access)
};

// The mark at the end of room grown ahead of a file's written end.
inline constexpr int64_t kRoomMarkSize = 32;

// Reads many small pieces of a file straight out of the mapping a backend
// keeps of it, with one look-up and one guard against faults for all of
// them. The visitor gets the mapping (file offset 0 at base) and how many
// bytes from there the file surely holds; it must read nothing at or
// beyond that, must keep its progress where the caller sees it after each
// piece, and must own nothing that needs destroying: a fault (the file cut
// short elsewhere) ends it at once.
using MappedVisitor = void (*)(void* context, const unsigned char* base, int64_t held);
enum class MappedVisit {
  kDone,       // the visitor ran to its end
  kNoMapping,  // the backend keeps no mapping of the file: nothing ran
  kFaulted,    // a fault ended the visitor part way
};

// Why the last failed call of this thread failed, where the system said so.
enum class FileError { kNone, kNotFound, kAccessDenied, kIsDirectory, kTooLarge, kNoSpace, kOther };
FileError LastFileError();
void SetLastFileError(FileError error);

class FileApi {
 public:
  virtual ~FileApi() = default;
  // kInvalidFile on failure (LastFileError says why). Files are always shared
  // for reading and writing.
  virtual FileHandle Open(const char* path, bool write, Disposition disposition, Mapping mapping) = 0;
  virtual void Close(FileHandle file) = 0;
  // Reads up to count bytes at offset; *done gets what arrived (less at the
  // end of the file). False on an error.
  virtual bool ReadAt(FileHandle file, void* buffer, size_t count, int64_t offset, size_t* done) = 0;
  // Writes count bytes at offset; *done gets what was written. False on error.
  virtual bool WriteAt(FileHandle file, const void* buffer, size_t count, int64_t offset, size_t* done) = 0;
  // Writes head and then tail at offset + headCount, in one transfer where
  // the system allows it; *done gets the total written. False on error.
  virtual bool WriteAtPair(FileHandle file, const void* head, size_t headCount, const void* tail, size_t tailCount,
                           int64_t offset, size_t* done);
  // -1 when the size cannot be found.
  virtual int64_t Size(FileHandle file) = 0;
  // Sets the end of the file (extending it with unwritten space).
  virtual bool SetSize(FileHandle file, int64_t size) = 0;
  // Makes everything written reach the disk, what went through a mapping too.
  virtual bool Flush(FileHandle file) = 0;
  // Makes the folder entry of the file at path reach the disk (a new file's
  // name survives a power cut); true where the system has nothing to do.
  virtual bool FlushFolderOf(const char* path) {
    (void)path;
    return true;
  }
  virtual bool Identify(FileHandle file, FileIdentity& identity) = 0;
  // A handle that only holds locks on the existing file at path: writable
  // where the caller may write the file, so that it can hold an exclusive
  // lock. Never mapped, never grown.
  virtual FileHandle OpenForLocking(const char* path) = 0;
  // Changes the lock the handle holds on its file (held) to wanted without
  // waiting; kNone releases it. When the change fails, held is still held.
  virtual LockResult SetLock(FileHandle lockHandle, LockMode held, LockMode wanted) = 0;
  // A writer of the file never grows it ahead of its end beyond limit.
  virtual void LimitGrowth(FileHandle file, int64_t limit) { (void)file, (void)limit; }
  // Where a writer that was killed before it gave back the room it had grown
  // ahead began writing: every byte from there on is what that writer
  // appended, then the room. -1 when the file's end shows no such room.
  virtual int64_t RoomLeftBehind(FileHandle file) {
    (void)file;
    return -1;
  }
  virtual bool Copy(const char* from, const char* to) = 0;
  virtual bool Delete(const char* path) = 0;
  virtual bool Exists(const char* path) = 0;
  // Replaces to by from in one step.
  virtual bool Rename(const char* from, const char* to) = 0;
  // A view covering [offset, offset + count), which must lie inside the file.
  // A backend that does not map (or has mapped enough) gives an empty view and
  // the caller writes instead.
  virtual FileView MapForWriting(FileHandle file, int64_t offset, size_t count) {
    (void)file, (void)offset, (void)count;
    return {};
  }
  virtual void Unmap(const FileView& view) { (void)view; }
  // Stores count bytes that lie inside the file at offset through a mapping
  // the backend keeps of the whole file, as StoreToView does; false when it
  // keeps none there, and the caller writes (or maps) instead.
  virtual bool StoreAt(FileHandle file, const void* bytes, size_t count, int64_t offset) {
    (void)file, (void)bytes, (void)count, (void)offset;
    return false;
  }
  virtual MappedVisit VisitMapping(FileHandle file, MappedVisitor visitor, void* context) {
    (void)file, (void)visitor, (void)context;
    return MappedVisit::kNoMapping;
  }
  // A hint that [offset, offset + count) will be read soon: a backend that
  // reads through a mapping starts bringing those bytes into the processor's
  // caches, so that the read finds them there. Does nothing otherwise.
  virtual void WillRead(FileHandle file, int64_t offset, size_t count) { (void)file, (void)offset, (void)count; }
};

// Copies between memory and a view the system backend mapped; false when the
// system could not back the view's pages (the file was cut short elsewhere,
// or the disk failed to deliver them), and the caller then uses plain I/O.
bool CopyWithMapping(void* to, const void* from, size_t count);
// Stores bytes into such a view so that a process killed at any moment
// leaves every field of up to 16 bytes that starts on a multiple of its own
// size from `to` wholly old or wholly new, even across a page: a write call
// may be cut between pages. False as for CopyWithMapping.
bool StoreToView(void* to, const void* from, size_t count);

// The backend in use: the operating system's unless a test installed another.
FileApi& Files();
// The operating system's backend.
FileApi& SystemFiles();
// Installs a backend (null restores the system's); returns the previous one.
FileApi* SetFilesForTesting(FileApi* files);

enum class ReadStatus {
  kComplete,
  kShort,   // the file ended first
  kFailed,  // the system reported an error
};
ReadStatus ReadExactly(FileHandle file, void* buffer, int64_t count, int64_t offset);

// Reads or writes all count bytes, in pieces the system accepts; false when
// anything failed or came short.
bool ReadFully(FileHandle file, void* buffer, int64_t count, int64_t offset);
bool WriteFully(FileHandle file, const void* buffer, int64_t count, int64_t offset);
// Writes head and tail back to back, both whole (each below 2 GiB).
bool WritePairFully(FileHandle file, const void* head, int64_t headCount, const void* tail, int64_t tailCount,
                    int64_t offset);

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_FILES_H
