#include "report.h"

#include <optional>

namespace bench {
namespace {

std::string Number(std::optional<double> value, int decimals = -1) {
  if (!value) return "-";
  const double v = *value;
  if (decimals < 0) decimals = v >= 1000 ? 0 : v >= 10 ? 1 : 2;
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", decimals, v);
  return text;
}

std::vector<std::string> Peers(const RunInfo& info) {
  std::vector<std::string> peers;
  for (const auto& backend : info.backends)
    if (backend.first != kSubject) peers.push_back(backend.first);
  return peers;
}

void PrintHeader(std::FILE* out, const RunInfo& info) {
  std::fprintf(out, "aostore-bench  %s  scale %g  %d run%s (medians)\n", info.date.c_str(), info.scale, info.runs,
               info.runs == 1 ? "" : "s");
  std::fprintf(out, "command: %s\n", info.command.c_str());
  std::fprintf(out, "machine: %s; data in %s (%s), warm page cache, no backend syncs to the device\n",
               info.machine.c_str(), info.dir.c_str(), info.filesystem.c_str());
  std::fprintf(out, "\nbackends\n");
  for (const auto& [name, description] : info.backends) std::fprintf(out, "  %-9s %s\n", name.c_str(), description.c_str());
  std::fprintf(out, "\nworkloads (every byte read is checked; ratios are aostore's speed / the peer's, per run, median)\n");
  for (const auto& workload : info.workloads)
    std::fprintf(out, "  %-6s %s\n", workload.id.c_str(), workload.title.c_str());
}

void PrintThroughput(std::FILE* out, const RunInfo& info, const Results& results) {
  const auto peers = Peers(info);
  std::fprintf(out, "\n%-16s %-6s", "throughput", "unit");
  for (const auto& backend : info.backends) std::fprintf(out, " %9s", backend.first.c_str());
  std::fprintf(out, "  |");
  for (const auto& peer : peers) std::fprintf(out, " %12s", ("ao/" + peer).c_str());
  std::fprintf(out, "\n");
  for (const auto& key : results.Phases()) {
    std::fprintf(out, "%-16s %-6s", (key.workload + " " + key.phase).c_str(), UnitName(UnitOf(key.workload)));
    for (const auto& backend : info.backends)
      std::fprintf(out, " %9s", Number(results.MedianThroughput(key, backend.first)).c_str());
    std::fprintf(out, "  |");
    for (const auto& peer : peers) std::fprintf(out, " %12s", Number(results.RatioToPeer(key, peer), 2).c_str());
    std::fprintf(out, "\n");
  }
}

void PrintScaling(std::FILE* out, const RunInfo& info, const Results& results) {
  bool header = false;
  for (const auto& pair : ScalingPairs()) {
    for (const auto& key : results.Phases()) {
      if (key.workload != pair.base) continue;
      const PhaseKey scaled{pair.scaled, key.phase};
      if (!results.ScalingRatio(pair, key.phase, kSubject) && !results.MedianMicrosPerItem(scaled, kSubject)) continue;
      if (!header) {
        std::fprintf(out, "\n%-23s", "time per item (us)");
        for (const auto& backend : info.backends) std::fprintf(out, " %9s", backend.first.c_str());
        std::fprintf(out, "\n");
        header = true;
      }
      std::fprintf(out, "%-23s", (key.workload + " " + key.phase).c_str());
      for (const auto& backend : info.backends)
        std::fprintf(out, " %9s", Number(results.MedianMicrosPerItem(key, backend.first)).c_str());
      std::fprintf(out, "\n%-23s", (scaled.workload + " " + key.phase).c_str());
      for (const auto& backend : info.backends)
        std::fprintf(out, " %9s", Number(results.MedianMicrosPerItem(scaled, backend.first)).c_str());
      std::fprintf(out, "\n%-23s", "  10x / base");
      for (const auto& backend : info.backends)
        std::fprintf(out, " %9s", Number(results.ScalingRatio(pair, key.phase, backend.first), 2).c_str());
      std::fprintf(out, "\n");
    }
  }
}

void PrintTargets(std::FILE* out, const Results& results) {
  const auto targets = results.Targets();
  if (targets.empty()) return;
  std::fprintf(out, "\ntargets\n");
  for (const auto& target : targets) {
    const char* verdict = !target.value ? "n/a   " : target.Met() ? "met   " : "MISSED";
    std::fprintf(out, "  %s %-62s %s\n", verdict, target.name.c_str(), Number(target.value, 2).c_str());
  }
}

void PrintFailures(std::FILE* out, const Results& results) {
  if (results.Failures().empty()) return;
  std::fprintf(out, "\nFAILURES\n");
  for (const auto& failure : results.Failures())
    std::fprintf(out, "  run %d %s %s: %s\n", failure.run + 1, failure.workload.c_str(), failure.backend.c_str(),
                 failure.message.c_str());
}

// A minimal JSON writer: objects and arrays written in order, commas handled.
class Json {
 public:
  explicit Json(std::FILE* out) : out_(out) {}
  void Open(char bracket) {
    Separate();
    std::fputc(bracket, out_);
    first_ = true;
  }
  void Close(char bracket) {
    std::fputc(bracket, out_);
    first_ = false;
  }
  void Key(const char* key) {
    Separate();
    String(key);
    std::fputc(':', out_);
    first_ = true;
  }
  void Value(const std::string& text) {
    Separate();
    String(text);
  }
  void Value(std::optional<double> number) {
    Separate();
    if (number) std::fprintf(out_, "%.6g", *number);
    else std::fputs("null", out_);
  }
  void Value(bool flag) {
    Separate();
    std::fputs(flag ? "true" : "false", out_);
  }
  template <typename T>
  void Field(const char* key, const T& value) {
    Key(key);
    Value(value);
  }

