// aostore-bench: aostore against SQLite, a directory of files and plain file
// I/O, on the same workloads with the same bytes, in the same run.
#include <sys/statfs.h>
#include <sys/utsname.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backend.h"
#include "options.h"
#include "payload.h"
#include "report.h"
#include "results.h"
#include "workloads.h"

namespace bench {
namespace {

std::string UtcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &parts);
  return text;
}

std::string Machine() {
  utsname names{};
  uname(&names);
  return std::to_string(std::thread::hardware_concurrency()) + " CPUs, " + names.sysname + " " + names.release;
}

// The file system matters: on tmpfs every backend measures memory copies.
std::string FileSystemOf(const std::string& dir) {
  struct statfs info {};
  if (statfs(dir.c_str(), &info) != 0) return "unknown file system";
  switch (static_cast<unsigned long>(info.f_type)) {
    case 0xEF53: return "ext4";
    case 0x58465342: return "xfs";
    case 0x9123683E: return "btrfs";
    case 0x01021994: return "tmpfs: memory only";
    case 0x794C7630: return "overlayfs";
    default: {
      char text[40];
      std::snprintf(text, sizeof text, "file system 0x%lx", static_cast<unsigned long>(info.f_type));
      return text;
    }
  }
}

// The folder the containers are made in; removed at the end if made here.
class DataDir {
 public:
  explicit DataDir(const std::string& requested) {
    if (!requested.empty()) {
      std::filesystem::create_directories(requested);
      path_ = requested;
      return;
    }
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/aostore-bench-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a folder in " + pattern);
    path_ = pattern;
    owned_ = true;
  }
  ~DataDir() {
    std::error_code ignored;
    if (owned_) std::filesystem::remove_all(path_, ignored);
  }
  DataDir(const DataDir&) = delete;
  DataDir& operator=(const DataDir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool owned_ = false;
};

bool Selected(const std::vector<std::string>& wanted, const std::string& name) {
  return wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end();
}

bool WorkloadSelected(const Options& options, const Workload& workload) {
  for (const auto& report : workload.reports)
    if (Selected(options.only, report.id)) return true;
  return false;
}

int Unknown(const char* what, const std::string& name) {
  std::fprintf(stderr, "aostore-bench: unknown %s %s (see --help)\n", what, name.c_str());
  return 2;
}

int Main(int argc, char** argv) {
  int exitCode = 0;
  const auto options = ParseOptions(argc, argv, exitCode);
  if (!options) return exitCode;

  std::vector<std::unique_ptr<Backend>> all;
  all.push_back(MakeAostoreBackend(options->minBlockCapacity));
  all.push_back(MakeSqliteBackend());
  all.push_back(MakeFsdirBackend());
  all.push_back(MakeRawfileBackend(0));
  // A 64-bit block header is 40 bytes: the data behind it starts that far
  // past a page boundary, which the kernel makes every transfer pay for.
  all.push_back(MakeRawfileBackend(40));
  std::vector<Backend*> backends;
  for (const auto& backend : all)
    if (Selected(options->backends, backend->Name())) backends.push_back(backend.get());

  const Sizes sizes = Sizes::ForScale(options->scale);
  const std::vector<Workload> known = AllWorkloads(sizes);
  for (const auto& id : options->only) {
    const bool exists = std::any_of(known.begin(), known.end(), [&](const Workload& workload) {
      return std::any_of(workload.reports.begin(), workload.reports.end(),
                         [&](const Report& report) { return report.id == id; });
    });
    if (!exists) return Unknown("workload", id);
  }
  for (const auto& name : options->backends)
    if (std::none_of(all.begin(), all.end(), [&](const auto& backend) { return backend->Name() == name; }))
      return Unknown("backend", name);
  std::vector<Workload> workloads;
  for (const auto& workload : known)
    if (WorkloadSelected(*options, workload)) workloads.push_back(workload);
  if (backends.empty() || workloads.empty()) {
    std::fprintf(stderr, "aostore-bench: nothing selected (see --help)\n");
    return 2;
  }

  DataDir dir(options->dir);
  const Payload payload;
  const Context context{payload, dir.path(), sizes};
  RunInfo info{UtcNow(), options->command, options->scale, options->runs, dir.path(), FileSystemOf(dir.path()),
               Machine(), {}, {}};
  for (const Backend* backend : backends) info.backends.emplace_back(backend->Name(), backend->Describe());
  for (const auto& workload : workloads)
    for (const auto& report : workload.reports)
      info.workloads.push_back(report);

  Results results;
  for (int run = 0; run < options->runs; ++run) {
    for (const auto& workload : workloads) {
      // Each run starts with a different backend, so that none is always the
      // one that follows another's clean-up.
      for (std::size_t i = 0; i < backends.size(); ++i) {
        Backend& backend = *backends[(i + static_cast<std::size_t>(run)) % backends.size()];
        std::fprintf(stderr, "run %d/%d  %-6s %-8s", run + 1, options->runs, workload.id.c_str(), backend.Name().c_str());
        const auto started = std::chrono::steady_clock::now();
        try {
          const Samples samples = workload.run(backend, context);
          std::fprintf(stderr, " %7.2f s  (",
                       std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
          for (const auto& sample : samples) {
            results.Add(run, backend.Name(), sample);
            std::fprintf(stderr, " %s %s %.3f s", sample.workload.c_str(), sample.phase.c_str(), sample.seconds);
          }
          std::fprintf(stderr, " )\n");
        } catch (const std::exception& error) {
          std::fprintf(stderr, " FAILED: %s\n", error.what());
          results.AddFailure({run, workload.id, backend.Name(), error.what()});
          backend.Remove(ContainerPath(context, backend, workload.id));
        }
      }
    }
  }

  if (options->json) PrintJson(stdout, info, results);
  else PrintTable(stdout, info, results);
  return results.Failures().empty() ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  try {
    return bench::Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "aostore-bench: %s\n", error.what());
    return 1;
  }
}
