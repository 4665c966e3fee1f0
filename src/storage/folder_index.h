// What the library knows of a folder's child records, so that finding,
// opening and creating a child costs the same at any folder size. A folder's
// data is a u32 child count followed by records; looking a name up means
// reading the records in order until the first that carries it, and
// creating a child means finding the first free record. The index answers
// both as that scan would, from one bulk read of the data, and every path
// that writes a record of the folder keeps it exact.
//
// Records are numbered by their place in the data (the first at data
// position 4). The index holds every whole record the data has, also those
// beyond the child count: a scan reads only the first `count` of them, but
// a larger count brings the others in as they are.
#ifndef AOSTORE_STORAGE_FOLDER_INDEX_H
#define AOSTORE_STORAGE_FOLDER_INDEX_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <list>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

namespace ao {

class FolderIndex {
 public:
  // The folder record's fields the index was kept for: a folder whose
  // record says otherwise was changed some other way, and is read again.
  struct Signature {
    int64_t firstBlock = 0;
    int64_t lastBlock = 0;
    int64_t dataLength = 0;
    bool operator==(const Signature&) const = default;
  };

  // What creating a child with free records reused would do.
  struct Placement {
    enum class Kind { kReuse, kAppend, kFail } kind = Kind::kFail;
    uint32_t record = 0;  // the record to take over, or the number of the one appended
  };

  FolderIndex(uint32_t count, bool partialTail, const Signature& signature)
      : count_(count), partialTail_(partialTail), signature_(signature) {}

  // Makes room for the records of a build at once.
  void Reserve(size_t records);
  // Adds the next record of the data while the index is built.
  void AddRecord(const char* name, bool marked, int64_t fileOffset);

  // The first record a scan of the first `count` records finds with name;
  // -1 when none.
  int64_t Find(const char* name) const;
  Placement PlaceReusing() const;
  // Records a scan covers: the count, or fewer when the data ends first.
  uint32_t covered() const { return count_ < records() ? count_ : records(); }
  uint32_t records() const { return static_cast<uint32_t>(marked_.size()); }
  uint32_t count() const { return count_; }
  const Signature& signature() const { return signature_; }

  // The record now carries name (empty: free) and a marker or not. A record
  // one past the last is appended (fileOffset: where it lies).
  void SetRecord(uint32_t record, const char* name, bool marked, int64_t fileOffset);
  // Whether the record carries name and that marker already.
  bool Holds(uint32_t record, const char* name, bool marked) const {
    return record < records() && marked_[record] == marked && std::strncmp(NameOf(record), name, kNameBytes) == 0;
  }
  // The record at fileOffset, or -1 when the index holds none there.
  int64_t RecordAt(int64_t fileOffset) const;
  void SetCount(uint32_t count) { count_ = count; }
  void SetSignature(const Signature& signature) { signature_ = signature; }
  // The data ended inside a record; appending after it closes the gap.
  void SetPartialTail(bool partial) { partialTail_ = partial; }

 private:
  static constexpr size_t kNameBytes = 52;
  static uint32_t Hash(const char* name, size_t length);
  const char* NameOf(uint32_t record) const { return names_.data() + record * kNameBytes; }
  void Insert(uint32_t record);
  void Erase(uint32_t record);
  void Grow();

  uint32_t count_;
  bool partialTail_;
  Signature signature_;
  // Per record: its name (52 bytes, NUL-padded), the name's hash, and
  // whether its marker is right.
  std::vector<char> names_;
  std::vector<uint32_t> hashes_;
  std::vector<bool> marked_;
  // Open addressing over the named records: record + 1, 0 for an empty slot.
  std::vector<uint32_t> slots_;
  uint32_t named_ = 0;
  std::set<uint32_t> free_;      // nameless records with their marker
  std::set<uint32_t> unmarked_;  // records without their marker
  // File offsets of the records in ascending order, for the writes that
  // name a record by where it lies.
  std::vector<std::pair<int64_t, uint32_t>> byOffset_;
};

// The indexes of one file's folders, keyed by the file offset of each
// folder's own record, within a bound on the records they hold together:
// the folder least recently used gives its index up first, and is read
// again when it is next looked into.
class FolderIndexes {
 public:
  static constexpr size_t kMaxRecords = 500000;
  explicit FolderIndexes(size_t maxRecords = kMaxRecords) : maxRecords_(maxRecords) {}

  FolderIndex* Find(int64_t folder);
  FolderIndex* Keep(int64_t folder, std::unique_ptr<FolderIndex> index);
  void Drop(int64_t folder);
  // An index that grew by a record counts it.
  void NoteGrowth(int64_t folder);

 private:
  struct Entry {
    std::unique_ptr<FolderIndex> index;
    std::list<int64_t>::iterator use;
    size_t records = 0;
  };
  void Trim(int64_t keep);

  std::unordered_map<int64_t, Entry> byFolder_;
  std::list<int64_t> uses_;  // most recent first
  size_t records_ = 0;
  size_t maxRecords_;
};

}  // namespace ao

#endif  // AOSTORE_STORAGE_FOLDER_INDEX_H
