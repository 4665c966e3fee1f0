// Which bytes of the file each structure occupies: the header, the root
// tables and every block reached through a chain. It tells when a chain
// reaches a block that another chain (or itself) already holds, and finds
// structures lying on the same bytes.
#ifndef AOSTORE_CHECK_SPACE_MAP_H
#define AOSTORE_CHECK_SPACE_MAP_H

#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

#include "check/owners.h"
#include "check/problem_log.h"

namespace ao::check {

enum class SpaceUse { kFileHeader, kTable, kBlock };

struct Extent {
  int64_t start = 0;
  int64_t end = 0;  // one past the last byte
  SpaceUse use = SpaceUse::kBlock;
  int32_t owner = -1;  // the stream of a block
};

class SpaceMap {
 public:
  // The stream whose chain holds the block starting at offset, or -1.
  int32_t BlockOwner(int64_t offset) const;
  void ClaimBlock(int64_t offset, int64_t end, int32_t owner);
  void AddStructure(int64_t start, int64_t end, SpaceUse use);
  // Bytes of everything recorded so far (progress only: overlaps count twice).
  int64_t recordedBytes() const { return recordedBytes_; }

  // Reports structures that start inside another one (once per structure
  // they lie in).
  void ReportOverlaps(const Owners& owners, ProblemLog& problems);
  // Bytes covered by the extents that count (each byte once).
  int64_t CoveredBytes(const std::function<bool(const Extent&)>& counts) const;

 private:
  std::unordered_map<int64_t, int32_t> blockOwners_;
  std::vector<Extent> extents_;
  int64_t recordedBytes_ = 0;
};

}  // namespace ao::check

#endif  // AOSTORE_CHECK_SPACE_MAP_H
