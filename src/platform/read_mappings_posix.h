// Reads served from a read-only shared mapping of the file: the same page
// cache a pread copies from, without the system call. Every descriptor of one
// file (by device and inode) shares one mapping and one count of the bytes
// the file surely holds; only those bytes are read through the mapping, so a
// page past the file's end is never touched. Cutting the file waits until no
// copy is running and lowers that count first.
#ifndef AOSTORE_PLATFORM_READ_MAPPINGS_POSIX_H
#define AOSTORE_PLATFORM_READ_MAPPINGS_POSIX_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

namespace ao::platform::read_mappings {

// Starts serving reads of a descriptor just opened; info is its fstat.
void Track(int fd, const struct stat& info);
// Stops, before the descriptor closes.
void Forget(int fd);
// True when all count bytes at offset were copied out of the mapping; false
// leaves the read to the caller.
bool Read(int fd, void* buffer, size_t count, int64_t offset);
// Starts loading the mapped bytes at offset into the processor's caches; a
// range the mapping does not surely hold is left alone.
void Prefetch(int fd, int64_t offset, size_t count);
// The file is known to hold at least end bytes: a write or read reached it.
void Reached(int fd, int64_t end);
// Sets the file's size (ftruncate) with no copy running meanwhile.
bool Resize(int fd, int64_t size);

}  // namespace ao::platform::read_mappings

#endif  // AOSTORE_PLATFORM_READ_MAPPINGS_POSIX_H
