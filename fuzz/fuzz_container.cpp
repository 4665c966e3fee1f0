// Arbitrary bytes opened as a container in every mode, and walked.
#include <cstddef>
#include <cstdint>
#include <string>

#include "container_walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = ao::fuzz::ScratchPath("fuzz-container");
  ao::fuzz::WalkContainerBytes(path, data, size);
  return 0;
}
