// A string-keyed hash map with a sortable view of its entries.
#ifndef AOSTORE_MAP_SORT_H
#define AOSTORE_MAP_SORT_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "aostore/types.h"

// Each entry is allocated once and found through an open-addressed table of
// (hash, entry) slots: a look-up reads one slot and the entry it names, where
// a chained table would also walk its bucket's list. The sorted view points
// at the entries; an entry removed or replaced after a sort is set aside, not
// freed, so that it stays readable through the view until the next sort.
template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
class CMapSort {
 public:
  struct MAP_SORT_STRUCT {
    KEY key;
    VALUE value;
  };
  using Assoc = MAP_SORT_STRUCT;

  CMapSort() = default;
  CMapSort(const CMapSort& other) : sortMode_(other.sortMode_) {
    Reserve(other.count_);
    for (const Slot& slot : other.slots_)
      if (slot.entry != nullptr) Insert(slot.entry->assoc, slot.hash);
  }
  CMapSort& operator=(const CMapSort&) = delete;
  virtual ~CMapSort() = default;

  // Inserts or replaces; the sorted view no longer reflects the map.
  void SetAt(ARG_KEY key, ARG_VALUE value) {
    sortedValid_ = 0;
    const std::string_view name(key);
    const size_t hash = Hash(name);
    const size_t index = IndexOf(name, hash);
    if (index == kAbsent) {
      Insert(Assoc{KEY(key), value}, hash);
      return;
    }
    Entry& entry = *slots_[index].entry;
    if (!entry.inSortedView) {
      entry.assoc.value = value;
      return;
    }
    // The sorted view goes on showing the old value until the next sort.
    auto fresh = std::make_unique<Entry>(Entry{Assoc{KEY(key), value}});
    retired_.reserve(retired_.size() + 1);
    live_.insert(&fresh->assoc);
    live_.erase(&entry.assoc);
    retired_.push_back(std::exchange(slots_[index].entry, std::move(fresh)));
  }
  bool Lookup(ARG_KEY key, VALUE& out) const {
    const Assoc* found = Find(key);
    if (found == nullptr) return false;
    out = found->value;
    return true;
  }
  bool Contains(const Assoc* assoc) const { return assoc != nullptr && live_.count(assoc) != 0; }
  const Assoc* Find(ARG_KEY key) const {
    const size_t index = IndexOf(key);
    return index == kAbsent ? nullptr : &slots_[index].entry->assoc;
  }
  // Removal leaves the sorted view as it is (the entry stays readable there).
  bool RemoveKey(ARG_KEY key) {
    const size_t index = IndexOf(key);
    if (index == kAbsent) return false;
    std::unique_ptr<Entry> gone = Vacate(index);
    live_.erase(&gone->assoc);
    if (gone->inSortedView) retired_.push_back(std::move(gone));
    if (count_ == 0) RemoveAll();
    return true;
  }
  void RemoveAll() {
    slots_.clear();
    count_ = 0;
    live_.clear();
    sorted_.clear();
    retired_.clear();
    sortedValid_ = 0;
  }
  int GetCount() const { return static_cast<int>(count_); }
  // Room for count entries, so that filling the map moves none of them.
  void Reserve(size_t count) {
    live_.reserve(count);
    size_t wanted = kMinSlots;
    while (wanted < count * 2) wanted *= 2;
    if (wanted > slots_.size()) Rehash(wanted);
  }
  bool IsEmpty() const { return count_ == 0; }

  // Walk in slot order. GetNextAssoc returns null after the last entry, and
  // for an association that is no longer in the map.
  const Assoc* GetFirstAssoc() const { return EntryFrom(0); }
  const Assoc* GetNextAssoc(const Assoc* current) const {
    if (!Contains(current)) return nullptr;
    const size_t index = IndexOf(NameOf(current->key));
    if (index == kAbsent || &slots_[index].entry->assoc != current) return nullptr;
    return EntryFrom(index + 1);
  }

