// The problems one check finds: all are counted, the first many are kept.
#ifndef AOSTORE_CHECK_PROBLEM_LOG_H
#define AOSTORE_CHECK_PROBLEM_LOG_H

#include <cstdint>
#include <string>
#include <vector>

#include "aostore/check.h"

namespace ao::check {

class ProblemLog {
 public:
  void Add(int64_t offset, CheckProblemKind kind, std::string message);
  int64_t count() const { return count_; }
  // The kept problems in file order (problems at one offset in the order found).
  std::vector<CheckProblem> TakeSorted();

 private:
  std::vector<CheckProblem> kept_;
  int64_t count_ = 0;
};

// A marker or other 32-bit field as messages show it: 0x followed by 8 hex digits.
// (Offsets and lengths appear in decimal, like file sizes.)
std::string Hex32(uint32_t value);

}  // namespace ao::check

#endif  // AOSTORE_CHECK_PROBLEM_LOG_H
