#include "errors.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

namespace aotool {
namespace {

std::string& CommandName() {
  static std::string name;
  return name;
}

constexpr ExitStatus kStatuses[] = {
    {Exit::kOk, "ok", "success"},
    {Exit::kDamaged, "damaged", "the container is damaged (reading commands first print what they could read)"},
    {Exit::kUnreadable, "unreadable", "the container file is missing, is a directory or cannot be read"},
    {Exit::kNotContainer, "not-container", "the file is not a container (an empty or foreign file)"},
    {Exit::kNoSuchStream, "no-such-stream", "no stream or folder at the path inside the container"},
    {Exit::kConflict, "conflict", "the wrong kind of thing (a folder, a value of another type), or already there"},
    {Exit::kWriteFailed, "write-failed", "the container could not be created or changed"},
    {Exit::kHostFile, "host-file", "a file or folder outside the container could not be read or written"},
    {Exit::kVerifyFailed, "verify-failed", "a verification (compact, stress, demo) found differences"},
    {Exit::kBusy, "busy", "the container is being written by another process"},
    {Exit::kInvalidName, "invalid-name", "a name breaks the name rule, or cannot be a file name here"},
    {Exit::kUsage, "usage", "the command line is wrong"},
};

}  // namespace

const ExitStatus* ExitStatuses(size_t& count) {
  count = sizeof kStatuses / sizeof kStatuses[0];
  return kStatuses;
}

void SetCommandName(const std::string& name) { CommandName() = name; }

void Warn(const std::string& message) {
  std::cout.flush();
  std::fprintf(stderr, "aostore%s%s: %s\n", CommandName().empty() ? "" : " ", CommandName().c_str(), message.c_str());
}

std::string SystemReason() { return std::generic_category().message(errno); }

}  // namespace aotool
