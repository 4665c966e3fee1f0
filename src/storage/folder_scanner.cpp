#include "storage/folder_scanner.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "aostore/storage.h"
#include "storage/cycle_guard.h"
#include "storage/format.h"

namespace ao {

namespace {

// The first read of a block's data is small (a head or a look-up needs a few
// bytes); each further one doubles, up to the largest single read.
constexpr int64_t kFirstWindow = 4096;
constexpr int64_t kLargestWindow = 128 * 1024;

}  // namespace

FolderScanner::FolderScanner(aoStream& folder) : folder_(folder), layout_(CurrentLayout(folder)) {
  reachable_ = layout_->reachable;
}

std::shared_ptr<FolderLayout> FolderScanner::CurrentLayout(aoStream& folder) {
  const t_aoStreamU& header = folder.m_header;
  std::shared_ptr<FolderLayout>& cached = folder.m_layout;
  if (cached != nullptr && cached->firstBlock == header.firstBlock && cached->lastBlock == header.lastBlock &&
      cached->dataLength == header.dataLength)
    return cached;

  // Appending to a folder only changes its last block and adds blocks after
  // it, so a layout whose data ran to the end of its last block is extended
  // from there. Anything else is walked again from the first block.
  bool extend = false;
  if (cached != nullptr && !cached->blocks.empty() && cached->firstBlock == header.firstBlock &&
      header.dataLength >= cached->dataLength) {
    const FolderLayout::Block& last = cached->blocks.back();
    extend = cached->reachable == last.dataStart + last.dataBytes;
  }
  int64_t from = header.firstBlock;
  int64_t dataStart = 0;
  if (extend) {
    from = cached->blocks.back().offset;
    dataStart = cached->blocks.back().dataStart;
    cached->blocks.pop_back();
  } else {
    // A scan still holding the old layout keeps it alive.
    cached = std::make_shared<FolderLayout>();
  }
  const bool complete = Walk(folder, *cached, from, dataStart);
  cached->complete = complete;
  cached->firstBlock = header.firstBlock;
  cached->lastBlock = header.lastBlock;
  cached->dataLength = header.dataLength;
  std::shared_ptr<FolderLayout> layout = cached;
  // A walk cut short by a failed read or a damaged block is not kept: the
  // next scan reads the chain again rather than trust a passing failure.
  if (!complete) cached.reset();
  return layout;
}

bool FolderScanner::Walk(aoStream& folder, FolderLayout& layout, int64_t block, int64_t dataStart) {
  const int header = folder.HeaderLength();
  const int64_t fileSize = folder.m_storage != nullptr ? folder.m_storage->GetFileSize() : -1;
  CycleGuard cycle;
  bool complete = true;
  while (block > 0) {
    int64_t dataEnd, blockEnd, prev, next;
    if (cycle.Seen(block) || !folder.ReadBlockHeaderAt(block, dataEnd, blockEnd, prev, next)) {
      complete = false;
      break;
    }
    // Data said to run past the end of the file cannot be read there: the
    // block is kept (its readable part is real) but nothing after it is.
    const bool pastEnd = fileSize >= 0 && dataEnd > fileSize - block;
    const int64_t bytes = pastEnd ? std::min<int64_t>(dataEnd - header, std::numeric_limits<int64_t>::max() / 4)
                                  : dataEnd - header;
    layout.blocks.push_back({block, dataStart, bytes});
    dataStart += bytes;
    // Never past the block recorded as last, as a read from the start.
    if (pastEnd || block == folder.m_header.lastBlock || next == 0) {
      complete = !pastEnd;
      break;
    }
    block = next;
  }
  layout.reachable = std::max<int64_t>(0, std::min(dataStart, folder.m_header.dataLength));
  return complete;
}

void FolderScanner::NoteAppended(aoStream& folder, int64_t at, int64_t count) {
  std::shared_ptr<FolderLayout>& layout = folder.m_layout;
  if (layout == nullptr || layout->blocks.empty()) return;
  const FolderLayout::Block last = layout->blocks.back();
  const int64_t inCurrent = folder.m_blockDataEnd - folder.HeaderLength();
  // The layout ran to the end of its last block and the write started there;
  // a record is never written in more than two pieces.
  bool traced = layout->reachable == last.dataStart + last.dataBytes && at == layout->reachable &&
                folder.m_posInBlock != 0 && folder.m_curBlock == folder.m_header.lastBlock;
  if (traced && folder.m_curBlock == last.offset) {
    traced = inCurrent == last.dataBytes + count;
    layout->blocks.back().dataBytes = inCurrent;
  } else if (traced) {
    traced = inCurrent >= 0 && inCurrent <= count;
    layout->blocks.back().dataBytes += count - inCurrent;
    layout->blocks.push_back({folder.m_curBlock, at + count - inCurrent, inCurrent});
  }
  layout->reachable = at + count;
  if (!traced || folder.m_header.dataLength != at + count) {
    layout.reset();
    return;
  }
  layout->lastBlock = folder.m_header.lastBlock;
  layout->dataLength = folder.m_header.dataLength;
}

size_t FolderScanner::BlockFor(int64_t position) const {
  const std::vector<FolderLayout::Block>& blocks = layout_->blocks;
  // Scans go forward: the block of the last look-up or one soon after.
  for (size_t index = hint_; index < blocks.size() && index < hint_ + 4; ++index) {
    const FolderLayout::Block& block = blocks[index];
    if (block.dataStart > position) break;
    if (position < block.dataStart + block.dataBytes) return hint_ = index;
  }
  auto after = std::upper_bound(blocks.begin(), blocks.end(), position,
                                [](int64_t value, const FolderLayout::Block& block) { return value < block.dataStart; });
  // position lies below the reachable end, so some block holds it: the last
  // one whose data starts at or before it (empty blocks start where the
  // following block does and are passed over).
  hint_ = static_cast<size_t>(after - blocks.begin()) - 1;
  return hint_;
}

bool FolderScanner::PiecesOf(int64_t position, int64_t count, Piece pieces[3], int& found) const {
  found = 0;
  if (position < 0 || count < 1 || position > reachable_ - count) return false;
  const int header = folder_.HeaderLength();
  while (count > 0) {
    const FolderLayout::Block& block = layout_->blocks[BlockFor(position)];
    const int64_t bytes = std::min(count, block.dataStart + block.dataBytes - position);
    if (found == 3) return true;  // more than two pieces: that is all a caller needs to know
    pieces[found++] = {block.offset + header + (position - block.dataStart), bytes};
    position += bytes;
    count -= bytes;
  }
  return true;
}

bool FolderScanner::Read(int64_t position, unsigned char* out, int64_t count) {
  if (position < 0 || count < 0 || position > reachable_ - count) return false;
  const int header = folder_.HeaderLength();
  while (count > 0) {
    const FolderLayout::Block& block = layout_->blocks[BlockFor(position)];
    const int64_t blockEnd = std::min(block.dataStart + block.dataBytes, reachable_);
    const int64_t file = block.offset + header + (position - block.dataStart);
    const int64_t bytes = std::min(count, blockEnd - position);
    const auto held = static_cast<int64_t>(window_.size());
    if (window_.empty() || file < windowFile_ || file + bytes > windowFile_ + held) {
      const int64_t grown = window_.empty() ? kFirstWindow : std::min(held * 2, kLargestWindow);
      const int64_t size = std::max(bytes, std::min(grown, blockEnd - position));
      window_.resize(static_cast<size_t>(size));
      if (!folder_.ReadAtFile(file, window_.data(), size)) {
        window_.clear();
        return false;
      }
      windowFile_ = file;
    }
    std::memcpy(out, window_.data() + (file - windowFile_), static_cast<size_t>(bytes));
    out += bytes;
    position += bytes;
    count -= bytes;
  }
  return true;
}

void FolderScanner::FillWhere(const Piece pieces[3], int found, tag_aoStreamOffset& where) {
  where.recordOffset = pieces[0].file;
  where.splitAt = 0;
  where.continuation = 0;
  if (found >= 2) {
    where.splitAt = static_cast<uint32_t>(pieces[0].bytes);
    // A record in more than two pieces cannot be written back through one
    // split: without a continuation every write to it is refused.
    where.continuation = found == 2 ? pieces[1].file : 0;
  }
}

bool FolderScanner::ReadHead() {
  unsigned char head[4];
  const bool read = Read(0, head, sizeof head);
  count_ = read ? format::GetU32(head) : 0;
  folder_.m_childCount = count_;
  position_ = read ? 4 : 0;
  return read;
}

bool FolderScanner::SeekTo(int64_t position) {
  if (position < 0 || position > reachable_) return false;
  position_ = position;
  return true;
}

bool FolderScanner::NextRecord(t_aoStreamU& record, tag_aoStreamOffset& where) {
  unsigned char bytes[92];
  const int size = folder_.RecordSize();
  if (!Read(position_, bytes, size)) return false;
  Piece pieces[3];
  int found = 0;
  PiecesOf(position_, size, pieces, found);
  Decode(bytes, pieces, found, record, where);
  position_ += size;
  return true;
}

bool FolderScanner::ReadRecordAt(int64_t position, t_aoStreamU& record, tag_aoStreamOffset& where) {
  unsigned char bytes[92];
  Piece pieces[3];
  int found = 0;
  if (!PiecesOf(position, folder_.RecordSize(), pieces, found)) return false;
  // One record alone is read as it lies, not through a window of the data.
  if (found == 3) return SeekTo(position) && NextRecord(record, where);
  int64_t done = 0;
  for (int piece = 0; piece < found; ++piece) {
    if (!folder_.ReadAtFile(pieces[piece].file, bytes + done, pieces[piece].bytes)) return false;
    done += pieces[piece].bytes;
  }
  Decode(bytes, pieces, found, record, where);
  return true;
}

void FolderScanner::Decode(const unsigned char* bytes, const Piece pieces[3], int found, t_aoStreamU& record,
                           tag_aoStreamOffset& where) const {
  record = format::DecodeRecord(bytes, folder_.m_b64);
  where = tag_aoStreamOffset{};
  FillWhere(pieces, found, where);
  where.duration = static_cast<uint32_t>(record.duration) * 60u;
  where.childInfo = record.childInfo;
  where.mark = record.mark;
}

bool FolderScanner::Locate(int64_t position, tag_aoStreamOffset& where) const {
  Piece pieces[3];
  int found = 0;
  if (!PiecesOf(position, folder_.RecordSize(), pieces, found)) return false;
  FillWhere(pieces, found, where);
  return true;
}

void FolderScanner::ForEachChild(const std::function<bool(const t_aoStreamU&, const tag_aoStreamOffset&)>& visit) {
  if (!ReadHead() || count_ < 1) return;
  bool seekingFirst = true;
  uint32_t freeRecords = 0;
  t_aoStreamU record;
  tag_aoStreamOffset where;
  while (NextRecord(record, where) && record.marker == format::kRecordMarker) {
    if (record.name[0] == '\0') {
      // The first named child must come within the count's worth of records.
      if (seekingFirst && ++freeRecords >= count_) return;
      continue;
    }
    seekingFirst = false;
    if (!visit(record, where)) return;
  }
}

bool FolderScanner::PlaceFolderAt(int64_t position) {
  const std::vector<FolderLayout::Block>& blocks = layout_->blocks;
  if (position < 0 || position > reachable_ || blocks.empty()) return false;
  // The last block whose data starts at or before the position: at the end
  // of the data that is the block a write there continues.
  auto after = std::upper_bound(blocks.begin(), blocks.end(), position,
                                [](int64_t value, const FolderLayout::Block& block) { return value < block.dataStart; });
  if (after == blocks.begin()) return false;
  const FolderLayout::Block& block = *(after - 1);
  if (position > block.dataStart + block.dataBytes || !folder_.LoadBlockHeader(block.offset)) return false;
  // The block changed under the layout (another object wrote the folder).
  if (folder_.m_blockDataEnd - folder_.HeaderLength() != block.dataBytes) return false;
  folder_.m_posInBlock = folder_.HeaderLength() + (position - block.dataStart);
  folder_.m_dataPos = position;
  folder_.m_filePos = block.offset + folder_.m_posInBlock;
  return true;
}

}  // namespace ao
