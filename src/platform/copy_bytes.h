// Copying between buffers whose placement the library does not choose.
#ifndef AOSTORE_PLATFORM_COPY_BYTES_H
#define AOSTORE_PLATFORM_COPY_BYTES_H

#include <cstddef>

namespace ao::platform {

// memcpy, except where the destination lies a little above the source
// modulo 4 KiB: some processors (AMD Zen) run the string-move instruction
// that the C library uses for copies of a few KiB twenty times slower there,
// so such a copy goes in pieces short enough to be made with vector moves.
void CopyBytes(void* to, const void* from, size_t count);

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_COPY_BYTES_H
