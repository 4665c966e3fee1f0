// The command line of one command: positional words and options. Options
// may stand anywhere after the command; "--" ends them. Which options a
// command takes, and its usage line, come from its entry in the help table.
#ifndef AOSTORE_TOOLS_ARGUMENTS_H
#define AOSTORE_TOOLS_ARGUMENTS_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace aotool {

struct CommandHelp;

class Arguments {
 public:
  // Throws a usage error for an option the command does not take, or a
  // missing value.
  Arguments(const std::vector<std::string>& words, const char* command);

  const std::vector<std::string>& positional() const { return positional_; }
  size_t count() const { return positional_.size(); }
  const std::string& operator[](size_t index) const { return positional_[index]; }
  bool Has(const std::string& flag) const { return flags_.count(flag) != 0; }
  // The value of an option, or fallback when it was not given.
  std::string Value(const std::string& option, const std::string& fallback) const;
  // The value as a whole number within [low, high]; a usage error otherwise.
  int64_t Number(const std::string& option, int64_t fallback, int64_t low, int64_t high) const;
  // A usage error unless the positional count is within [low, high].
  void ExpectCount(size_t low, size_t high) const;
  // A usage error naming the command's usage lines.
  [[noreturn]] void FailUsage() const;

 private:
  const CommandHelp* help_;
  std::vector<std::string> positional_;
  std::set<std::string> flags_;
  std::map<std::string, std::string> values_;
};

}  // namespace aotool

#endif  // AOSTORE_TOOLS_ARGUMENTS_H
