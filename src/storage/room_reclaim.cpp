#include "storage/room_reclaim.h"

#include <algorithm>

#include "platform/files.h"
#include "storage/format.h"

namespace ao {
namespace {

// The length of the block or root table that starts at `at`, or 0 when no
// whole one starts there before stop.
int64_t StructureLength(FileHandle file, bool b64, int64_t at, int64_t stop) {
  unsigned char head[40] = {};
  const int64_t readable = std::min<int64_t>(sizeof head, stop - at);
  if (readable < 4 || !platform::ReadFully(file, head, readable, at)) return 0;
  int64_t length = 0;
  const uint32_t marker = format::GetU32(head);
  if (marker == format::kBlockMarker && readable >= format::BlockHeaderSize(b64)) {
    const format::BlockHeader block = format::DecodeBlockHeader(head, b64);
    const int header = format::BlockHeaderSize(b64);
    if (block.dataEnd >= header && block.blockEnd >= block.dataEnd) length = block.blockEnd;
  } else if (marker == format::kTableMarker && readable >= format::TableHeaderSize(b64)) {
    const format::TableHeader table = format::DecodeTableHeader(head, b64);
    if (table.slotCount > 0 && table.slotCount <= 0xFFFF) length = format::TableSize(b64, table.slotCount);
  }
  return length <= stop - at ? length : 0;
}

}  // namespace

void GiveBackRoomLeftBehind(FileHandle file) {
  const int64_t began = platform::Files().RoomLeftBehind(file);
  if (began < 0) return;
  unsigned char bytes[format::kFileHeaderSize] = {};
  size_t got = 0;
  format::FileHeader header;
  if (!platform::Files().ReadAt(file, bytes, sizeof bytes, 0, &got) || !format::DecodeFileHeader(bytes, got, header))
    return;
  // The room's mark takes the last bytes: nothing appended reaches into it.
  const int64_t stop = platform::Files().Size(file) - platform::kRoomMarkSize;
  int64_t at = std::max(began, header.headerLength);
  while (at < stop) {
    const int64_t length = StructureLength(file, header.b64, at, stop);
    if (length <= 0) break;
    at += length;
  }
  if (at <= stop) platform::Files().SetSize(file, at);
}

}  // namespace ao
