// The sizes that one container's header fixes for all its records.
#ifndef AOSTORE_CHECK_LAYOUT_H
#define AOSTORE_CHECK_LAYOUT_H

#include <cstdint>

#include "storage/format.h"

namespace ao::check {

struct Layout {
  bool b64 = true;
  int64_t headerLength = format::kFileHeaderSize;
  int64_t fileSize = 0;

  int blockHeader() const { return format::BlockHeaderSize(b64); }
  int recordSize() const { return format::RecordSize(b64); }
  int tableHeader() const { return format::TableHeaderSize(b64); }
  int64_t tableSize() const { return format::TableSize(b64, format::kSlotsPerTable); }
};

}  // namespace ao::check

#endif  // AOSTORE_CHECK_LAYOUT_H
