#include "check/space_map.h"

#include <algorithm>
#include <string>

namespace ao::check {
namespace {

std::string DescribeExtent(const Extent& extent, const Owners& owners) {
  switch (extent.use) {
    case SpaceUse::kFileHeader:
      return "the file header";
    case SpaceUse::kTable:
      return "the root table at " + std::to_string(extent.start);
    case SpaceUse::kBlock:
      break;
  }
  return "the block at " + std::to_string(extent.start) + " of " + owners.Describe(extent.owner);
}

}  // namespace

int32_t SpaceMap::BlockOwner(int64_t offset) const {
  const auto found = blockOwners_.find(offset);
  return found == blockOwners_.end() ? -1 : found->second;
}

void SpaceMap::ClaimBlock(int64_t offset, int64_t end, int32_t owner) {
  blockOwners_.emplace(offset, owner);
  extents_.push_back({offset, end, SpaceUse::kBlock, owner});
  recordedBytes_ += end - offset;
}

void SpaceMap::AddStructure(int64_t start, int64_t end, SpaceUse use) {
  extents_.push_back({start, end, use, -1});
  recordedBytes_ += end - start;
}

void SpaceMap::ReportOverlaps(const Owners& owners, ProblemLog& problems) {
  std::sort(extents_.begin(), extents_.end(), [](const Extent& a, const Extent& b) {
    return a.start != b.start ? a.start < b.start : a.end > b.end;
  });
  // The extent reaching furthest so far: anything starting before its end
  // lies on its bytes. One structure that claims too much would lie on
  // everything after it; it is reported once, at the first structure it
  // covers.
  const Extent* reach = nullptr;
  const Extent* reported = nullptr;
  for (const Extent& extent : extents_) {
    if (reach != nullptr && extent.start < reach->end && reach != reported) {
      reported = reach;
      problems.Add(extent.start, CheckProblemKind::kOverlap,
                   DescribeExtent(extent, owners) + " lies on the bytes of " + DescribeExtent(*reach, owners) +
                       " (which reaches " + std::to_string(reach->end) + ")");
    }
    if (reach == nullptr || extent.end > reach->end) reach = &extent;
  }
}

int64_t SpaceMap::CoveredBytes(const std::function<bool(const Extent&)>& counts) const {
  std::vector<std::pair<int64_t, int64_t>> ranges;
  for (const Extent& extent : extents_)
    if (counts(extent) && extent.end > extent.start) ranges.emplace_back(extent.start, extent.end);
  std::sort(ranges.begin(), ranges.end());
  int64_t covered = 0;
  int64_t reached = 0;
  for (const auto& [start, end] : ranges) {
    const int64_t from = std::max(start, reached);
    if (end > from) covered += end - from;
    reached = std::max(reached, end);
  }
  return covered;
}

}  // namespace ao::check
