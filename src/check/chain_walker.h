// Walks one stream's block chain from its first block, verifying every block
// header and both links of every step, and claiming each block for the
// stream so that a block met again (a cycle, or a block in two chains) is
// found at once. Each step claims a block not claimed before, so a walk
// never takes more steps than the file has room for blocks.
#ifndef AOSTORE_CHECK_CHAIN_WALKER_H
#define AOSTORE_CHECK_CHAIN_WALKER_H

#include <cstdint>
#include <functional>
#include <vector>

#include "aostore/types.h"
#include "check/layout.h"
#include "check/owners.h"
#include "check/problem_log.h"
#include "check/raw_file.h"
#include "check/space_map.h"

namespace ao::check {

// The data bytes of one block: where they lie in the file and how many.
struct Segment {
  int64_t start = 0;
  int64_t length = 0;
};

struct ChainFacts {
  // The stream's data in order: the data area of each block from the first
  // through the block recorded as last (reads never go further).
  std::vector<Segment> data;
  int64_t covered = 0;   // data bytes in those blocks
  int64_t blocks = 0;
  int64_t capacity = 0;  // capacity of every block of the chain
  // True when the walk reached the end of the chain with every block sound
  // and held by no other stream: then the length checks mean something.
  bool complete = false;
};

class ChainWalker {
 public:
  ChainWalker(RawFile& file, const Layout& layout, SpaceMap& space, const Owners& owners, ProblemLog& problems,
              std::function<void()> onBlock)
      : file_(file), layout_(layout), space_(space), owners_(owners), problems_(problems),
        onBlock_(std::move(onBlock)) {}

  // Walks the chain of the stream `owner` described by record (read at
  // recordOffset) and checks that its length and last block agree with it.
  ChainFacts Walk(int32_t owner, const t_aoStreamU& record, int64_t recordOffset);

 private:
  // False (with the problem reported at holder) when a link to `to` cannot
  // lead to a block.
  bool LinkIsUsable(int64_t to, int64_t holder, const char* link, int32_t owner);
  void CheckLength(int32_t owner, const t_aoStreamU& record, int64_t recordOffset, bool lastFound,
                   const ChainFacts& facts);

  RawFile& file_;
  const Layout& layout_;
  SpaceMap& space_;
  const Owners& owners_;
  ProblemLog& problems_;
  std::function<void()> onBlock_;
};

}  // namespace ao::check

#endif  // AOSTORE_CHECK_CHAIN_WALKER_H
