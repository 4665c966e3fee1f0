// A string-keyed hash map with a sortable view of its entries.
#ifndef AOSTORE_MAP_SORT_H
#define AOSTORE_MAP_SORT_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "aostore/types.h"

// Each entry lives in the hash table's own node, found by one probe with no
// further indirection. The sorted view points at those nodes; an entry
// removed or replaced after a sort keeps its node (set aside) so that it
// stays readable through the view until the next sort.
template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
class CMapSort {
 public:
  struct MAP_SORT_STRUCT {
    KEY key;
    VALUE value;
  };
  using Assoc = MAP_SORT_STRUCT;

  CMapSort() { entries_.reserve(17); }
  CMapSort(const CMapSort& other) : sortMode_(other.sortMode_) {
    Reserve(other.entries_.size());
    for (const Entry& entry : other.entries_) Insert(entry.assoc);
  }
  CMapSort& operator=(const CMapSort&) = delete;
  virtual ~CMapSort() = default;

  // Inserts or replaces; the sorted view no longer reflects the map.
  void SetAt(ARG_KEY key, ARG_VALUE value) {
    sortedValid_ = 0;
    auto found = entries_.find(std::string_view(key));
    if (found == entries_.end()) {
      Insert(Assoc{KEY(key), value});
      return;
    }
    if (!found->inSortedView) {
      Writable(*found).assoc.value = value;
      return;
    }
    // The sorted view goes on showing the old value until the next sort.
    retired_.reserve(retired_.size() + 1);
    auto old = entries_.extract(found);
    live_.erase(&old.value().assoc);
    try {
      Insert(Assoc{KEY(key), value});
    } catch (...) {
      live_.insert(&old.value().assoc);
      entries_.insert(std::move(old));
      throw;
    }
    retired_.push_back(std::move(old));
  }
  bool Lookup(ARG_KEY key, VALUE& out) const {
    auto found = entries_.find(std::string_view(key));
    if (found == entries_.end()) return false;
    out = found->assoc.value;
    return true;
  }
  bool Contains(const Assoc* assoc) const { return assoc != nullptr && live_.count(assoc) != 0; }
  const Assoc* Find(ARG_KEY key) const {
    auto found = entries_.find(std::string_view(key));
    return found == entries_.end() ? nullptr : &found->assoc;
  }
  // Removal leaves the sorted view as it is (the entry stays readable there).
  bool RemoveKey(ARG_KEY key) {
    auto found = entries_.find(std::string_view(key));
    if (found == entries_.end()) return false;
    live_.erase(&found->assoc);
    if (found->inSortedView) {
      retired_.push_back(entries_.extract(found));
    } else {
      entries_.erase(found);
    }
    if (entries_.empty()) RemoveAll();
    return true;
  }
  void RemoveAll() {
    entries_.clear();
    live_.clear();
    sorted_.clear();
    retired_.clear();
    sortedValid_ = 0;
  }
  int GetCount() const { return static_cast<int>(entries_.size()); }
  // Room for count entries, so that filling the map moves none of them.
  void Reserve(size_t count) {
    entries_.reserve(count);
    live_.reserve(count);
  }
  bool IsEmpty() const { return entries_.empty(); }

  // Bucket-order walk. GetNextAssoc returns null after the last entry, and
  // for an association that is no longer in the map.
  const Assoc* GetFirstAssoc() const { return entries_.empty() ? nullptr : &entries_.begin()->assoc; }
  const Assoc* GetNextAssoc(const Assoc* current) const {
    if (current == nullptr || live_.count(current) == 0) return nullptr;
    auto found = entries_.find(std::string_view(NameOf(current->key)));
    if (found == entries_.end() || &found->assoc != current) return nullptr;
    ++found;
    return found == entries_.end() ? nullptr : &found->assoc;
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
      for (const Entry& entry : entries_) Writable(entry).inSortedView = false;
      sorted_.clear();
      retired_.clear();
    }
    if (sorted_.empty()) {
      sorted_.reserve(entries_.size());
      for (const Entry& entry : entries_) {
        Writable(entry).inSortedView = true;
        sorted_.push_back(&entry.assoc);
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
  // Entries are found by their key's bytes, so a look-up makes no string.
  struct KeyHash {
    using is_transparent = void;
    size_t operator()(std::string_view key) const { return std::hash<std::string_view>()(key); }
    size_t operator()(const Entry& entry) const { return (*this)(std::string_view(NameOf(entry.assoc.key))); }
  };
  struct KeyEqual {
    using is_transparent = void;
    static std::string_view Key(std::string_view key) { return key; }
    static std::string_view Key(const Entry& entry) { return NameOf(entry.assoc.key); }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
      return Key(a) == Key(b);
    }
  };
  using Entries = std::unordered_set<Entry, KeyHash, KeyEqual>;

  static const char* NameOf(const std::string& key) { return key.c_str(); }
  // A set hands out its elements as constant; only the parts that take no
  // part in hashing or comparing are changed through this.
  static Entry& Writable(const Entry& entry) { return const_cast<Entry&>(entry); }
  void Insert(Assoc assoc) {
    auto [placed, inserted] = entries_.insert(Entry{std::move(assoc)});
    (void)inserted;
    try {
      live_.insert(&placed->assoc);
    } catch (...) {
      entries_.erase(placed);
      throw;
    }
  }

  Entries entries_;
  std::unordered_set<const Assoc*> live_;  // the associations in entries_
  std::vector<const Assoc*> sorted_;
  // Entries removed or replaced while the sorted view showed them.
  std::vector<typename Entries::node_type> retired_;
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
