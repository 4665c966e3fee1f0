// Win32 backend of the console facts.
#if defined(_WIN32)

#include <windows.h>

#include "platform/terminal.h"

namespace ao::platform {

bool StandardErrorIsTerminal() {
  // Only a console answers GetConsoleMode; pipes and files do not.
  DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

int StandardErrorColumns() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!::GetConsoleScreenBufferInfo(::GetStdHandle(STD_ERROR_HANDLE), &info)) return 0;
  return info.srWindow.Right - info.srWindow.Left + 1;
}

}  // namespace ao::platform

#endif  // _WIN32
