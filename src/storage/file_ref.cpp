#include "storage/file_ref.h"

namespace ao {

void RootTables::Reset() {
  known_ = false;
  tables_.clear();
  byOffset_.clear();
  free_.clear();
}

void RootTables::AddTable(int64_t offset, uint32_t slotCount, const std::vector<bool>& used) {
  const size_t table = tables_.size();
  byOffset_[offset] = table;
  tables_.push_back({offset, slotCount});
  // Inserted in order, each at the end of the set.
  for (uint32_t slot = 0; slot < slotCount; ++slot)
    if (slot >= used.size() || !used[slot]) free_.emplace_hint(free_.end(), table, slot);
}

void RootTables::SetSlotUsed(size_t table, uint32_t slot, bool used) {
  if (used) {
    free_.erase({table, slot});
  } else {
    free_.insert({table, slot});
  }
}

bool RootTables::FirstFree(Slot from, Slot& found) const {
  auto next = free_.lower_bound(from);
  if (next == free_.end()) return false;
  found = *next;
  return true;
}

void RootTables::NoteRecordWritten(int64_t recordOffset, bool named, int tableHeaderSize, int recordSize) {
  if (!known_ || byOffset_.empty()) return;
  auto holder = byOffset_.upper_bound(recordOffset);
  if (holder == byOffset_.begin()) return;
  --holder;
  const Table& table = tables_[holder->second];
  const int64_t inside = recordOffset - table.offset - tableHeaderSize;
  if (inside < 0 || inside % recordSize != 0) return;
  const int64_t slot = inside / recordSize;
  if (slot >= table.slotCount) return;
  SetSlotUsed(holder->second, static_cast<uint32_t>(slot), named);
}

FileRegistry::~FileRegistry() {
  for (auto& entry : map) delete entry.second;
  map.clear();
}

FileRegistry& Registry() {
  static FileRegistry registry;
  return registry;
}

}  // namespace ao
