#include "stress_run.h"

#include <chrono>
#include <filesystem>
#include <random>

#include "aostore/stress.h"

namespace aotool {

StressResult RunStressPasses(const std::string& path, int threads, int passes, Progress* progress) {
  StressResult result;
  const auto start = std::chrono::steady_clock::now();
  for (int pass = 0; pass < passes; ++pass) {
    // One pass at a time, so that the bar moves between passes.
    const CTestVastrel test(path.c_str(), 1, threads, 0, true);
    result.passes += test.GetPassesRun();
    result.writersFailed += test.GetWritersFailed();
    result.checked += test.GetStreamsChecked();
    result.missing += test.GetStreamsMissing();
    result.differing += test.GetStreamsDiffering();
    // Each run is one pass, so the test numbers every problem "pass 1".
    for (const std::string& problem : test.GetProblems()) {
      const std::string own = "pass 1: ";
      result.problems.push_back("pass " + std::to_string(pass + 1) + ": " +
                                (problem.rfind(own, 0) == 0 ? problem.substr(own.size()) : problem));
    }
    if (progress != nullptr) progress->Advance(1);
  }
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

std::string DefaultStressPath() {
  std::random_device random;
  return (std::filesystem::temp_directory_path() / ("aostore-stress-" + std::to_string(random()) + ".dat")).string();
}

}  // namespace aotool
