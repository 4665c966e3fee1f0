// Timing of workload phases. A phase's clock runs only around the backend's
// own work: checking the bytes read is paused out, so that it does not make
// a slow backend look closer to a fast one.
#ifndef AOSTORE_BENCH_MEASURE_H
#define AOSTORE_BENCH_MEASURE_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

class Stopwatch {
 public:
  void Start() { started_ = Clock::now(); }
  void Stop() { total_ += Clock::now() - started_; }
  double Seconds() const { return std::chrono::duration<double>(total_).count(); }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point started_{};
  Clock::duration total_{};
};

// One timed phase of one workload on one backend in one run.
struct Sample {
  std::string workload;  // "W2"
  std::string phase;     // "write"
  double seconds = 0;
  std::uint64_t bytes = 0;  // payload bytes moved
  std::uint64_t items = 0;  // streams, children or operations
};

using Samples = std::vector<Sample>;

}  // namespace bench

#endif  // AOSTORE_BENCH_MEASURE_H
