#include "results.h"

#include <algorithm>
#include <cstdio>

namespace bench {
namespace {

double Throughput(const Sample& sample, Unit unit) {
  if (sample.seconds <= 0) return 0;
  return unit == Unit::kMibPerSecond ? static_cast<double>(sample.bytes) / sample.seconds / (1 << 20)
                                     : static_cast<double>(sample.items) / sample.seconds;
}

double MicrosPerItem(const Sample& sample) {
  return sample.items == 0 ? 0 : sample.seconds * 1e6 / static_cast<double>(sample.items);
}

std::optional<double> MedianOf(const std::vector<double>& values) {
  if (values.empty()) return std::nullopt;
  return Median(values);
}

std::string Fixed(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", value);
  return text;
}

}  // namespace

Unit UnitOf(const std::string& workload) {
  const bool manySmall = workload.rfind("W4", 0) == 0 || workload == "W5" || workload.rfind("PF", 0) == 0;
  return manySmall ? Unit::kOpsPerSecond : Unit::kMibPerSecond;
}

const char* UnitName(Unit unit) { return unit == Unit::kMibPerSecond ? "MiB/s" : "ops/s"; }

bool Target::Met() const {
  if (!value) return false;
  if (upperBound) return *value <= threshold;
  return strict ? *value > threshold : *value >= threshold;
}

std::vector<ScalingPair> ScalingPairs() { return {{"W1", "W1x10"}, {"W4", "W4x10"}, {"PF", "PFx10"}}; }

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

void Results::Add(int run, const std::string& backend, const Sample& sample) {
  entries_.push_back({run, backend, sample});
}

void Results::AddFailure(Failure failure) { failures_.push_back(std::move(failure)); }

std::vector<PhaseKey> Results::Phases() const {
  std::vector<PhaseKey> keys;
  for (const auto& entry : entries_) {
    const PhaseKey key{entry.sample.workload, entry.sample.phase};
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
  }
  return keys;
}

std::vector<Sample> Results::RunsOf(const PhaseKey& key, const std::string& backend) const {
  std::vector<Sample> samples;
  for (const auto& entry : entries_)
    if (entry.backend == backend && entry.sample.workload == key.workload && entry.sample.phase == key.phase)
      samples.push_back(entry.sample);
  return samples;
}

std::optional<Sample> Results::Find(int run, const PhaseKey& key, const std::string& backend) const {
  for (const auto& entry : entries_)
    if (entry.run == run && entry.backend == backend && entry.sample.workload == key.workload &&
        entry.sample.phase == key.phase)
      return entry.sample;
  return std::nullopt;
}

int Results::Runs() const {
  int runs = 0;
  for (const auto& entry : entries_) runs = std::max(runs, entry.run + 1);
  return runs;
}

std::optional<double> Results::MedianThroughput(const PhaseKey& key, const std::string& backend) const {
  std::vector<double> values;
  for (const auto& sample : RunsOf(key, backend)) values.push_back(Throughput(sample, UnitOf(key.workload)));
  return MedianOf(values);
}

std::optional<double> Results::RatioToPeer(const PhaseKey& key, const std::string& peer) const {
  std::vector<double> ratios;
  for (int run = 0; run < Runs(); ++run) {
    const auto subject = Find(run, key, kSubject);
    const auto other = Find(run, key, peer);
    if (subject && other && subject->seconds > 0) ratios.push_back(other->seconds / subject->seconds);
  }
  return MedianOf(ratios);
}

std::optional<double> Results::MedianMicrosPerItem(const PhaseKey& key, const std::string& backend) const {
  std::vector<double> values;
  for (const auto& sample : RunsOf(key, backend)) values.push_back(MicrosPerItem(sample));
  return MedianOf(values);
}

std::optional<double> Results::ScalingRatio(const ScalingPair& pair, const std::string& phase,
                                            const std::string& backend) const {
  std::vector<double> ratios;
  for (int run = 0; run < Runs(); ++run) {
    const auto base = Find(run, {pair.base, phase}, backend);
    const auto scaled = Find(run, {pair.scaled, phase}, backend);
    if (base && scaled && MicrosPerItem(*base) > 0) ratios.push_back(MicrosPerItem(*scaled) / MicrosPerItem(*base));
  }
  return MedianOf(ratios);
}

std::vector<Target> Results::Targets() const {
  const std::vector<PhaseKey> phases = Phases();
  auto measured = [&](const PhaseKey& key) { return std::find(phases.begin(), phases.end(), key) != phases.end(); };
  std::vector<Target> targets;
  auto speed = [&](const PhaseKey& key, const std::string& peer, double threshold, bool strict) {
    if (RunsOf(key, peer).empty()) return;  // the peer was left out
    targets.push_back({key.workload + " " + key.phase + ": aostore/" + peer + (strict ? " > " : " >= ") + Fixed(threshold),
                       RatioToPeer(key, peer), threshold, strict, false});
  };
  for (const auto& key : phases) {
    const std::string& w = key.workload;
    // Opening and closing a container is shown for every backend but has no
    // target of its own.
    if (key.phase == "open+close") continue;
    if (w == "W2") speed(key, "rawfile", key.phase == "write" ? 0.85 : 0.90, false);
    if (w == "W5") speed(key, "rawfile", 0.80, false);
    if (w == "W1" || w == "W3" || w == "W4" || w == "W6") {
      speed(key, "sqlite", 2.0, false);
      speed(key, "fsdir", 1.0, true);
    }
  }
  for (const auto& pair : ScalingPairs()) {
    for (const auto& key : phases) {
      if (key.workload != pair.base || key.phase == "open+close" || !measured({pair.scaled, key.phase})) continue;
      // A folder's index is judged on creating and finding together.
      if (pair.base == "PF" && key.phase != "create+find") continue;
      targets.push_back({pair.scaled + " " + key.phase + ": aostore time per item, 10x / base <= 1.50",
                         ScalingRatio(pair, key.phase, kSubject), 1.5, false, true});
    }
  }
  return targets;
}

}  // namespace bench
