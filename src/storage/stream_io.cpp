// aoStream's data layer: block allocation, reads, writes and seeks over the
// stream's chain of blocks.
#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "platform/copy_bytes.h"
#include "platform/files.h"
#include "storage/file_ref.h"
#include "storage/cycle_guard.h"
#include "storage/format.h"
#include "storage/internals.h"
#include "storage/page_rewrites.h"
#include "storage/positioning.h"

namespace format = ao::format;
namespace platform = ao::platform;

namespace {
constexpr int64_t kMaxTransfer = 0x80000000LL;
// With an in-memory image, one stream read moves at most this much.
constexpr int64_t kMaxImageRead = 0x3F000000LL;
// A read that reaches a new block takes up to this much data with its
// header: one transfer for a small block, and a bound on what a read call
// fetches beyond the block for a caller with a large buffer.
constexpr int64_t kMaxReadWithHeader = 4096 - 40;
// A new block takes up to this much data with its header while it holds
// the storage lock; more is written after the lock is given back.
constexpr int64_t kMaxCarriedUnderLock = 8192 - 40;

// Tells where the first bytes of a write landed: chunk of the remaining
// bytes at file offset at, a split when they end before `span` bytes.
void NoteFirstBytes(int64_t at, int64_t chunk, int64_t remaining, int64_t span, int64_t* filePosition,
                    tag_aoStreamOffset* where) {
  if (filePosition != nullptr) *filePosition = at;
  if (where == nullptr) return;
  where->recordOffset = at;
  where->splitAt = chunk < span && chunk < remaining ? static_cast<uint32_t>(chunk) : 0;
  where->continuation = 0;
}
}  // namespace

aoStream::aoStream(aoStorage* storage, t_aoStreamU& header, ao::FileHandle file, tag_aoStreamOffset& where)
    : m_file(file), m_storage(storage), m_header(header), m_where(where) {
  m_b64 = storage != nullptr && storage->m_b64;
  m_curBlock = m_header.firstBlock;
}

aoStream::aoStream(aoStream* parent, t_aoStreamU& header, ao::FileHandle file, tag_aoStreamOffset& where)
    : m_file(file), m_storage(parent->m_storage), m_parent(parent), m_header(header), m_where(where) {
  m_b64 = parent->m_b64;
  m_curBlock = m_header.firstBlock;
}

aoStream::aoStream() = default;

int64_t aoStream::FileLimit() const { return m_b64 ? aoStorage::g_iMaxVastrelSize : format::kLimit32; }

int aoStream::ReadFile(ao::FileHandle file, void* buffer, int64_t count, int64_t* done, void* overlapped) {
  if (m_storage != nullptr && m_storage->m_inMemory) {
    if (count > kMaxImageRead) count = kMaxImageRead;
    if (count < 0 || m_imagePos < 0 || m_imagePos + count > m_storage->m_imageSize) return 0;
    std::memcpy(buffer, m_storage->m_image + m_imagePos, static_cast<size_t>(count));
    m_imagePos += count;
    if (done != nullptr) *done = count;
    return 1;
  }
  (void)overlapped;
  return ao::ReadAtPosition(file, buffer, count, done, m_filePos);
}

int64_t aoStream::SetFilePointer(ao::FileHandle file, int64_t distance, uint32_t method) {
  if (m_storage != nullptr && m_storage->m_inMemory)
    return ao::MoveImagePosition(m_imagePos, m_storage->m_imageSize, distance, method);
  return ao::MoveFilePosition(m_filePos, file, distance, method);
}

bool aoStream::ReadAtFile(int64_t offset, void* buffer, int64_t count, bool* ioError) {
  if (m_storage == nullptr || offset <= 0) return false;
  if (m_storage->m_inMemory) {
    if (SetFilePointer(m_file, offset, 0) < 0) return false;
    int64_t done = 0;
    return ReadFile(m_file, buffer, count, &done, nullptr) != 0 && done == count;
  }
  m_filePos = offset;
  if (count < 1) return true;
  const platform::ReadStatus status = platform::ReadExactly(m_file, buffer, count, offset);
  if (ioError != nullptr) *ioError = status == platform::ReadStatus::kFailed;
  if (status != platform::ReadStatus::kComplete) return false;
  m_filePos += count;
  return true;
}

