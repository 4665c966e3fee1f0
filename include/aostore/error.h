// Why a call failed. The classic interface answers null, 0, -1 or false;
// the reason of the last such failure of a container factory or of
// aoStorage::Sync on the calling thread is kept here.
#ifndef AOSTORE_ERROR_H
#define AOSTORE_ERROR_H

#include "aostore/export.h"

namespace ao {

enum class errc {
  ok = 0,
  not_found,          // no file at the path
  permission_denied,  // the system refused access to the file
  is_a_directory,     // the path names a folder, not a file
  busy,               // another process is writing the file
  read_elsewhere,     // a writer: another process is reading the file
  not_a_container,    // the file does not start with a container header
  damaged,            // the container's root directory cannot be loaded
  too_large,          // the file would pass the process's file size limit
  no_space,           // the disk (or the user's quota) is full
  io_error,           // any other failure of the system
  invalid_argument,   // a null, empty or over-long path or name
};

// The reason of this thread's last failed factory call or Sync; ok after a
// call that succeeded.
AOSTORE_API errc LastError();
// What the system answered when a read or write of a container file on
// this thread last failed (a stream's Write returning -1 or less than it
// was given): too_large, no_space, permission_denied or io_error.
AOSTORE_API errc LastIoError();
// A short lower-case text for an error ("is being written by another process").
AOSTORE_API const char* ErrorText(errc error);

// Sets the reason kept for this thread (the library's own use).
AOSTORE_API void SetLastError(errc error);

}  // namespace ao

#endif  // AOSTORE_ERROR_H
