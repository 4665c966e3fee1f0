#include "workloads.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <random>

namespace bench {
namespace {

int ScaledCount(int count, double scale, int minimum) {
  return std::max(minimum, static_cast<int>(std::lround(count * scale)));
}

// Scaled byte counts stay whole chunks, so that every write is one chunk.
std::uint64_t ScaledBytes(std::uint64_t bytes, double scale, std::uint64_t minimum) {
  const auto scaled = static_cast<std::uint64_t>(std::llround(static_cast<double>(bytes) * scale));
  return std::max(minimum, scaled / kChunk * kChunk);
}

}  // namespace

Sizes Sizes::ForScale(double scale) {
  Sizes sizes;
  sizes.w1Folders = ScaledCount(sizes.w1Folders, scale, 1);
  sizes.w2Bytes = ScaledBytes(sizes.w2Bytes, scale, 4 * kChunk);
  sizes.w5Reads = ScaledCount(sizes.w5Reads, scale, 100);
  sizes.w3Bytes = ScaledBytes(sizes.w3Bytes, scale, 4 * kChunk);
  sizes.w4Streams = ScaledCount(sizes.w4Streams, scale, 100);
  sizes.w6PerThread = ScaledCount(sizes.w6PerThread, scale, 1);
  sizes.folderChildren = ScaledCount(sizes.folderChildren, scale, 100);
  return sizes;
}

std::vector<Workload> AllWorkloads(const Sizes& sizes) {
  return {SmallStreamsWorkload(sizes, 1), LargeStreamWorkload(sizes), InterleavedWorkload(sizes),
          LookupWorkload(sizes, 1),       ParallelWorkload(sizes),    SmallStreamsWorkload(sizes, 10),
          LookupWorkload(sizes, 10),      FolderIndexWorkload(sizes, 1), FolderIndexWorkload(sizes, 10)};
}

std::string NumberedName(const char* prefix, std::uint64_t number) {
  char name[64];
  std::snprintf(name, sizeof name, "%s%07llu", prefix, static_cast<unsigned long long>(number));
  return name;
}

std::vector<std::string> NumberedNames(const char* prefix, std::uint64_t count) {
  std::vector<std::string> names;
  names.reserve(count);
  for (std::uint64_t i = 0; i < count; ++i) names.push_back(NumberedName(prefix, i));
  return names;
}

std::vector<std::uint32_t> ShuffledIndexes(std::uint32_t count, std::uint64_t seed) {
  std::vector<std::uint32_t> order(count);
  std::iota(order.begin(), order.end(), 0u);
  std::mt19937_64 random(seed);
  // Fisher-Yates by hand: std::shuffle's sequence may differ between
  // standard libraries, and the order should not.
  for (std::uint32_t i = count; i > 1; --i) std::swap(order[i - 1], order[random() % i]);
  return order;
}

std::string ContainerPath(const Context& context, const Backend& backend, const std::string& workload) {
  return context.dir + "/" + workload + "." + backend.Name();
}

void ReadAndVerify(StreamReader& reader, unsigned char* buffer, std::size_t size, const Context& context,
                   std::uint64_t stream, std::uint64_t offset, Stopwatch& clock, const std::string& where) {
  const std::size_t got = reader.Read(buffer, size);
  clock.Stop();
  if (got != size)
    throw BackendError("short read in " + where + ": " + std::to_string(got) + " of " + std::to_string(size) +
                       " bytes at " + std::to_string(offset));
  context.payload.Verify(stream, offset, buffer, size, where);
  clock.Start();
}

}  // namespace bench