bool aoStream::WriteAtFile(int64_t offset, const void* buffer, int64_t count) {
  if (m_storage == nullptr || m_storage->m_inMemory || offset <= 0) return false;
  t_FileRef* shared = ao::StorageInternals::FileRef(*m_storage);
  bool written;
  if (shared != nullptr && count <= ao::PageRewrites::kMaxSmall) {
    Lock();
    written = shared->rewrites.Write(m_file, offset, buffer, count);
    Unlock();
  } else {
    written = platform::WriteFully(m_file, buffer, count, offset);
  }
  if (!written) return false;
  m_filePos = offset + count;
  return true;
}

bool aoStream::ReadBlockHeaderAt(int64_t block, int64_t& dataEnd, int64_t& blockEnd, int64_t& prev, int64_t& next,
                                 bool* ioError) {
  unsigned char bytes[40] = {};
  if (!ReadAtFile(block, bytes, HeaderLength(), ioError)) return false;
  return DecodeCheckedHeader(bytes, dataEnd, blockEnd, prev, next);
}

bool aoStream::DecodeCheckedHeader(const unsigned char* bytes, int64_t& dataEnd, int64_t& blockEnd, int64_t& prev,
                                   int64_t& next) const {
  const format::BlockHeader header = format::DecodeBlockHeader(bytes, m_b64);
  // Neither end may lie inside the header, nor beyond the largest file: such
  // a block is damaged and ends every walk. A data end past the block end is
  // accepted (a write that grew the block may have been cut off before the
  // block end followed); reads beyond the file then fail on their own.
  const auto inRange = [this](int64_t end) { return end >= HeaderLength() && end <= FileLimit(); };
  if (header.marker != format::kBlockMarker || !inRange(header.dataEnd) || !inRange(header.blockEnd)) return false;
  dataEnd = header.dataEnd;
  blockEnd = header.blockEnd;
  prev = header.prev;
  next = header.next;
  return true;
}

bool aoStream::LoadBlockHeaderWithData(int64_t block, unsigned char* data, int64_t want, int64_t& got) {
  got = 0;
  if (m_storage == nullptr || m_storage->m_inMemory || want < 1) return LoadBlockHeader(block);
  want = std::min(want, kMaxReadWithHeader);
  if (block <= 0) return false;
  // The data follows the header: one transfer brings both, into a buffer of
  // the thread's own, so that only bytes inside the block's data reach the
  // caller.
  thread_local std::vector<unsigned char> scratch(40 + kMaxReadWithHeader);
  unsigned char* bytes = scratch.data();
  size_t done = 0;
  const int header = HeaderLength();
  if (!platform::Files().ReadAt(m_file, bytes, static_cast<size_t>(header + want), block, &done) ||
      done < static_cast<size_t>(header))
    return false;
  int64_t dataEnd, blockEnd, prev, next;
  if (!DecodeCheckedHeader(bytes, dataEnd, blockEnd, prev, next)) return false;
  SetCurrentBlock(block, dataEnd, blockEnd, prev, next);
  got = std::min({static_cast<int64_t>(done) - header, dataEnd - header, want});
  platform::CopyBytes(data, bytes + header, static_cast<size_t>(got));
  m_filePos = block + header + got;
  return true;
}

bool aoStream::LoadBlockHeader(int64_t block, bool* ioError) {
  int64_t dataEnd, blockEnd, prev, next;
  if (!ReadBlockHeaderAt(block, dataEnd, blockEnd, prev, next, ioError)) return false;
  SetCurrentBlock(block, dataEnd, blockEnd, prev, next);
  return true;
}

void aoStream::SetCurrentBlock(int64_t block, int64_t dataEnd, int64_t blockEnd, int64_t prev, int64_t next) {
  m_curBlock = block;
  m_blockDataEnd = dataEnd;
  m_blockEnd = blockEnd;
  m_blockPrev = prev;
  m_blockNext = next;
  m_posInBlock = HeaderLength();
}

bool aoStream::WriteBlockHeader() {
  unsigned char bytes[40];
  format::EncodeBlockHeader({format::kBlockMarker, m_blockDataEnd, m_blockEnd, m_blockPrev, m_blockNext}, m_b64,
                            bytes);
  Lock();
  const bool written = WriteAtFile(m_curBlock, bytes, HeaderLength());
  Unlock();
  return written;
}

