// Command line of aostore-bench.
#ifndef AOSTORE_BENCH_OPTIONS_H
#define AOSTORE_BENCH_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bench {

struct Options {
  double scale = 1;
  int runs = 3;
  bool json = false;
  std::string dir;                    // empty: a new folder under $TMPDIR or /tmp
  std::vector<std::string> only;      // workload ids; empty: all
  std::vector<std::string> backends;  // empty: all
  std::uint32_t minBlockCapacity = 0;
  std::string command;
};

// Parses argv; prints usage or the error and returns nothing when the program
// should stop (exitCode tells how).
std::optional<Options> ParseOptions(int argc, char** argv, int& exitCode);

}  // namespace bench

#endif  // AOSTORE_BENCH_OPTIONS_H
