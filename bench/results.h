// What the runs measured, and what follows from it: medians over the runs,
// the ratios of aostore to each peer within the same run, the growth of the
// time per stream at ten times the count, and the targets.
#ifndef AOSTORE_BENCH_RESULTS_H
#define AOSTORE_BENCH_RESULTS_H

#include <optional>
#include <string>
#include <vector>

#include "measure.h"

namespace bench {

inline constexpr const char* kSubject = "aostore";

struct Failure {
  int run = 0;
  std::string workload;
  std::string backend;
  std::string message;
};

// A row of the results: one phase of one workload.
struct PhaseKey {
  std::string workload;
  std::string phase;
  bool operator==(const PhaseKey&) const = default;
};

// Throughput is reported in MiB/s for bulk workloads, operations per second
// for the ones made of many small operations.
enum class Unit { kMibPerSecond, kOpsPerSecond };
Unit UnitOf(const std::string& workload);
const char* UnitName(Unit unit);

struct Target {
  std::string name;
  std::optional<double> value;  // absent: not measured (a backend failed or was left out)
  double threshold = 0;
  bool strict = false;     // value must exceed the threshold (else reach it)
  bool upperBound = false;  // value must stay at or below the threshold
  bool Met() const;
};

// The scaling runs: a base workload and its ten-times counterpart.
struct ScalingPair {
  std::string base;
  std::string scaled;
};
std::vector<ScalingPair> ScalingPairs();

class Results {
 public:
  void Add(int run, const std::string& backend, const Sample& sample);
  void AddFailure(Failure failure);

  const std::vector<Failure>& Failures() const { return failures_; }
  // Every measured phase, in the order first measured.
  std::vector<PhaseKey> Phases() const;
  // Per-run samples of one phase on one backend (absent runs are skipped).
  std::vector<Sample> RunsOf(const PhaseKey& key, const std::string& backend) const;

  // Median throughput in the phase's unit.
  std::optional<double> MedianThroughput(const PhaseKey& key, const std::string& backend) const;
  // Median over runs of the subject's speed divided by the peer's, each run's
  // ratio taken from that run's own measurements.
  std::optional<double> RatioToPeer(const PhaseKey& key, const std::string& peer) const;
  // Median time per item (stream, child or operation) in microseconds.
  std::optional<double> MedianMicrosPerItem(const PhaseKey& key, const std::string& backend) const;
  // Median over runs of time per item at the scaled count divided by that at
  // the base count.
  std::optional<double> ScalingRatio(const ScalingPair& pair, const std::string& phase, const std::string& backend) const;

  std::vector<Target> Targets() const;

 private:
  struct Entry {
    int run;
    std::string backend;
    Sample sample;
  };
  std::optional<Sample> Find(int run, const PhaseKey& key, const std::string& backend) const;
  int Runs() const;

  std::vector<Entry> entries_;
  std::vector<Failure> failures_;
};

double Median(std::vector<double> values);

}  // namespace bench

#endif  // AOSTORE_BENCH_RESULTS_H