void aoStream::MoveToBlock(int64_t block) {
  m_curBlock = block;
  m_posInBlock = 0;
}

void aoStream::EnterNewBlock(int64_t block, int64_t previous, int64_t capacity, int64_t carried) {
  // Just written by this object: its header needs no reading back.
  const int header = HeaderLength();
  SetCurrentBlock(block, header + carried, header + std::max(capacity, carried), previous, 0);
  m_posInBlock = header + carried;
  m_filePos = block + m_posInBlock;
}

bool aoStream::WriteRecordAt(const tag_aoStreamOffset& where, int fieldOffset, const unsigned char* bytes, int count) {
  const int64_t split = where.splitAt;
  // A split without a continuation marks a record in more than two pieces:
  // it cannot be written back without landing outside the folder's data.
  if (split != 0 && where.continuation <= 0) return false;
  bool written = true;
  Lock();
  if (split == 0 || fieldOffset + count <= split) {
    written = WriteAtFile(where.recordOffset + fieldOffset, bytes, count);
  } else if (fieldOffset >= split) {
    written = WriteAtFile(where.continuation + (fieldOffset - split), bytes, count);
  } else {
    const int head = static_cast<int>(split - fieldOffset);
    written = WriteAtFile(where.recordOffset + fieldOffset, bytes, head) &&
              WriteAtFile(where.continuation, bytes + head, count - head);
  }
  Unlock();
  return written;
}

bool aoStream::WriteOwnRecord() {
  bool written;
  if (m_parent == nullptr) {
    written = m_storage != nullptr && m_storage->WriteStreamHeader(m_where.recordOffset, m_header);
  } else {
    unsigned char bytes[92];
    format::EncodeRecord(m_header, m_b64, bytes);
    written = WriteRecordAt(m_where, 0, bytes, RecordSize());
  }
  if (written) NoteRecordInFolder();
  return written;
}

bool aoStream::WriteStreamHeader(int64_t offset, t_aoStreamU& header) {
  if (m_storage == nullptr || m_storage->m_inMemory) return false;
  // A root stream's record lies in the container's tables.
  if (m_parent == nullptr) return m_storage->WriteStreamHeader(offset, header);
  unsigned char bytes[92];
  format::EncodeRecord(header, m_b64, bytes);
  tag_aoStreamOffset where;
  where.recordOffset = offset;
  if (offset == m_where.recordOffset) where = m_where;
  return WriteRecordAt(where, 0, bytes, RecordSize());
}

bool aoStream::WriteLengthAndLastBlock() {
  unsigned char bytes[16];
  format::EncodeLengthPair(m_header.dataLength, m_header.lastBlock, m_b64, bytes);
  return WriteRecordAt(m_where, format::kRecordLengthOffset, bytes, format::LengthPairSize(m_b64));
}

void aoStream::Lock() {
  if (m_storage != nullptr) m_storage->Lock();
}

void aoStream::Unlock() {
  if (m_storage != nullptr) m_storage->Unlock();
}

// ---- Block allocation.

int64_t aoStream::BlockCapacity(int64_t size, bool first) const {
  const int64_t minimum = m_storage->m_minBlockCapacity;
  const bool folder = (m_header.flags & kAoFlagFolder) != 0;
  int64_t capacity;
  if (first) {
    // A folder's first block deliberately starts empty: it grows in place
    // while it is the file's tail block, and later data goes to new blocks.
    capacity = (folder || (minimum == 0 && size < 1)) ? 0 : std::max(minimum, size);
  } else {
    capacity = (folder || minimum == 0) ? size : std::max(size, minimum);
  }
  return std::max<int64_t>(capacity, 0);
}