  // 0 ascending, 1 descending; a change invalidates the sorted view.
  void SetSortMode(int mode) {
    if (mode != sortMode_) sortedValid_ = 0;
    sortMode_ = mode;
  }
  int GetSortMode() const { return sortMode_; }
  int IsSortedValid() const { return sortedValid_; }
  void Sort() {
    if (!sortedValid_ && !sorted_.empty()) {
      for (Slot& slot : slots_)
        if (slot.entry != nullptr) slot.entry->inSortedView = false;
      sorted_.clear();
      retired_.clear();
    }
    if (sorted_.empty()) {
      sorted_.reserve(count_);
      for (Slot& slot : slots_) {
        if (slot.entry == nullptr) continue;
        slot.entry->inSortedView = true;
        sorted_.push_back(&slot.entry->assoc);
      }
      const bool descending = sortMode_ == 1;
      std::sort(sorted_.begin(), sorted_.end(), [descending](const Assoc* a, const Assoc* b) {
        const int order = std::strcmp(NameOf(a->key), NameOf(b->key));
        return descending ? order > 0 : order < 0;
      });
    }
    sortedValid_ = 1;
  }
  int GetSortedCount() const { return static_cast<int>(sorted_.size()); }
  // Null for an index outside the sorted view.
  const Assoc* GetSortedAt(int index) const {
    if (index < 0 || index >= static_cast<int>(sorted_.size())) return nullptr;
    return sorted_[static_cast<size_t>(index)];
  }

 private:
  struct Entry {
    Assoc assoc;
    bool inSortedView = false;  // sorted_ points at assoc
  };
  struct Slot {
    size_t hash = 0;
    std::unique_ptr<Entry> entry;  // null: the slot is free
  };
  static constexpr size_t kAbsent = static_cast<size_t>(-1);
  // At most half the slots are taken, so a probe meets a free slot soon.
  static constexpr size_t kMinSlots = 32;

  static const char* NameOf(const std::string& key) { return key.c_str(); }
  static size_t Hash(std::string_view name) { return std::hash<std::string_view>()(name); }
  size_t Mask() const { return slots_.size() - 1; }

  // The slot holding name, or kAbsent.
  size_t IndexOf(std::string_view name) const { return IndexOf(name, Hash(name)); }
  size_t IndexOf(std::string_view name, size_t hash) const {
    if (slots_.empty()) return kAbsent;
    for (size_t index = hash & Mask();; index = (index + 1) & Mask()) {
      const Slot& slot = slots_[index];
      if (slot.entry == nullptr) return kAbsent;
      if (slot.hash == hash && std::string_view(NameOf(slot.entry->assoc.key)) == name) return index;
    }
  }
  const Assoc* EntryFrom(size_t index) const {
    for (; index < slots_.size(); ++index)
      if (slots_[index].entry != nullptr) return &slots_[index].entry->assoc;
    return nullptr;
  }
  void Place(size_t hash, std::unique_ptr<Entry> entry) {
    size_t index = hash & Mask();
    while (slots_[index].entry != nullptr) index = (index + 1) & Mask();
    slots_[index] = Slot{hash, std::move(entry)};
  }
  void Rehash(size_t size) {
    std::vector<Slot> old(size);
    old.swap(slots_);
    for (Slot& slot : old)
      if (slot.entry != nullptr) Place(slot.hash, std::move(slot.entry));
  }
  // hash is that of assoc's key.
  void Insert(Assoc assoc, size_t hash) {
    if ((count_ + 1) * 2 > slots_.size()) Rehash(std::max(kMinSlots, slots_.size() * 2));
    auto entry = std::make_unique<Entry>(Entry{std::move(assoc)});
    live_.insert(&entry->assoc);
    Place(hash, std::move(entry));
    ++count_;
  }
  // Takes the entry out of its slot and closes the gap, moving back the
  // entries of the probe run behind it that may now sit nearer their start.
  std::unique_ptr<Entry> Vacate(size_t index) {
    std::unique_ptr<Entry> gone = std::move(slots_[index].entry);
    --count_;
    for (size_t next = (index + 1) & Mask(); slots_[next].entry != nullptr; next = (next + 1) & Mask()) {
      const size_t home = slots_[next].hash & Mask();
      // The entry at next stays when its home lies in (index, next], cyclically.
      const bool stays = index < next ? (home > index && home <= next) : (home > index || home <= next);
      if (stays) continue;
      slots_[index] = std::move(slots_[next]);
      index = next;
    }
    return gone;
  }

  std::vector<Slot> slots_;  // a power of two of them, or none
  size_t count_ = 0;
  std::unordered_set<const Assoc*> live_;  // the associations in slots_
  std::vector<const Assoc*> sorted_;
  // Entries removed or replaced while the sorted view showed them.
  std::vector<std::unique_ptr<Entry>> retired_;
  int sortedValid_ = 0;
  int sortMode_ = 0;
};

// The root directory's name map and the type of its snapshots.
class CMapStringToStreamOffset
    : public CMapSort<std::string, const char*, tag_aoStreamOffset, const tag_aoStreamOffset&> {};

// A folder's preloaded child map.
using CMapStringToStreamWithOffset =
    CMapSort<std::string, const char*, t_aoStreamWithOffset, const t_aoStreamWithOffset&>;

#endif  // AOSTORE_MAP_SORT_H
