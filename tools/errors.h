// Failures of the tool: each kind has its own exit status, and every failure
// is reported as one line on standard error naming the file concerned.
#ifndef AOSTORE_TOOLS_ERRORS_H
#define AOSTORE_TOOLS_ERRORS_H

#include <stdexcept>
#include <string>

namespace aotool {

enum class Exit : int {
  kOk = 0,
  kDamaged = 1,        // the container is damaged (check: problems were found)
  kUnreadable = 2,     // the file is missing or cannot be read
  kNotContainer = 3,   // the file is not a container
  kNoSuchStream = 4,   // no stream or folder at the path inside the container
  kConflict = 5,       // the path names the wrong kind of thing, or already exists
  kWriteFailed = 6,    // the container could not be created or changed
  kHostFile = 7,       // a file or folder outside the container could not be read or written
  kVerifyFailed = 8,   // a verification (stress test, demo) found differences
  kBusy = 9,           // another process is writing the container (or reading it, for a writer)
  kUsage = 64,         // the command line is wrong
};

class ToolError : public std::runtime_error {
 public:
  ToolError(Exit status, const std::string& message) : std::runtime_error(message), status_(status) {}
  Exit status() const { return status_; }

 private:
  Exit status_;
};

[[noreturn]] inline void Fail(Exit status, const std::string& message) { throw ToolError(status, message); }

}  // namespace aotool

#endif  // AOSTORE_TOOLS_ERRORS_H