int64_t aoStream::AllocateBlock(int64_t previous, int64_t size, bool first, const unsigned char* data,
                                int64_t& carried) {
  const int64_t wanted = data != nullptr ? carried : 0;
  carried = 0;
  if (m_storage == nullptr || m_storage->m_inMemory) return 0;
  const int64_t capacity = BlockCapacity(size, first);
  const int header = HeaderLength();

  Lock();
  const int64_t end = platform::Files().Size(m_file);
  int64_t block = 0;
  int64_t carry = 0;
  // Many bytes carried into the block go out after the lock is given back,
  // so that other writers of the file append meanwhile: the block's room is
  // reserved first, and nothing refers to the block before they are there.
  bool later = false;
  // No block may start where its header would cross the file limit (for the
  // first block too: a 32-bit file could not record its offset).
  if (end > 0 && end + header < FileLimit()) {
    // The new block is the file's tail block, so the data written next would
    // grow it in place up to the file limit: those bytes go out with the
    // header, which then tells their end, in one transfer.
    carry = std::clamp<int64_t>(FileLimit() - (end + header), 0, wanted);
    later = carry > kMaxCarriedUnderLock;
    unsigned char bytes[40];
    format::EncodeBlockHeader(
        {format::kBlockMarker, header + carry, header + std::max(capacity, carry), previous, 0}, m_b64, bytes);
    bool ok = carry > 0 && !later ? platform::WritePairFully(m_file, bytes, header, data, carry, end)
                                  : WriteAtFile(end, bytes, header);
    // The data area exists on disk before it is written.
    const int64_t reserved = later ? std::max(capacity, carry) : capacity;
    if (ok && reserved > (later ? 0 : carry)) ok = platform::Files().SetSize(m_file, end + header + reserved);
    if (ok && first) {
      unsigned char field[8];
      format::PutWide(field, end, m_b64);
      m_header.firstBlock = end;
      ok = WriteRecordAt(m_where, format::FirstBlockFieldOffset(m_b64), field, format::OffsetSize(m_b64));
    }
    if (ok) {
      block = end;
      m_filePos = end;
      m_storage->m_tail = end;  // this block is now the file's tail block
      m_storage->PublishTail();
    }
  }
  Unlock();
  if (block == 0) return 0;
  // Carried bytes that did not arrive are written again into the block's
  // room by the caller, which then tells their end in the header.
  if (later && !platform::WriteFully(m_file, data, carry, block + header)) return block;
  carried = carry;
  return block;
}

int64_t aoStream::AllocateFirstBlock(int64_t size) {
  int64_t carried = 0;
  return AllocateBlock(0, size, true, nullptr, carried);
}

int64_t aoStream::AllocateNextBlock(int64_t previous, int64_t size) {
  int64_t carried = 0;
  return AllocateBlock(previous, size, false, nullptr, carried);
}

// ---- Writing.

int64_t aoStream::CarryLimit(int64_t remaining) const {
  return std::clamp<int64_t>(std::min(remaining, aoStorage::g_iMaxCompStmSize - m_dataPos), 0, kMaxTransfer - 1);
}

int64_t aoStream::Write(const void* buffer, int64_t count, bool setEnd, int64_t* filePosition) {
  // Records written as plain data are read afresh by the next look-up.
  if (IsFolder() != 0) ForgetFolderRecords();
  return WriteChunks(buffer, count, setEnd, filePosition, 0, nullptr);
}

