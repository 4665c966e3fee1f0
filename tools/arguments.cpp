#include "arguments.h"

#include <charconv>

#include "errors.h"
#include "help.h"

namespace aotool {
namespace {

const OptionHelp* FindOption(const CommandHelp& help, const std::string& name) {
  for (const OptionHelp& option : help.options)
    if (name == option.name) return &option;
  return nullptr;
}

// Short flags written together, as in "-lR".
bool CombinedFlags(const std::string& word, const CommandHelp& help) {
  for (size_t letter = 1; letter < word.size(); ++letter) {
    const OptionHelp* option = FindOption(help, std::string("-") + word[letter]);
    if (option == nullptr || option->value != nullptr) return false;
  }
  return true;
}

}  // namespace

Arguments::Arguments(const std::vector<std::string>& words, const char* command) : help_(FindCommand(command)) {
  if (help_ == nullptr) Fail(Exit::kUsage, std::string("unknown command ") + command);
  bool options = true;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (options && word == "--") {
      options = false;
      continue;
    }
    // "-" alone is an operand (standard input), and so is a negative number.
    const bool number = word.size() > 1 && ((word[1] >= '0' && word[1] <= '9') || word[1] == '.');
    if (!options || word.size() < 2 || word[0] != '-' || number) {
      positional_.push_back(word);
      continue;
    }
    const OptionHelp* option = FindOption(*help_, word);
    if (option != nullptr && option->value != nullptr) {
      if (i + 1 == words.size()) Fail(Exit::kUsage, "option " + word + " needs a value");
      values_[word] = words[++i];
    } else if (option != nullptr) {
      flags_.insert(word);
    } else if (word[1] != '-' && CombinedFlags(word, *help_)) {
      for (size_t letter = 1; letter < word.size(); ++letter) flags_.insert(std::string("-") + word[letter]);
    } else {
      Fail(Exit::kUsage, "unknown option " + word + " (aostore " + help_->name + " --help lists the options)");
    }
  }
}

std::string Arguments::Value(const std::string& option, const std::string& fallback) const {
  const auto found = values_.find(option);
  return found == values_.end() ? fallback : found->second;
}

int64_t Arguments::Number(const std::string& option, int64_t fallback, int64_t low, int64_t high) const {
  const auto found = values_.find(option);
  if (found == values_.end()) return fallback;
  const std::string& text = found->second;
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < low || value > high)
    Fail(Exit::kUsage, option + " takes a whole number from " + std::to_string(low) + " to " + std::to_string(high));
  return value;
}

void Arguments::ExpectCount(size_t low, size_t high) const {
  if (positional_.size() < low || positional_.size() > high) FailUsage();
}

void Arguments::FailUsage() const {
  std::string usage;
  for (const char* synopsis : help_->synopses)
    usage += std::string(usage.empty() ? "usage: " : "; ") + "aostore " + synopsis;
  Fail(Exit::kUsage, usage);
}

}  // namespace aotool
