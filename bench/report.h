// The results as a table for people and as JSON for machines.
#ifndef AOSTORE_BENCH_REPORT_H
#define AOSTORE_BENCH_REPORT_H

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "results.h"
#include "workloads.h"

namespace bench {

// Everything the numbers depend on besides the code itself.
struct RunInfo {
  std::string date;        // UTC, ISO 8601
  std::string command;     // the command line
  double scale = 1;
  int runs = 0;
  std::string dir;
  std::string filesystem;  // of dir
  std::string machine;     // CPUs, kernel
  std::vector<std::pair<std::string, std::string>> backends;  // name, configuration
  std::vector<Report> workloads;
};

void PrintTable(std::FILE* out, const RunInfo& info, const Results& results);
void PrintJson(std::FILE* out, const RunInfo& info, const Results& results);

}  // namespace bench

#endif  // AOSTORE_BENCH_REPORT_H
