// demo: a tour of the tool on the project's own source tree, in a folder of
// its own: import, inspect, typed entries, a recorded session replayed into
// a copy, checks, an export compared with the source, and a stress pass.
#include <chrono>
#include <filesystem>
#include <functional>
#include <random>
#include <sstream>

#include "aostore/check.h"
#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "demo_edits.h"
#include "host_compare.h"
#include "stress_run.h"
#include "text.h"
#include "transfer.h"

namespace fs = std::filesystem;

namespace aotool {
namespace {

constexpr size_t kListingLines = 14;
constexpr int kStressThreads = 16;

// The project's own tree: where the build says it is, else the nearest
// folder upward from here that holds the library's headers.
fs::path SourceTree() {
  std::error_code error;
#ifdef AOSTORE_SOURCE_DIR
  if (fs::exists(fs::path(AOSTORE_SOURCE_DIR) / "include" / "aostore" / "aostore.h", error)) return AOSTORE_SOURCE_DIR;
#endif
  for (fs::path at = fs::current_path(error); !at.empty(); at = at.parent_path()) {
    if (fs::exists(at / "include" / "aostore" / "aostore.h", error)) return at;
    if (at == at.parent_path()) break;
  }
  Fail(Exit::kHostFile, "cannot find the aostore source tree to import (run the demo from inside it)");
}

// Hidden files and build output stay out of the container.
bool TakeFromSource(const std::string& name, bool directory) {
  return !name.empty() && name[0] != '.' && !(directory && name.rfind("build", 0) == 0);
}

std::string Indented(const std::string& text, size_t maxLines) {
  std::istringstream lines(text);
  std::string line, result;
  size_t count = 0, total = 0;
  while (std::getline(lines, line)) {
    if (count < maxLines) {
      result += "  " + line + "\n";
      ++count;
    }
    ++total;
  }
  if (total > count) result += "  ... (" + std::to_string(total - count) + " more)\n";
  return result;
}

class Tour {
 public:
  explicit Tour(std::ostream& out) : out_(out) {}

  // Runs one step under a numbered heading and notes its time; a step that
  // returns false marks the tour as failed.
  void Step(const std::string& label, const std::string& title, const std::function<bool()>& body) {
    out_ << "\n" << ++number_ << ". " << title << "\n";
    const auto start = std::chrono::steady_clock::now();
    const bool passed = body();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    timings_.push_back({label, seconds, passed});
    passed_ &= passed;
    out_.flush();
  }

  void Summary() {
    out_ << "\nsummary\n";
    double total = 0;
    for (const Timing& timing : timings_) {
      char line[128];
      std::snprintf(line, sizeof line, "  %-18s %10s  %s\n", timing.label.c_str(),
                    FormatElapsed(timing.seconds).c_str(), timing.passed ? "ok" : "FAILED");
      out_ << line;
      total += timing.seconds;
    }
    char line[128];
    std::snprintf(line, sizeof line, "  %-18s %10s\n", "total", FormatElapsed(total).c_str());
    out_ << line << (passed_ ? "all steps passed\n" : "some steps FAILED\n");
  }

  bool passed() const { return passed_; }

 private:
  struct Timing {
    std::string label;
    double seconds;
    bool passed;
  };
  std::ostream& out_;
  int number_ = 0;
  std::vector<Timing> timings_;
  bool passed_ = true;
};

bool CheckLine(std::ostream& out, const std::string& file) {
  const ao::CheckReport report = ao::CheckContainer(file.c_str());
  const ao::ContainerFacts& f = report.facts;
  out << "  " << file << ": " << (report.Clean() ? "clean" : std::to_string(report.problemCount) + " problems") << " ("
      << f.tables << " root table" << (f.tables == 1 ? "" : "s") << ", " << f.folders << " folders, " << f.streams
      << " streams, " << f.blocks << " blocks, " << FormatBytes(f.fileSize) << ")\n";
  return report.Clean();
}

}  // namespace

int RunDemo(const Words& words, std::ostream& out) {
  const Arguments args(words, "demo");
  args.ExpectCount(0, 1);
  const fs::path source = SourceTree();
  std::error_code error;
  const bool ownFolder = args.count() == 0;
  std::random_device random;
  const fs::path dir =
      ownFolder ? fs::temp_directory_path() / ("aostore-demo-" + std::to_string(random())) : fs::path(args[0]);
  fs::create_directories(dir, error);
  if (!fs::is_directory(dir, error)) Fail(Exit::kHostFile, dir.string() + ": cannot create the folder");
  const std::string file = (dir / "source.aostore").string();
  const std::string replica = (dir / "replica.aostore").string();
  const std::string exported = (dir / "export").string();
  fs::remove_all(exported, error);  // the comparison must see only this run's files

  out << "aostore demo: the project's own source tree in a container\n"
      << "  source   " << source.string() << "\n  folder   " << dir.string() << "\n";
  Tour tour(out);
  tour.Step("import", "import the source tree into " + file, [&] {
    Container container = Container::Create(file, true, true);
    const TransferCounts counts = ImportTree(container, SurveyHostTree(source.string(), TakeFromSource), {"source"});
    out << "  " << counts.files << " files (" << FormatBytes(counts.bytes) << ") in " << counts.folders
        << " folders, under source/\n";
    return counts.files > 0;
  });
  tour.Step("info", "aostore info", [&] {
    std::ostringstream text;
    RunInfo({file}, text);
    out << Indented(text.str(), 100);
    return true;
  });
  tour.Step("ls -R", "aostore ls -lR source (an excerpt)", [&] {
    std::ostringstream text;
    RunLs({file, "source", "-l", "-R"}, text);
    out << Indented(text.str(), kListingLines);
    return true;
  });
  tour.Step("typed entries", "typed entries written and read back", [&] { return WriteTypedEntries(file, out); });
  tour.Step("record and replay", "a recorded session of edits replayed into a copy", [&] {
    fs::copy_file(file, replica, fs::copy_options::overwrite_existing);
    return RecordAndReplay(file, replica, out);
  });
  tour.Step("check", "aostore check on both containers", [&] {
    const bool first = CheckLine(out, file);
    const bool second = CheckLine(out, replica);
    return first && second;
  });
  tour.Step("export and compare", "export source/ and compare it with the source tree", [&] {
    const Container container = Container::Open(file, Access::kRead);
    const TransferCounts counts = ExportTree(container, {"source"}, exported, {}, out).counts;
    const HostComparison comparison = CompareHostTrees(source.string(), exported, TakeFromSource);
    out << "  exported " << counts.files << " files to " << exported << "\n  "
        << (comparison.difference.empty()
                ? std::to_string(comparison.files) + " files, " + FormatBytes(comparison.bytes) +
                      ": identical to the source, byte for byte"
                : "DIFFERENT: " + comparison.difference)
        << '\n';
    return comparison.difference.empty();
  });
  tour.Step("stress", "a verifying stress pass (" + std::to_string(kStressThreads) + " threads at once)", [&] {
    const StressResult result = RunStressPasses((dir / "stress.aostore").string(), kStressThreads, 1, nullptr);
    out << "  " << result.checked << " streams of 1 MiB written concurrently and read back: " << result.missing
        << " missing, " << result.differing << " differing, " << result.writersFailed << " writers failed\n";
    for (const std::string& problem : result.problems) out << "  " << problem << '\n';
    return result.Passed(1);
  });
  tour.Summary();
  if (ownFolder) fs::remove_all(dir, error);
  if (!tour.passed()) Fail(Exit::kVerifyFailed, "the demo found differences (see above)");
  return 0;
}

}  // namespace aotool
