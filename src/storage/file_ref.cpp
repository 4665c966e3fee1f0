#include "storage/file_ref.h"

#include <bit>

namespace ao {

void RootTables::Reset() {
  known_ = false;
  tables_.clear();
  freeBits_.clear();
  withFree_.clear();
  byOffset_.clear();
}

void RootTables::AddTable(int64_t offset, uint32_t slotCount, const std::vector<bool>& used) {
  const size_t table = tables_.size();
  byOffset_[offset] = table;
  tables_.push_back({offset, slotCount, 0, freeBits_.size()});
  freeBits_.resize(freeBits_.size() + (slotCount + kWordBits - 1) / kWordBits, 0);
  for (uint32_t slot = 0; slot < slotCount; ++slot)
    if (slot >= used.size() || !used[slot]) SetSlotUsed(table, slot, false);
}

void RootTables::SetSlotUsed(size_t table, uint32_t slot, bool used) {
  if (table >= tables_.size() || slot >= tables_[table].slotCount) return;
  Table& entry = tables_[table];
  uint64_t& word = freeBits_[entry.firstWord + slot / kWordBits];
  const uint64_t bit = uint64_t{1} << (slot % kWordBits);
  if (used == ((word & bit) == 0)) return;
  word ^= bit;
  if (used) {
    if (--entry.freeCount == 0) withFree_.erase(table);
  } else if (entry.freeCount++ == 0) {
    withFree_.insert(withFree_.end(), table);
  }
}

bool RootTables::FreeIn(size_t table, uint32_t slot, Slot& found) const {
  const Table& entry = tables_[table];
  const size_t words = (entry.slotCount + kWordBits - 1) / kWordBits;
  for (size_t index = slot / kWordBits; index < words; ++index) {
    uint64_t bits = freeBits_[entry.firstWord + index];
    if (index == slot / kWordBits) bits &= ~uint64_t{0} << (slot % kWordBits);
    if (bits != 0) {
      found = {table, static_cast<uint32_t>(index * kWordBits + std::countr_zero(bits))};
      return true;
    }
  }
  return false;
}

bool RootTables::FirstFree(Slot from, Slot& found) const {
  if (from.first < tables_.size() && FreeIn(from.first, from.second, found)) return true;
  const auto next = withFree_.upper_bound(from.first);
  return next != withFree_.end() && FreeIn(*next, 0, found);
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
