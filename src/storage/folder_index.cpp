#include "storage/folder_index.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace ao {

uint32_t FolderIndex::Hash(const char* name, size_t length) {
  uint32_t hash = 2166136261u;
  for (size_t i = 0; i < length; ++i) hash = (hash ^ static_cast<unsigned char>(name[i])) * 16777619u;
  return hash;
}

void FolderIndex::Reserve(size_t records) {
  names_.reserve(records * kNameBytes);
  hashes_.reserve(records);
  marked_.reserve(records);
  byOffset_.reserve(records);
  size_t slots = 64;
  while (slots < records * 2) slots *= 2;
  if (slots > slots_.size()) {
    std::vector<uint32_t> old = std::move(slots_);
    slots_.assign(slots, 0);
    for (const uint32_t slot : old)
      if (slot != 0) Insert(slot - 1);
  }
}

void FolderIndex::AddRecord(const char* name, bool marked, int64_t fileOffset) {
  SetRecord(records(), name, marked, fileOffset);
}

void FolderIndex::Grow() { Reserve(std::max<size_t>(32, slots_.size())); }

void FolderIndex::Insert(uint32_t record) {
  const size_t mask = slots_.size() - 1;
  size_t at = hashes_[record] & mask;
  while (slots_[at] != 0) at = (at + 1) & mask;
  slots_[at] = record + 1;
}

void FolderIndex::Erase(uint32_t record) {
  const size_t mask = slots_.size() - 1;
  size_t at = hashes_[record] & mask;
  while (slots_[at] != record + 1) {
    if (slots_[at] == 0) return;
    at = (at + 1) & mask;
  }
  // Later slots of the run move back where their probe would still reach
  // them, so that no look-up stops at the hole.
  size_t hole = at;
  for (size_t next = (hole + 1) & mask; slots_[next] != 0; next = (next + 1) & mask) {
    const size_t home = hashes_[slots_[next] - 1] & mask;
    const bool reachable = hole <= next ? (home <= hole || home > next) : (home <= hole && home > next);
    if (reachable) {
      slots_[hole] = slots_[next];
      hole = next;
    }
  }
  slots_[hole] = 0;
}

int64_t FolderIndex::Find(const char* name) const {
  if (slots_.empty()) return -1;
  const size_t length = strnlen(name, kNameBytes);
  const uint32_t hash = Hash(name, length);
  const size_t mask = slots_.size() - 1;
  uint32_t best = std::numeric_limits<uint32_t>::max();
  // Every record of the name lies in the run from its home slot on: the
  // first in physical order is the smallest of them.
  for (size_t at = hash & mask; slots_[at] != 0; at = (at + 1) & mask) {
    const uint32_t record = slots_[at] - 1;
    if (hashes_[record] == hash && std::strncmp(NameOf(record), name, kNameBytes) == 0)
      best = std::min(best, record);
  }
  return best < covered() ? static_cast<int64_t>(best) : -1;
}

FolderIndex::Placement FolderIndex::PlaceReusing() const {
  constexpr uint32_t kNone = std::numeric_limits<uint32_t>::max();
  const uint32_t covered = this->covered();
  const uint32_t free = free_.empty() ? kNone : *free_.begin();
  const uint32_t unmarked = unmarked_.empty() ? kNone : *unmarked_.begin();
  // The scan stops at the first record without its marker, or takes the
  // first free one, whichever comes first.
  if (unmarked < covered && unmarked < free) return {Placement::Kind::kFail, 0};
  if (free < covered) return {Placement::Kind::kReuse, free};
  // Past the records the data holds whole, a scan that finds a record cut
  // short fails; one that finds the end of the data appends there.
  if (count_ > records() && partialTail_) return {Placement::Kind::kFail, 0};
  return {Placement::Kind::kAppend, covered};
}

void FolderIndex::SetRecord(uint32_t record, const char* name, bool marked, int64_t fileOffset) {
  if (record > records()) return;
  const size_t length = strnlen(name, kNameBytes - 1);
  if (record == records()) {
    names_.resize(names_.size() + kNameBytes, '\0');
    hashes_.push_back(0);
    marked_.push_back(true);
    const auto place = std::upper_bound(byOffset_.begin(), byOffset_.end(), std::make_pair(fileOffset, record));
    byOffset_.insert(place, {fileOffset, record});
    partialTail_ = false;
  } else {
    if (NameOf(record)[0] != '\0') {
      Erase(record);
      --named_;
    }
    free_.erase(record);
    unmarked_.erase(record);
  }
  char* stored = names_.data() + record * kNameBytes;
  std::memset(stored, 0, kNameBytes);
  std::memcpy(stored, name, length);
  hashes_[record] = Hash(name, length);
  marked_[record] = marked;
  if (!marked) unmarked_.insert(record);
  if (length == 0) {
    if (marked) free_.insert(record);
    return;
  }
  if ((named_ + 1) * 2 > slots_.size()) Grow();
  Insert(record);
  ++named_;
}

int64_t FolderIndex::RecordAt(int64_t fileOffset) const {
  const auto found = std::lower_bound(byOffset_.begin(), byOffset_.end(), std::make_pair(fileOffset, uint32_t{0}));
  if (found == byOffset_.end() || found->first != fileOffset) return -1;
  return found->second;
}

FolderIndex* FolderIndexes::Find(int64_t folder) {
  const auto found = byFolder_.find(folder);
  if (found == byFolder_.end()) return nullptr;
  uses_.splice(uses_.begin(), uses_, found->second.use);
  return found->second.index.get();
}

FolderIndex* FolderIndexes::Keep(int64_t folder, std::unique_ptr<FolderIndex> index) {
  Drop(folder);
  uses_.push_front(folder);
  Entry& entry = byFolder_[folder];
  entry.index = std::move(index);
  entry.use = uses_.begin();
  entry.records = entry.index->records();
  records_ += entry.records;
  Trim(folder);
  return entry.index.get();
}

void FolderIndexes::Drop(int64_t folder) {
  const auto found = byFolder_.find(folder);
  if (found == byFolder_.end()) return;
  records_ -= found->second.records;
  uses_.erase(found->second.use);
  byFolder_.erase(found);
}

void FolderIndexes::NoteGrowth(int64_t folder) {
  const auto found = byFolder_.find(folder);
  if (found == byFolder_.end() || found->second.index->records() == found->second.records) return;
  records_ += found->second.index->records() - found->second.records;
  found->second.records = found->second.index->records();
  Trim(folder);
}

void FolderIndexes::Trim(int64_t keep) {
  // The folder in use stays, however large it is alone.
  while (records_ > maxRecords_ && !uses_.empty() && uses_.back() != keep) Drop(uses_.back());
}

}  // namespace ao