 private:
  void Separate() {
    if (!first_) std::fputc(',', out_);
    first_ = false;
  }
  void String(const std::string& text) {
    std::fputc('"', out_);
    for (const char c : text) {
      if (c == '"' || c == '\\') std::fprintf(out_, "\\%c", c);
      else if (static_cast<unsigned char>(c) < 0x20) std::fprintf(out_, "\\u%04x", c);
      else std::fputc(c, out_);
    }
    std::fputc('"', out_);
  }

  std::FILE* out_;
  bool first_ = true;
};

}  // namespace

void PrintTable(std::FILE* out, const RunInfo& info, const Results& results) {
  PrintHeader(out, info);
  PrintThroughput(out, info, results);
  PrintScaling(out, info, results);
  PrintTargets(out, results);
  PrintFailures(out, results);
}

void PrintJson(std::FILE* out, const RunInfo& info, const Results& results) {
  Json json(out);
  json.Open('{');
  json.Field("date", info.date);
  json.Field("command", info.command);
  json.Field("scale", std::optional<double>(info.scale));
  json.Field("runs", std::optional<double>(info.runs));
  json.Field("dir", info.dir);
  json.Field("filesystem", info.filesystem);
  json.Field("machine", info.machine);
  json.Key("backends");
  json.Open('{');
  for (const auto& [name, description] : info.backends) json.Field(name.c_str(), description);
  json.Close('}');
  json.Key("workloads");
  json.Open('{');
  for (const auto& workload : info.workloads) json.Field(workload.id.c_str(), workload.title);
  json.Close('}');

  json.Key("results");
  json.Open('[');
  for (const auto& key : results.Phases()) {
    for (const auto& backend : info.backends) {
      json.Open('{');
      json.Field("workload", key.workload);
      json.Field("phase", key.phase);
      json.Field("backend", backend.first);
      json.Field("unit", std::string(UnitName(UnitOf(key.workload))));
      json.Field("median", results.MedianThroughput(key, backend.first));
      json.Field("median_us_per_item", results.MedianMicrosPerItem(key, backend.first));
      json.Key("seconds");
      json.Open('[');
      for (const auto& sample : results.RunsOf(key, backend.first)) json.Value(std::optional<double>(sample.seconds));
      json.Close(']');
      if (backend.first != kSubject) json.Field("aostore_ratio", results.RatioToPeer(key, backend.first));
      json.Close('}');
    }
  }
  json.Close(']');

  json.Key("scaling");
  json.Open('[');
  for (const auto& pair : ScalingPairs()) {
    for (const auto& key : results.Phases()) {
      if (key.workload != pair.base) continue;
      for (const auto& backend : info.backends) {
        json.Open('{');
        json.Field("workload", pair.scaled);
        json.Field("phase", key.phase);
        json.Field("backend", backend.first);
        json.Field("base_us_per_item", results.MedianMicrosPerItem(key, backend.first));
        json.Field("scaled_us_per_item", results.MedianMicrosPerItem({pair.scaled, key.phase}, backend.first));
        json.Field("ratio", results.ScalingRatio(pair, key.phase, backend.first));
        json.Close('}');
      }
    }
  }
  json.Close(']');

  json.Key("targets");
  json.Open('[');
  for (const auto& target : results.Targets()) {
    json.Open('{');
    json.Field("name", target.name);
    json.Field("value", target.value);
    json.Field("threshold", std::optional<double>(target.threshold));
    json.Field("met", target.Met());
    json.Close('}');
  }
  json.Close(']');

  json.Key("failures");
  json.Open('[');
  for (const auto& failure : results.Failures()) {
    json.Open('{');
    json.Field("run", std::optional<double>(failure.run + 1));
    json.Field("workload", failure.workload);
    json.Field("backend", failure.backend);
    json.Field("message", failure.message);
    json.Close('}');
  }
  json.Close(']');
  json.Close('}');
  std::fputc('\n', out);
}

}  // namespace bench
