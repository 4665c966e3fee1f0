// Detects a block chain that comes back to a block it already visited
// (Brent's method: no allocation, found within twice the loop's length).
#ifndef AOSTORE_STORAGE_CYCLE_GUARD_H
#define AOSTORE_STORAGE_CYCLE_GUARD_H

#include <cstdint>

namespace ao {

class CycleGuard {
 public:
  // True when block was seen before on this walk.
  bool Seen(int64_t block) {
    if (block == saved_) return true;
    if (++steps_ == power_) {
      saved_ = block;
      power_ <<= 1;
      steps_ = 0;
    }
    return false;
  }

 private:
  int64_t saved_ = -1;
  uint64_t steps_ = 0;
  uint64_t power_ = 1;
};

}  // namespace ao

#endif  // AOSTORE_STORAGE_CYCLE_GUARD_H
