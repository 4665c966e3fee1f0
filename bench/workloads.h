// The workloads: what is written, in which order, and what is timed. Every
// backend gets the same operations with the same bytes, and every byte read
// is checked against what was written.
#ifndef AOSTORE_BENCH_WORKLOADS_H
#define AOSTORE_BENCH_WORKLOADS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "backend.h"
#include "measure.h"
#include "payload.h"

namespace bench {

// Transfer unit of the streaming workloads.
inline constexpr std::size_t kChunk = 16 * 1024;

// Counts and sizes at a given scale (1 = the sizes the targets are set for).
struct Sizes {
  int w1Folders = 100;
  int w1PerFolder = 100;
  std::size_t w1StreamBytes = 4096;
  std::uint64_t w2Bytes = 256ull << 20;
  int w5Reads = 100000;
  std::size_t w5ReadBytes = 4096;
  int w3Streams = 64;
  std::uint64_t w3Bytes = 4ull << 20;
  int w4Streams = 100000;
  std::size_t w4StreamBytes = 8;
  int w6Threads = 2;
  int w6PerThread = 64;
  std::uint64_t w6Bytes = 1ull << 20;
  int folderChildren = 10000;

  static Sizes ForScale(double scale);
};

struct Context {
  const Payload& payload;
  std::string dir;  // where containers are made, one per workload and backend
  Sizes sizes;
};

// One measured workload as reported: an id ("W2") and what it does.
struct Report {
  std::string id;
  std::string title;
};

// A runnable workload; one run may yield the samples of several reports (the
// random reads of W5 use the stream that W2 wrote).
struct Workload {
  std::string id;
  std::vector<Report> reports;
  std::function<Samples(Backend&, const Context&)> run;
};

// In report order; "x10" ids are the scaling runs at ten times the count.
std::vector<Workload> AllWorkloads(const Sizes& sizes);

// The pieces, one per file.
Workload SmallStreamsWorkload(const Sizes& sizes, int factor);
Workload LookupWorkload(const Sizes& sizes, int factor);
Workload FolderIndexWorkload(const Sizes& sizes, int factor);
Workload LargeStreamWorkload(const Sizes& sizes);
Workload InterleavedWorkload(const Sizes& sizes);
Workload ParallelWorkload(const Sizes& sizes);

// Shared by the workloads.
std::string NumberedName(const char* prefix, std::uint64_t number);
std::vector<std::string> NumberedNames(const char* prefix, std::uint64_t count);
// 0 .. count-1 in an order fixed by the seed (the same for every backend).
std::vector<std::uint32_t> ShuffledIndexes(std::uint32_t count, std::uint64_t seed);
// The container path of a workload for one backend.
std::string ContainerPath(const Context& context, const Backend& backend, const std::string& workload);
// Reads exactly size bytes (a short read is an error) and checks them; the
// check is kept off the stopwatch.
void ReadAndVerify(StreamReader& reader, unsigned char* buffer, std::size_t size, const Context& context,
                   std::uint64_t stream, std::uint64_t offset, Stopwatch& clock, const std::string& where);

}  // namespace bench

#endif  // AOSTORE_BENCH_WORKLOADS_H
