// The console of the process, as far as command-line tools need it.
#ifndef AOSTORE_PLATFORM_TERMINAL_H
#define AOSTORE_PLATFORM_TERMINAL_H

namespace ao::platform {

// True when standard error is an interactive terminal.
bool StandardErrorIsTerminal();
// Columns of the terminal on standard error; 0 when unknown.
int StandardErrorColumns();

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_TERMINAL_H
