// POSIX backend of the console facts.
#if !defined(_WIN32)

#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/terminal.h"

namespace ao::platform {

bool StandardErrorIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

int StandardErrorColumns() {
  struct winsize size {};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

}  // namespace ao::platform

#endif  // !_WIN32
