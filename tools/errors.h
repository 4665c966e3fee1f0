// Failures of the tool: each kind has its own exit status, the same in every
// command, and every failure is reported on standard error naming the file
// concerned.
#ifndef AOSTORE_TOOLS_ERRORS_H
#define AOSTORE_TOOLS_ERRORS_H

#include <stdexcept>
#include <string>

namespace aotool {

// The README's table of exit statuses and the manual page list these, from
// ExitStatuses() below.
enum class Exit : int {
  kOk = 0,
  kDamaged = 1,       // the container is damaged (check: problems were found)
  kUnreadable = 2,    // the container file is missing or cannot be read
  kNotContainer = 3,  // the file is not a container
  kNoSuchStream = 4,  // no stream or folder at the path inside the container
  kConflict = 5,      // the path names the wrong kind of thing, or something is already there
  kWriteFailed = 6,   // the container could not be created or changed
  kHostFile = 7,      // a file or folder outside the container could not be read or written
  kVerifyFailed = 8,  // a verification (compact, stress test, demo) found differences
  kBusy = 9,          // another process is writing the container
  kInvalidName = 10,  // a name breaks the name rule, or cannot be a file name here
  kUsage = 64,        // the command line is wrong
};

struct ExitStatus {
  Exit code;
  const char* name;  // one word, as in the README's table
  const char* meaning;
};
// Every status, in ascending order.
const ExitStatus* ExitStatuses(size_t& count);

class ToolError : public std::runtime_error {
 public:
  ToolError(Exit status, const std::string& message) : std::runtime_error(message), status_(status) {}
  Exit status() const { return status_; }

 private:
  Exit status_;
};

[[noreturn]] inline void Fail(Exit status, const std::string& message) { throw ToolError(status, message); }

// The command being run, for the "aostore COMMAND: " in front of messages.
void SetCommandName(const std::string& name);
// One line on standard error ("aostore ls: " and message), after what
// standard output holds so far, so that the two stay in order on a terminal.
void Warn(const std::string& message);

// The reason errno gives for the last failed call ("No such file or directory").
std::string SystemReason();

}  // namespace aotool

#endif  // AOSTORE_TOOLS_ERRORS_H
