// Runs of the library's write stress test, for the stress command and the demo.
#ifndef AOSTORE_TOOLS_STRESS_RUN_H
#define AOSTORE_TOOLS_STRESS_RUN_H

#include <cstdint>
#include <string>
#include <vector>

#include "progress.h"

namespace aotool {

struct StressResult {
  int passes = 0;
  int64_t writersFailed = 0;
  int64_t checked = 0;
  int64_t missing = 0;
  int64_t differing = 0;
  std::vector<std::string> problems;
  double seconds = 0;

  bool Passed(int passesAsked) const {
    return passes == passesAsked && writersFailed == 0 && missing == 0 && differing == 0 && checked > 0;
  }
};

// passes verifying passes of threads writers each on path (which must not
// exist; each pass removes it at its end).
StressResult RunStressPasses(const std::string& path, int threads, int passes, Progress* progress);

// A fresh file name in the system's folder for temporary files.
std::string DefaultStressPath();

}  // namespace aotool

#endif  // AOSTORE_TOOLS_STRESS_RUN_H
