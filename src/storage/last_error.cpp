// The reason of a thread's last failed container call.
#include "aostore/error.h"

#include "platform/files.h"
#include "storage/file_ref.h"

namespace ao {
namespace {
thread_local errc t_lastError = errc::ok;
}  // namespace

errc LastError() { return t_lastError; }

void SetLastError(errc error) { t_lastError = error; }

errc LastIoError() { return ErrorOf(platform::LastFileError()); }

const char* ErrorText(errc error) {
  switch (error) {
    case errc::ok: return "no error";
    case errc::not_found: return "no such file";
    case errc::permission_denied: return "permission denied";
    case errc::is_a_directory: return "is a directory";
    case errc::busy: return "is being written by another process";
    case errc::read_elsewhere: return "is being read by another process";
    case errc::not_a_container: return "not a container";
    case errc::damaged: return "the container's root directory is damaged";
    case errc::too_large: return "the file would pass the file size limit";
    case errc::no_space: return "no space left on the device";
    case errc::io_error: return "input/output error";
    case errc::invalid_argument: return "invalid argument";
  }
  return "unknown error";
}

}  // namespace ao
