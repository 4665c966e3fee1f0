#include "arguments.h"

#include <charconv>

#include "errors.h"

namespace aotool {
namespace {

bool CombinedFlags(const std::string& word, const KnownOptions& known) {
  for (size_t letter = 1; letter < word.size(); ++letter)
    if (known.flags.count(std::string("-") + word[letter]) == 0) return false;
  return true;
}

}  // namespace

Arguments::Arguments(const std::vector<std::string>& words, const KnownOptions& known) {
  bool options = true;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (options && word == "--") {
      options = false;
    } else if (options && word.size() > 1 && word[0] == '-') {
      if (known.flags.count(word) != 0) {
        flags_.insert(word);
      } else if (known.valued.count(word) != 0) {
        if (i + 1 == words.size()) Fail(Exit::kUsage, "option " + word + " needs a value");
        values_[word] = words[++i];
      } else if (word[1] != '-' && CombinedFlags(word, known)) {
        // Short flags written together, as in "-lR".
        for (size_t letter = 1; letter < word.size(); ++letter) flags_.insert(std::string("-") + word[letter]);
      } else {
        Fail(Exit::kUsage, "unknown option " + word);
      }
    } else {
      positional_.push_back(word);
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

void Arguments::ExpectCount(size_t low, size_t high, const std::string& usage) const {
  if (positional_.size() < low || positional_.size() > high) Fail(Exit::kUsage, "usage: aostore " + usage);
}

}  // namespace aotool
