#include "check/chain_walker.h"

#include <algorithm>
#include <string>

#include "storage/format.h"

namespace ao::check {

bool ChainWalker::LinkIsUsable(int64_t to, int64_t holder, const char* link, int32_t owner) {
  const std::string where = owners_.Describe(owner) + ": the " + link + " at " + std::to_string(holder);
  if (to < 0) {
    problems_.Add(holder, CheckProblemKind::kLink, where + " holds the negative offset " + std::to_string(to));
    return false;
  }
  if (to < layout_.headerLength) {
    problems_.Add(holder, CheckProblemKind::kLink,
                  where + " points to " + std::to_string(to) + ", inside the file header");
    return false;
  }
  if (!file_.Contains(to, layout_.blockHeader())) {
    problems_.Add(holder, CheckProblemKind::kPastEnd,
                  where + " points to " + std::to_string(to) + ", past the end of the file at " +
                      std::to_string(file_.size()));
    return false;
  }
  return true;
}

ChainFacts ChainWalker::Walk(int32_t owner, const t_aoStreamU& record, int64_t recordOffset) {
  ChainFacts facts;
  const bool live = owners_[owner].live;
  const bool keepData = (record.flags & kAoFlagFolder) != 0;
  const int64_t header = layout_.blockHeader();
  int64_t at = record.firstBlock;
  int64_t holder = recordOffset;
  const char* link = "first-block link";
  int64_t cameFrom = 0;
  bool lastFound = false;

  while (true) {
    if (at == 0) {
      facts.complete = true;
      break;
    }
    if (!LinkIsUsable(at, holder, link, owner)) break;
    const int32_t holdBy = space_.BlockOwner(at);
    if (holdBy == owner) {
      problems_.Add(holder, CheckProblemKind::kCycle,
                    owners_.Describe(owner) + ": the " + link + " at " + std::to_string(holder) +
                        " leads back to the block at " + std::to_string(at) + " of the same chain");
      break;
    }
    if (holdBy >= 0) {
      // A removed stream's record keeps its blocks for the next stream made
      // in its place: such blocks may be met again without harm.
      if (live && owners_[holdBy].live) {
        problems_.Add(at, CheckProblemKind::kShared,
                      "the block at " + std::to_string(at) + " is in the chains of both " +
                          owners_.Describe(holdBy) + " and " + owners_.Describe(owner));
      }
      break;
    }
    unsigned char bytes[40] = {};
    if (!file_.Read(at, bytes, header)) break;  // the range was checked: a read error, reported by the caller
    const format::BlockHeader block = format::DecodeBlockHeader(bytes, layout_.b64);
    if (block.marker != format::kBlockMarker) {
      problems_.Add(at, CheckProblemKind::kBlock,
                    owners_.Describe(owner) + ": no block marker at " + std::to_string(at) + " (found " +
                        Hex32(block.marker) + "), reached through the " + link + " at " + std::to_string(holder));
      break;
    }
    const int64_t room = file_.size() - at;
    int64_t dataEnd = block.dataEnd;
    if (block.dataEnd < header || block.dataEnd > block.blockEnd) {
      problems_.Add(at, CheckProblemKind::kBlock,
                    owners_.Describe(owner) + ": the block at " + std::to_string(at) + " has its data end at " +
                        std::to_string(block.dataEnd) + ", outside its extent " + std::to_string(header) + ".." +
                        std::to_string(block.blockEnd));
      dataEnd = std::clamp(block.dataEnd, header, std::max(header, block.blockEnd));
    }
    // The bytes the block stands on; a block claiming more than the file
    // holds is taken at its header only, so that it does not seem to lie on
    // everything after it.
    int64_t extentEnd = at + std::max(block.blockEnd, header);
    if (block.blockEnd > room) {
      problems_.Add(at, CheckProblemKind::kPastEnd,
                    owners_.Describe(owner) + ": the block at " + std::to_string(at) + " is " +
                        std::to_string(block.blockEnd) + " bytes long and passes the end of the file at " +
                        std::to_string(file_.size()));
      extentEnd = at + header;
      dataEnd = std::min(dataEnd, room);
    }
    if (block.prev != cameFrom) {
      problems_.Add(at, CheckProblemKind::kLink,
                    owners_.Describe(owner) + ": the block at " + std::to_string(at) + " names " +
                        std::to_string(block.prev) + " as its previous block, but the chain comes from " +
                        (cameFrom == 0 ? std::string("its record (previous must be 0)") : std::to_string(cameFrom)));
    }
    space_.ClaimBlock(at, extentEnd, owner);
    ++facts.blocks;
    facts.capacity += extentEnd - at - header;
    // Reads never pass the block recorded as last.
    if (!lastFound) {
      if (keepData) facts.data.push_back({at + header, dataEnd - header});
      facts.covered += dataEnd - header;
    }
    if (at == record.lastBlock) lastFound = true;
    if (onBlock_) onBlock_();
    holder = at;
    link = "next link";
    cameFrom = at;
    at = block.next;
  }
  CheckLength(owner, record, recordOffset, lastFound, facts);
  return facts;
}

void ChainWalker::CheckLength(int32_t owner, const t_aoStreamU& record, int64_t recordOffset, bool lastFound,
                              const ChainFacts& facts) {
  if (!facts.complete) return;  // the chain's own problem was reported where it broke
  const std::string who = owners_.Describe(owner);
  if (record.lastBlock != 0 && !lastFound) {
    problems_.Add(recordOffset, CheckProblemKind::kLink,
                  who + ": the last-block link points to " + std::to_string(record.lastBlock) +
                      ", which is not in its chain");
    return;
  }
  if (!owners_[owner].live || record.dataLength <= 0) return;
  if (record.firstBlock == 0) {
    problems_.Add(recordOffset, CheckProblemKind::kLength,
                  who + ": length " + std::to_string(record.dataLength) + " but no blocks");
  } else if (record.lastBlock == 0) {
    problems_.Add(recordOffset, CheckProblemKind::kLength,
                  who + ": length " + std::to_string(record.dataLength) + " but no last block");
  } else if (record.dataLength > facts.covered) {
    problems_.Add(recordOffset, CheckProblemKind::kLength,
                  who + ": length " + std::to_string(record.dataLength) + " but its chain holds only " +
                      std::to_string(facts.covered) + " bytes of data through its last block");
  }
}

}  // namespace ao::check
