// Reading a chain of small blocks straight out of the file's mapping: each
// block header and its data are loads from memory, with no system call and
// no look-up per block. Only bytes inside each block's data are touched.
#include <algorithm>
#include <atomic>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "platform/copy_bytes.h"
#include "platform/files.h"

namespace platform = ao::platform;

namespace {

// A block's data longer than this is read with a read call: its first
// pass through the mapping would cost a page fault every few pages.
constexpr int64_t kMaxMappedChunk = 8192;

struct MappedWalk {
  aoStream* stream;
  unsigned char* out;
  int64_t remaining;
  int64_t total;
  bool complete;
};

}  // namespace

void aoStream::WalkMappedBlocks(void* context, const unsigned char* base, int64_t held) {
  auto& walk = *static_cast<MappedWalk*>(context);
  aoStream& stream = *walk.stream;
  const int header = stream.HeaderLength();
  while (true) {
    const int64_t left = stream.m_header.dataLength > stream.m_dataPos ? stream.m_header.dataLength - stream.m_dataPos : 0;
    if (stream.m_posInBlock == 0) {
      const int64_t block = stream.m_curBlock;
      if (block <= 0 || block > held - header) return;
      int64_t dataEnd, blockEnd, prev, next;
      if (!stream.DecodeCheckedHeader(base + block, dataEnd, blockEnd, prev, next)) return;
      stream.SetCurrentBlock(block, dataEnd, blockEnd, prev, next);
    }
    if (left <= 0) {
      walk.complete = true;
      return;
    }
    const int64_t chunk = std::clamp<int64_t>(std::min(walk.remaining, stream.m_blockDataEnd - stream.m_posInBlock), 0, left);
    const int64_t from = stream.m_curBlock + stream.m_posInBlock;
    // A block that gives nothing goes to the careful path, which also
    // catches a chain that comes back on itself.
    if (chunk == 0 || chunk > kMaxMappedChunk || from > held - chunk) return;
    platform::CopyBytes(walk.out, base + from, static_cast<size_t>(chunk));
    // Progress is kept only once the bytes are there: a fault inside the
    // copy leaves the stream where it was.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    stream.m_posInBlock += chunk;
    stream.m_dataPos += chunk;
    stream.m_filePos = from + chunk;
    walk.out += chunk;
    walk.total += chunk;
    walk.remaining -= chunk;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (stream.m_curBlock == stream.m_header.lastBlock || walk.remaining == 0 || stream.m_blockNext == 0) {
      walk.complete = true;
      return;
    }
    stream.MoveToBlock(stream.m_blockNext);
  }
}

bool aoStream::ReadFromMapping(unsigned char*& out, int64_t& remaining, int64_t& total) {
  if (m_storage == nullptr || m_storage->m_inMemory) return false;
  MappedWalk walk{this, out, remaining, total, false};
  const platform::MappedVisit visit = platform::Files().VisitMapping(m_file, &aoStream::WalkMappedBlocks, &walk);
  if (visit == platform::MappedVisit::kNoMapping) return false;
  out = walk.out;
  remaining = walk.remaining;
  total = walk.total;
  return visit == platform::MappedVisit::kDone && walk.complete;
}