int64_t aoStream::WriteChunks(const void* buffer, int64_t count, bool setEnd, int64_t* filePosition, int64_t span,
                              tag_aoStreamOffset* where) {
  if (m_storage == nullptr || m_storage->m_inMemory) return 0;
  const auto* source = static_cast<const unsigned char*>(buffer);
  int64_t remaining = count;
  int64_t total = 0;
  // Bytes that went out with a new block's header are written.
  auto advance = [&](int64_t carried) {
    m_dataPos += carried;
    total += carried;
    source += carried;
    remaining -= carried;
  };
  if (m_curBlock == 0) {
    // The first bytes (as many as the first round would write into the new
    // tail block) go out with its header.
    int64_t carried = CarryLimit(count);
    const int64_t block = AllocateBlock(0, 0, true, source, carried);
    if (block == 0) return -1;
    EnterNewBlock(block, 0, BlockCapacity(0, true), carried);
    if (carried > 0) {
      NoteFirstBytes(block + HeaderLength(), carried, count, span, filePosition, where);
      advance(carried);
      if (setEnd || m_dataPos > m_header.dataLength) {
        m_header.dataLength = m_dataPos;
        m_header.lastBlock = block;
        if (!WriteLengthAndLastBlock()) return -1;
      }
      if (remaining == 0) return total;
    }
  }
  if (count < 1) return 0;

  int64_t previous = 0;  // the block this call wrote in before the current one
  bool locked = false;
  bool failed = false;
  const int64_t limit = FileLimit();

  while (remaining > 0) {
    bool ioError = false;
    if (m_posInBlock == 0 && !LoadBlockHeader(m_curBlock, &ioError)) {
      // A damaged chain tail is cut off rather than failing the write:
      // return to the block written before, end the chain there, go on.
      // A read the system failed proves no damage, and cuts nothing.
      if (ioError || previous == 0 || !LoadBlockHeader(previous)) {
        failed = true;
        break;
      }
      m_blockNext = 0;
      if (!WriteBlockHeader()) {
        failed = true;
        break;
      }
      m_posInBlock = m_blockDataEnd;
    }
    const int64_t room = m_blockEnd - m_posInBlock;
    if (room < remaining && !locked) {
      Lock();
      locked = true;
    }
    const bool tail = m_curBlock == m_storage->m_tail;
    int64_t chunk;
    if (!tail) {
      chunk = std::min({remaining, kMaxTransfer, std::max<int64_t>(room, 0)});
    } else {
      // The file's tail block grows in place, up to the file limit.
      if (m_curBlock >= limit) break;
      chunk = std::min(remaining, kMaxTransfer);
      chunk = std::min(chunk, limit - (m_curBlock + m_posInBlock));
      if (chunk < 0) chunk = 0;
    }
    if (m_dataPos >= aoStorage::g_iMaxCompStmSize) break;
    chunk = std::min(chunk, aoStorage::g_iMaxCompStmSize - m_dataPos);
    if (locked && !tail) {
      Unlock();
      locked = false;
    }
    const int64_t at = m_curBlock + m_posInBlock;
    if (total == 0 && chunk > 0) NoteFirstBytes(at, chunk, remaining, span, filePosition, where);
    if (chunk > 0 && !WriteAtFile(at, source, chunk)) {
      failed = true;
      break;
    }
    m_posInBlock += chunk;
    m_dataPos += chunk;
    total += chunk;
    source += chunk;
    remaining -= chunk;

    int64_t allocated = 0;
    int64_t carried = 0;  // bytes of the rest that went out with the new block
    const int64_t requested = remaining;
    if (remaining > 0 && m_blockNext == 0) {
      // As much as the next round would write into the new (tail) block.
      carried = CarryLimit(remaining);
      allocated = AllocateBlock(m_curBlock, remaining, false, source, carried);
      m_blockNext = allocated;
      if (carried > 0) {
        if (total == 0) NoteFirstBytes(allocated + HeaderLength(), carried, remaining, span, filePosition, where);
        advance(carried);
      }
    }
    // A pure overwrite (no truncation, inside the block's and the stream's
    // data) leaves both headers alone; a newly linked block always needs the
    // header rewritten.
    const bool overwrite = !setEnd && m_posInBlock <= m_blockDataEnd && m_dataPos <= m_header.dataLength;
    if (!overwrite || allocated != 0) {
      m_blockDataEnd = m_posInBlock;  // unconditional: an overwrite with setEnd lowers it
      m_blockEnd = std::max(m_blockEnd, m_posInBlock);
      if (!WriteBlockHeader()) {
        failed = true;
        break;
      }
    }
    if (setEnd || m_dataPos > m_header.dataLength) {
      m_header.dataLength = m_dataPos;
      m_header.lastBlock = allocated != 0 ? allocated : m_curBlock;
      if (!WriteLengthAndLastBlock()) {
        failed = true;
        break;
      }
    }
    m_filePos = m_curBlock + m_posInBlock;
    // Done (unless the new block holds the last bytes), or no block could be added.
    if ((remaining == 0 && carried == 0) || m_blockNext == 0) break;
    if (where != nullptr && where->splitAt != 0 && where->continuation == 0)
      where->continuation = m_blockNext + HeaderLength();
    previous = m_curBlock;
    if (allocated != 0) {
      EnterNewBlock(allocated, previous, BlockCapacity(requested, false), carried);
    } else {
      MoveToBlock(m_blockNext);
    }
    if (locked) {
      Unlock();
      locked = false;
    }
    if (remaining == 0) break;
  }
  if (locked) Unlock();
  return failed ? -1 : total;
}

