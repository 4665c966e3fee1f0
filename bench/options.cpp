#include "options.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace bench {
namespace {

const char* const kUsage =
    "usage: aostore-bench [options]\n"
    "Compares aostore with SQLite, a directory of files and plain file I/O on the same\n"
    "workloads, verifying every byte read. Prints medians and aostore's ratios to each peer.\n"
    "  --scale F        multiply counts and sizes by F (e.g. 0.01 for a quick run; default 1)\n"
    "  --runs N         runs per workload and backend; medians are reported (default 3)\n"
    "  --json           print JSON instead of the table\n"
    "  --dir PATH       where to make the containers (default: a new folder in $TMPDIR or /tmp)\n"
    "  --only IDS       comma-separated workloads: W1 W2 W3 W4 W5 W6 W1x10 W4x10 PF PFx10\n"
    "  --backends LIST  comma-separated: aostore,sqlite,fsdir,rawfile,rawfile40\n"
    "  --min-block N    aostore's minimum block capacity in bytes (default 0)\n";

std::vector<std::string> SplitList(const std::string& text) {
  std::vector<std::string> items;
  std::stringstream stream(text);
  for (std::string item; std::getline(stream, item, ',');)
    if (!item.empty()) items.push_back(item);
  return items;
}

bool ParseDouble(const char* text, double& value) {
  char* end = nullptr;
  value = std::strtod(text, &end);
  return end != text && *end == '\0';
}

bool ParseUnsigned(const char* text, unsigned long long& value) {
  char* end = nullptr;
  value = std::strtoull(text, &end, 10);
  return end != text && *end == '\0' && text[0] != '-';
}

}  // namespace

std::optional<Options> ParseOptions(int argc, char** argv, int& exitCode) {
  Options options;
  for (int i = 0; i < argc; ++i) {
    if (i > 0) options.command += ' ';
    options.command += argv[i];
  }
  auto fail = [&](const std::string& message) {
    std::fprintf(stderr, "aostore-bench: %s\n%s", message.c_str(), kUsage);
    exitCode = 2;
    return std::nullopt;
  };
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      exitCode = 0;
      return std::nullopt;
    }
    if (arg == "--json") {
      options.json = true;
      continue;
    }
    if (i + 1 >= argc) return fail("missing value after " + arg);
    const char* value = argv[++i];
    unsigned long long number = 0;
    if (arg == "--scale") {
      if (!ParseDouble(value, options.scale) || !(options.scale > 0)) return fail("bad --scale");
    } else if (arg == "--runs") {
      if (!ParseUnsigned(value, number) || number < 1 || number > 1000) return fail("bad --runs");
      options.runs = static_cast<int>(number);
    } else if (arg == "--dir") {
      options.dir = value;
    } else if (arg == "--only") {
      options.only = SplitList(value);
    } else if (arg == "--backends") {
      options.backends = SplitList(value);
    } else if (arg == "--min-block") {
      if (!ParseUnsigned(value, number) || number > 0xFFFFFFFFull) return fail("bad --min-block");
      options.minBlockCapacity = static_cast<std::uint32_t>(number);
    } else {
      return fail("unknown option " + arg);
    }
  }
  return options;
}

}  // namespace bench
