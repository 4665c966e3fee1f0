// One verification of a container file: the header, the root table chain,
// then (for a full check) every stream's chain, every folder's records, the
// blocks still held by removed streams, and structures on shared bytes.
#ifndef AOSTORE_CHECK_CONTAINER_CHECKER_H
#define AOSTORE_CHECK_CONTAINER_CHECKER_H

#include <cstdint>
#include <vector>

#include "aostore/check.h"
#include "check/chain_walker.h"
#include "check/layout.h"
#include "check/owners.h"
#include "check/problem_log.h"
#include "check/raw_file.h"
#include "check/record_check.h"
#include "check/space_map.h"

namespace ao::check {

class ContainerChecker {
 public:
  ContainerChecker(const char* path, CheckScope scope, const CheckProgress& progress);
  CheckReport Run();

 private:
  // A stream record met but not walked yet.
  struct Found {
    int32_t owner;
    t_aoStreamU record;
    int64_t offset;
  };
  // A folder whose chain is walked and whose records are still to be read.
  struct PendingFolder {
    int32_t owner;
    std::vector<Segment> data;
    int64_t length;
    int64_t recordOffset;
  };

  bool CheckHeader();
  void WalkRootTables();
  // Reads the table at offset and its records; next receives its link.
  // False when the chain cannot go on (the problem is reported).
  bool ReadRootTable(int64_t offset, int64_t& next);
  // Counts a stream in use and returns its id (parent -1 for a root stream);
  // keeps a removed stream's blocks for later; -1 for all but a live stream.
  int32_t Note(RecordState state, const t_aoStreamU& record, int64_t offset, int32_t parent);
  void WalkStream(const Found& found);
  void ReadFolder(const PendingFolder& folder);
  void Tick();
  void Finish();

  RawFile file_;
  CheckScope scope_;
  const CheckProgress& progress_;
  Layout layout_;
  ProblemLog problems_;
  Owners owners_;
  SpaceMap space_;
  ChainWalker walker_;
  ContainerFacts facts_;
  bool container_ = false;
  bool directorySound_ = false;
  std::vector<Found> roots_;
  std::vector<Found> removed_;
  std::vector<PendingFolder> folders_;
  int64_t ticks_ = 0;
};

}  // namespace ao::check

#endif  // AOSTORE_CHECK_CONTAINER_CHECKER_H
