// Arbitrary bytes read as an edit log and replayed on a small container.
#include <cstddef>
#include <cstdint>
#include <string>

#include "container_walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = ao::fuzz::ScratchPath("fuzz-replay");
  ao::fuzz::ReplayLogBytes(path, data, size);
  return 0;
}
