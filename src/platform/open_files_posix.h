// What the process keeps for each file it has open, shared by every
// descriptor of the file (by device and inode).
//
// Reads come from a shared mapping of the file: the same page cache a pread
// copies from, without the system call. Only bytes the file surely holds are
// read through the mapping, so a page past its end is never touched. Cutting
// the file waits until no copy is running and lowers that count first.
//
// While a descriptor is open for writing, the process keeps the file's end
// itself and grows the file ahead of it in large steps: appending then
// neither changes the file's size at every write nor asks the system for it.
// The kept end is the size every descriptor of the process sees, and reads
// stop there. When the last writing descriptor closes, the file is cut back
// to it. The room is never grown past the process's file size limit, so the
// system never answers a grow with a signal. Its last bytes tell where this
// process began writing: a process killed while writing leaves the room at
// the end of the file, and the next writer finds from there what was
// appended and gives the rest back (RoomLeftBehind). The end is this
// process's own: one process at a time writes a file, which the caller
// ensures with a lock.
//
// Small writes below the grown size are stores into the mapping, which then
// is writable: the bytes land in the same page cache a write call fills.
#ifndef AOSTORE_PLATFORM_OPEN_FILES_POSIX_H
#define AOSTORE_PLATFORM_OPEN_FILES_POSIX_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

#include "platform/files.h"

namespace ao::platform::open_files {

// Starts keeping a descriptor just opened; info is its fstat.
void Track(int fd, const struct stat& info, bool writable);
// Stops, before the descriptor closes.
void Forget(int fd);

struct ReadPlan {
  bool copied = false;  // all the bytes came out of the mapping
  size_t readable = 0;  // else: how many of them lie before the file's end
};
ReadPlan Read(int fd, void* buffer, size_t count, int64_t offset);
// Runs the visitor over the file's mapping (see FileApi::VisitMapping).
MappedVisit Visit(int fd, MappedVisitor visitor, void* context);
// Starts loading the mapped bytes at offset into the processor's caches; a
// range the mapping does not surely hold is left alone.
void Prefetch(int fd, int64_t offset, size_t count);

enum class WriteOutcome {
  kStored,        // the bytes are in the file
  kLeftToCaller,  // room is made where needed; the caller writes them
  kRefused,       // they would pass the file size limit (LastFileError says which)
};
// Makes room for head and then tail at offset, and stores them when they are
// small enough.
WriteOutcome Write(int fd, int64_t offset, const void* head, size_t headCount, const void* tail, size_t tailCount);
// Stores bytes that lie below the kept end; false leaves them to the caller.
bool Rewrite(int fd, int64_t offset, const void* bytes, size_t count);
// A read or write call transferred bytes up to end.
void Reached(int fd, int64_t end);
// The kept end, or -1 when the process keeps none: the system knows the size.
int64_t Size(int fd);
// Sets the file's size with no copy running meanwhile.
bool Resize(int fd, int64_t size);
// The room grown ahead of the file never reaches beyond limit.
void LimitGrowth(int fd, int64_t limit);
// Writes back what was stored through the file's mapping.
bool SyncMapping(int fd);
// Where the writer that left grown room at the end of the file began
// appending, or -1 when the file ends otherwise.
int64_t RoomLeftBehind(int fd);

// The largest size the process may give a file: a write or a resize beyond
// it would be answered by a signal that ends the process.
int64_t FileSizeLimit();

}  // namespace ao::platform::open_files

#endif  // AOSTORE_PLATFORM_OPEN_FILES_POSIX_H
