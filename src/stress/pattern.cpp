#include "stress/pass.h"

namespace ao::stress {

void FillPattern(unsigned char* buffer, int64_t size) {
  for (int64_t i = 0; i < size; ++i) buffer[i] = static_cast<unsigned char>('A' + (i & 63));
}

}  // namespace ao::stress
