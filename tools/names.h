// The one rule for the names the tool writes into a container, and the
// names it can write out as host files.
//
// A stream name written by the tool is 1 to 51 bytes (the format's limit),
// not "." or "..", without '/' (the tool's path separator), without '\'
// (the path separator on Windows: such a name could not come back out as a
// file there, and containers move between systems), and without NUL or
// other control characters (bytes below 0x20, and 0x7F), which break the
// one-name-per-line output of ls and are refused by file systems or shells.
// Every other byte is allowed, UTF-8 included.
#ifndef AOSTORE_TOOLS_NAMES_H
#define AOSTORE_TOOLS_NAMES_H

#include <string>
#include <vector>

namespace aotool {

// Why name breaks the rule ("holds a control character (0x0a)"); empty
// when it follows it.
std::string NameProblem(const std::string& name);

// Why a stream name read from a container cannot be a file name on this
// system; empty when it can. Containers written elsewhere may hold names
// the rule refuses; those are refused here too, so that what export writes
// imports again.
std::string HostNameProblem(const std::string& name);

// Fails with kInvalidName when a name of the path breaks the rule.
void RequireValidNames(const std::vector<std::string>& names);

// text in double quotes with C escapes: "a\nb".
std::string Quoted(const std::string& text);
// text as it can be shown on one line: unchanged when no byte is a control
// character, else Quoted.
std::string Shown(const std::string& text);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_NAMES_H
