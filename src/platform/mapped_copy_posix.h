// The POSIX side of CopyWithMapping.
#ifndef AOSTORE_PLATFORM_MAPPED_COPY_POSIX_H
#define AOSTORE_PLATFORM_MAPPED_COPY_POSIX_H

namespace ao::platform {

// Installs the SIGBUS handler that lets a faulting copy fail; called before
// the first view is mapped. Safe to call any number of times.
void PrepareMappedCopies();

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_MAPPED_COPY_POSIX_H
