// A string-keyed hash map with a sortable view of its entries.
#ifndef AOSTORE_MAP_SORT_H
#define AOSTORE_MAP_SORT_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "aostore/types.h"

// The sorted view holds shared references to the entries, so that an entry
// removed after a sort stays readable through the view until the next sort.
template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
class CMapSort {
 public:
  struct MAP_SORT_STRUCT {
    KEY key;
    VALUE value;
  };
  using Assoc = MAP_SORT_STRUCT;

  CMapSort() { map_.reserve(17); }
  CMapSort(const CMapSort& other) : sortMode_(other.sortMode_) {
    map_.reserve(other.map_.size());
    for (const auto& [key, assoc] : other.map_) {
      auto copy = std::make_shared<Assoc>(*assoc);
      live_.insert(copy.get());
      map_.emplace(key, std::move(copy));
    }
  }
  CMapSort& operator=(const CMapSort&) = delete;
  virtual ~CMapSort() = default;

  // Inserts or replaces; the sorted view no longer reflects the map.
  void SetAt(ARG_KEY key, ARG_VALUE value) {
    // One look-up finds the entry or makes its place.
    auto [found, inserted] = map_.try_emplace(KEY(key));
    sortedValid_ = 0;
    if (!inserted && found->second.use_count() == 1) {
      found->second->value = value;
      return;
    }
    try {
      auto fresh = std::make_shared<Assoc>(Assoc{found->first, value});
      live_.insert(fresh.get());
      if (!inserted) live_.erase(found->second.get());
      found->second = std::move(fresh);
    } catch (...) {
      if (inserted) map_.erase(found);
      throw;
    }
  }
  bool Lookup(ARG_KEY key, VALUE& out) const {
    auto found = map_.find(key);
    if (found == map_.end()) return false;
    out = found->second->value;
    return true;
  }
  bool Contains(const Assoc* assoc) const { return assoc != nullptr && live_.count(assoc) != 0; }
  const Assoc* Find(ARG_KEY key) const {
    auto found = map_.find(key);
    return found == map_.end() ? nullptr : found->second.get();
  }
  // Removal leaves the sorted view as it is (it keeps the entry alive).
  bool RemoveKey(ARG_KEY key) {
    auto found = map_.find(key);
    if (found == map_.end()) return false;
    live_.erase(found->second.get());
    map_.erase(found);
    if (map_.empty()) RemoveAll();
    return true;
  }
  void RemoveAll() {
    map_.clear();
    live_.clear();
    sorted_.clear();
    sortedValid_ = 0;
  }
  int GetCount() const { return static_cast<int>(map_.size()); }
  // Room for count entries, so that filling the map moves none of them.
  void Reserve(size_t count) {
    map_.reserve(count);
    live_.reserve(count);
  }
  bool IsEmpty() const { return map_.empty(); }

  // Bucket-order walk. GetNextAssoc returns null after the last entry, and
  // for an association that is no longer in the map.
  const Assoc* GetFirstAssoc() const { return map_.empty() ? nullptr : map_.begin()->second.get(); }
  const Assoc* GetNextAssoc(const Assoc* current) const {
    if (current == nullptr || live_.count(current) == 0) return nullptr;
    auto found = map_.find(current->key);
    if (found == map_.end() || found->second.get() != current) return nullptr;
    ++found;
    return found == map_.end() ? nullptr : found->second.get();
  }

  // 0 ascending, 1 descending; a change invalidates the sorted view.
  void SetSortMode(int mode) {
    if (mode != sortMode_) sortedValid_ = 0;
    sortMode_ = mode;
  }
  int GetSortMode() const { return sortMode_; }
  int IsSortedValid() const { return sortedValid_; }
  void Sort() {
    if (!sortedValid_) sorted_.clear();
    if (sorted_.empty()) {
      sorted_.reserve(map_.size());
      for (const auto& entry : map_) sorted_.push_back(entry.second);
      const bool descending = sortMode_ == 1;
      std::sort(sorted_.begin(), sorted_.end(), [descending](const auto& a, const auto& b) {
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
    return sorted_[static_cast<size_t>(index)].get();
  }

 private:
  static const char* NameOf(const std::string& key) { return key.c_str(); }

  std::unordered_map<KEY, std::shared_ptr<Assoc>> map_;
  std::unordered_set<const Assoc*> live_;  // the associations in map_
  std::vector<std::shared_ptr<Assoc>> sorted_;
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
