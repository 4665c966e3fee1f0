// A string-keyed hash map with a sortable view of its entries.
#ifndef AOSTORE_MAP_SORT_H
#define AOSTORE_MAP_SORT_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <cstdint>
#include <utility>
#include <vector>

#include "aostore/types.h"

// Entries live in chunks that never move and are found through an
// open-addressed table of (hash, entry) slots: a look-up reads one slot and
// the entry it names, where a chained table would also walk its bucket's
// list. The sorted view points at the entries; an entry removed or replaced
// after a sort is set aside, not reused, so that it stays readable through
// the view until the next sort. Because an entry's memory is the map's until
// the map is emptied, a position a caller hands back can be checked by its
// address alone, without reading memory that may have been freed.
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
    retired_.reserve(retired_.size() + 1);
    Entry* fresh = Allocate(Assoc{KEY(key), value});
    entry.live = false;
    retired_.push_back(std::exchange(slots_[index].entry, fresh));
  }
  // Starts bringing in the slot where a search for key begins, so that a
  // SetAt or Lookup of it soon after finds the slot in the cache: a run of
  // keys prefetched first, then inserted, waits on memory once, not per key.
  void Prefetch(ARG_KEY key) const {
#if defined(__GNUC__) || defined(__clang__)
    if (!slots_.empty()) __builtin_prefetch(&slots_[Hash(key) & Mask()]);
#else
    (void)key;  // only a hint: compilers without one lose nothing but time
#endif
  }
  bool Lookup(ARG_KEY key, VALUE& out) const {
    const Assoc* found = Find(key);
    if (found == nullptr) return false;
    out = found->value;
    return true;
  }
  bool Contains(const Assoc* assoc) const {
    const Entry* entry = EntryAt(assoc);
    return entry != nullptr && entry->live;
  }
  const Assoc* Find(ARG_KEY key) const {
    const size_t index = IndexOf(key);
    return index == kAbsent ? nullptr : &slots_[index].entry->assoc;
  }
  // Removal leaves the sorted view as it is (the entry stays readable there).
  bool RemoveKey(ARG_KEY key) {
    const size_t index = IndexOf(key);
    if (index == kAbsent) return false;
    Entry* gone = Vacate(index);
    gone->live = false;
    if (gone->inSortedView) {
      retired_.push_back(gone);
    } else {
      spare_.push_back(gone);
    }
    if (count_ == 0) RemoveAll();
    return true;
  }
  void RemoveAll() {
    slots_.clear();
    count_ = 0;
    chunks_.clear();
    spare_.clear();
    sorted_.clear();
    retired_.clear();
    sortedValid_ = 0;
  }
  int GetCount() const { return static_cast<int>(count_); }
  // Room for count entries, so that filling the map moves none of them.
  void Reserve(size_t count) {
    const size_t room = spare_.size() + (chunks_.empty() ? 0 : chunks_.back().size - chunks_.back().used);
    if (count > count_ + room) AddChunk(count - count_ - room);
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
      for (Entry* entry : retired_) entry->inSortedView = false;
      spare_.insert(spare_.end(), retired_.begin(), retired_.end());
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
    Assoc assoc{};
    bool live = false;          // a slot holds it
    bool inSortedView = false;  // sorted_ points at assoc
  };
  struct Slot {
    size_t hash = 0;
    Entry* entry = nullptr;  // null: the slot is free
  };
  struct Chunk {
    std::unique_ptr<Entry[]> entries;
    size_t size = 0;
    size_t used = 0;
  };
  static constexpr size_t kAbsent = static_cast<size_t>(-1);
  // At most half the slots are taken, so a probe meets a free slot soon.
  static constexpr size_t kMinSlots = 32;
  static constexpr size_t kMinChunk = 64;

  static const char* NameOf(const std::string& key) { return key.c_str(); }
  // Names are short: a few multiplications over their 8-byte words mix
  // them well enough for probing, at a fraction of a general string hash.
  static size_t Hash(std::string_view name) {
    uint64_t hash = 0x9E3779B97F4A7C15ull ^ name.size();
    size_t at = 0;
    for (; at + 8 <= name.size(); at += 8) {
      uint64_t word;
      std::memcpy(&word, name.data() + at, 8);
      hash = (hash ^ word) * 0xBF58476D1CE4E5B9ull;
      hash ^= hash >> 31;
    }
    uint64_t tail = 0;
    std::memcpy(&tail, name.data() + at, name.size() - at);
    hash = (hash ^ tail) * 0x94D049BB133111EBull;
    hash ^= hash >> 29;
    hash *= 0xBF58476D1CE4E5B9ull;
    return static_cast<size_t>(hash ^ (hash >> 32));
  }
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
  // The entry whose association lies at assoc, or null when none does.
  const Entry* EntryAt(const Assoc* assoc) const {
    const auto at = reinterpret_cast<std::uintptr_t>(assoc);
    for (const Chunk& chunk : chunks_) {
      const auto first = reinterpret_cast<std::uintptr_t>(&chunk.entries[0].assoc);
      if (at < first || at - first >= chunk.used * sizeof(Entry) || (at - first) % sizeof(Entry) != 0) continue;
      return &chunk.entries[(at - first) / sizeof(Entry)];
    }
    return nullptr;
  }
  // Chunks never shrink, so each at least doubles the room there is.
  void AddChunk(size_t atLeast) {
    const size_t size = std::max({atLeast, kMinChunk, chunks_.empty() ? size_t{0} : chunks_.back().size});
    chunks_.push_back(Chunk{std::make_unique<Entry[]>(size), size, 0});
  }
  Entry* Allocate(Assoc assoc) {
    Entry* entry;
    if (!spare_.empty()) {
      entry = spare_.back();
      spare_.pop_back();
    } else {
      if (chunks_.empty() || chunks_.back().used == chunks_.back().size) AddChunk(0);
      Chunk& chunk = chunks_.back();
      entry = &chunk.entries[chunk.used++];
    }
    entry->assoc = std::move(assoc);
    entry->live = true;
    return entry;
  }
  void Place(size_t hash, Entry* entry) {
    size_t index = hash & Mask();
    while (slots_[index].entry != nullptr) index = (index + 1) & Mask();
    slots_[index] = Slot{hash, entry};
  }
  void Rehash(size_t size) {
    std::vector<Slot> old(size);
    old.swap(slots_);
    for (const Slot& slot : old)
      if (slot.entry != nullptr) Place(slot.hash, slot.entry);
  }
  // hash is that of assoc's key.
  void Insert(Assoc assoc, size_t hash) {
    if ((count_ + 1) * 2 > slots_.size()) Rehash(std::max(kMinSlots, slots_.size() * 2));
    Place(hash, Allocate(std::move(assoc)));
    ++count_;
  }
  // Takes the entry out of its slot and closes the gap, moving back the
  // entries of the probe run behind it that may now sit nearer their start.
  Entry* Vacate(size_t index) {
    Entry* gone = std::exchange(slots_[index].entry, nullptr);
    --count_;
    for (size_t next = (index + 1) & Mask(); slots_[next].entry != nullptr; next = (next + 1) & Mask()) {
      const size_t home = slots_[next].hash & Mask();
      // The entry at next stays when its home lies in (index, next], cyclically.
      const bool stays = index < next ? (home > index && home <= next) : (home > index || home <= next);
      if (stays) continue;
      slots_[index] = std::exchange(slots_[next], Slot{});
      index = next;
    }
    return gone;
  }

  std::vector<Slot> slots_;  // a power of two of them, or none
  size_t count_ = 0;
  std::vector<Chunk> chunks_;   // every entry, in use or not
  std::vector<Entry*> spare_;   // entries free for reuse
  std::vector<const Assoc*> sorted_;
  // Entries removed or replaced while the sorted view showed them.
  std::vector<Entry*> retired_;
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