// ---- Reading.

int64_t aoStream::Read(void* buffer, int64_t count) {
  if (m_curBlock == 0 || count < 1) return 0;
  auto* out = static_cast<unsigned char*>(buffer);
  int64_t total = 0;
  int64_t remaining = count;
  if (ReadFromMapping(out, remaining, total)) return total;
  ao::CycleGuard cycle;
  while (true) {
    // The position is never negative, so a damaged length cannot overflow this.
    const int64_t left = m_header.dataLength > m_dataPos ? m_header.dataLength - m_dataPos : 0;
    int64_t arrived = 0;  // data bytes that came with the header
    if (m_posInBlock == 0) {
      const int64_t want = std::max<int64_t>(std::min(remaining, left), 0);
      if (cycle.Seen(m_curBlock) || !LoadBlockHeaderWithData(m_curBlock, out, want, arrived)) return -1;
    }
    if (left <= 0) return total;
    // A read that ended at a block's end left the position there (as may a
    // seek): nothing is taken from this block and the next one goes on.
    const int64_t chunk = std::clamp<int64_t>(std::min(remaining, m_blockDataEnd - m_posInBlock), 0, left);
    if (chunk > arrived && !ReadAtFile(m_curBlock + m_posInBlock + arrived, out + arrived, chunk - arrived))
      return -1;
    m_posInBlock += chunk;
    m_dataPos += chunk;
    out += chunk;
    total += chunk;
    remaining -= chunk;
    // Never past the block recorded as last, even if the chain goes on.
    if (m_curBlock == m_header.lastBlock || remaining == 0 || m_blockNext == 0) return total;
    MoveToBlock(m_blockNext);
  }
}

// ---- Seeking.

int64_t aoStream::SeekRight(int64_t count, bool fromStart) {
  if (count < 0) return -1;
  // No position lies beyond the largest number, however far a caller asks.
  if (!fromStart && count > std::numeric_limits<int64_t>::max() - m_dataPos) return -1;
  if (fromStart) {
    // Within the first block's data, whose header is already loaded, the
    // walk would end where it starts: no need to read that header again.
    if (m_curBlock == m_header.firstBlock && m_curBlock != 0 && m_posInBlock != 0 &&
        count <= m_blockDataEnd - HeaderLength()) {
      m_dataPos = count;
      m_posInBlock = HeaderLength() + count;
      m_filePos = m_curBlock + m_posInBlock;
      return 0;
    }
    m_curBlock = m_header.firstBlock;
    m_dataPos = 0;
    m_posInBlock = 0;
  }
  if (m_curBlock == 0) return count == 0 ? 0 : -1;
  int64_t remaining = count;
  int64_t block = m_curBlock;
  if (m_posInBlock != 0) {
    const int64_t step = std::clamp<int64_t>(m_blockDataEnd - m_posInBlock, 0, remaining);
    m_posInBlock += step;
    m_dataPos += step;
    m_filePos = m_curBlock + m_posInBlock;
    remaining -= step;
    if (m_blockNext == 0) return remaining == 0 ? 0 : -1;
    if (remaining == 0) return 0;
    block = m_blockNext;
  }
  ao::CycleGuard cycle;
  while (true) {
    int64_t dataEnd, blockEnd, prev, next;
    if (cycle.Seen(block) || !ReadBlockHeaderAt(block, dataEnd, blockEnd, prev, next)) return -1;
    const int64_t step = std::min(remaining, dataEnd - HeaderLength());
    remaining -= step;
    m_dataPos += step;
    if (remaining == 0) {
      SetCurrentBlock(block, dataEnd, blockEnd, prev, next);
      m_posInBlock += step;
      m_filePos = block + m_posInBlock;
      return 0;
    }
    if (next == 0) return -1;
    block = next;
  }
}

