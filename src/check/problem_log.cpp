#include "check/problem_log.h"

#include <algorithm>
#include <cstdio>

namespace ao::check {

void ProblemLog::Add(int64_t offset, CheckProblemKind kind, std::string message) {
  ++count_;
  if (kept_.size() < CheckReport::kMaxListed) kept_.push_back({offset, kind, std::move(message)});
}

std::vector<CheckProblem> ProblemLog::TakeSorted() {
  std::stable_sort(kept_.begin(), kept_.end(),
                   [](const CheckProblem& a, const CheckProblem& b) { return a.offset < b.offset; });
  return std::move(kept_);
}

std::string Hex32(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", value);
  return text;
}

}  // namespace ao::check
