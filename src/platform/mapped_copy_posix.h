// The POSIX side of CopyWithMapping.
#ifndef AOSTORE_PLATFORM_MAPPED_COPY_POSIX_H
#define AOSTORE_PLATFORM_MAPPED_COPY_POSIX_H

#include <cstdint>

namespace ao::platform {

// Installs the SIGBUS handler that lets a faulting copy fail; called before
// the first view is mapped. Safe to call any number of times.
void PrepareMappedCopies();

// Runs a visitor over a mapping under the same guard as the copies: false
// when a fault ended it.
bool VisitGuarded(void (*visitor)(void*, const unsigned char*, int64_t), void* context, const unsigned char* base,
                  int64_t held);

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_MAPPED_COPY_POSIX_H