int64_t aoStream::SeekLeft(int64_t count, bool fromEnd) {
  if (count < 0) return 0;
  if (fromEnd) {
    m_dataPos = 0;
    if (m_header.lastBlock == 0) m_header.lastBlock = m_header.firstBlock;
    // Every failure here gives 0, deliberately the value of success too.
    if (m_header.lastBlock == 0 || !LoadBlockHeader(m_header.lastBlock)) return 0;
    m_posInBlock = m_blockDataEnd;
    m_filePos = m_curBlock + m_posInBlock;
    // A damaged record may give a negative length; no position lies before 0.
    m_dataPos = std::max<int64_t>(m_header.dataLength, 0);
  }
  if (count == 0) return 0;
  int64_t remaining = count;
  if (m_posInBlock > HeaderLength()) {
    const int64_t step = std::min({remaining, m_posInBlock - HeaderLength(), m_dataPos});
    m_posInBlock -= step;
    m_dataPos -= step;
    remaining -= step;
    if (remaining == 0) {
      m_filePos = m_curBlock + m_posInBlock;
      return 0;
    }
  }
  // The previous-block links are not used: the rest is a scan from the start.
  return SeekRight(std::max<int64_t>(m_dataPos - remaining, 0), true);
}

int64_t aoStream::Seek(int64_t offset, unsigned char origin, bool forward) {
  switch (origin) {
    case 0:
      return SeekRight(offset, true);
    case 1:
      return SeekLeft(offset, true);
    case 2:
      return forward ? SeekRight(offset, false) : SeekLeft(offset, false);
    default:
      return -1;
  }
}

int64_t aoStream::Seek2(int64_t offset, unsigned int origin) {
  if (origin == 0) {
    if (offset > 0) return SeekRight(offset, true);
    if (offset < 0) return SeekLeft(-offset, true);
    return SeekRight(0, true);
  }
  if (origin == 1) return offset < 0 ? SeekLeft(-offset, false) : SeekRight(offset, false);
  // Every other origin deliberately goes back to the start.
  return SeekRight(0, true);
}

// ---- Length and size prefix.

bool aoStream::SetLength(int64_t length) {
  if ((m_mode & kAoReadWrite) == 0 || length < 0 || length > m_header.dataLength) return false;
  SeekRight(0, true);
  m_header.dataLength = length;
  return WriteOwnRecord();
}

int aoStream::PreallocateSpace(int64_t size) {
  if (m_curBlock != 0) return 0;
  const int64_t block = AllocateFirstBlock(size);
  if (block != 0) MoveToBlock(block);
  return 1;
}

int aoStream::PrependSize(uint32_t size) {
  if ((m_header.flags & kAoFlagSizePrefix) == 0) {
    m_header.flags = static_cast<uint8_t>(m_header.flags | kAoFlagSizePrefix);
    if (!WriteRecordAt(m_where, format::kRecordFlagsOffset, &m_header.flags, 1)) {
      m_header.flags = static_cast<uint8_t>(m_header.flags & ~kAoFlagSizePrefix);
      return 0;
    }
  }
  unsigned char prefix[4];
  format::PutU32(prefix, size);
  return Write(prefix, 4, true, nullptr) == -1 ? 0 : 1;
}

int aoStream::GetVerifiedDataLength(int64_t& length) {
  length = m_header.dataLength;
  if (length < 1 || (m_header.flags & kAoFlagSizePrefix) == 0) return 1;
  unsigned char prefix[4] = {};
  if (Read(prefix, 4) != 4 || length <= 4) return 0;
  length -= 4;
  return length == static_cast<int64_t>(format::GetU32(prefix)) ? 1 : 0;
}

int64_t aoStream::GetAllocLength() {
  if (m_curBlock == 0) return 0;
  int64_t total = 0;
  int64_t block = m_header.firstBlock;
  ao::CycleGuard cycle;
  while (block != 0) {
    // Deliberately each header lands in the stream's cached block header, so
    // that afterwards the cache holds the last block's header.
    if (cycle.Seen(block) || !ReadBlockHeaderAt(block, m_blockDataEnd, m_blockEnd, m_blockPrev, m_blockNext))
      return -1;
    total += m_blockEnd - HeaderLength();
    block = m_blockNext;
  }
  m_filePos = m_curBlock + m_posInBlock;
  return total;
}

int64_t aoStream::GetLength() { return m_header.dataLength; }

int64_t aoStream::GetCurDataPos() { return m_dataPos; }
