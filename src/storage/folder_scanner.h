// Reading a folder's data (its child count and child records) in large
// pieces, with the results of reading it record by record from the start:
// the same bytes, the same record positions and the same end.
#ifndef AOSTORE_STORAGE_FOLDER_SCANNER_H
#define AOSTORE_STORAGE_FOLDER_SCANNER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "aostore/stream.h"
#include "aostore/types.h"

namespace ao {

// Deepest folder nesting that removal and copying descend into: a tree read
// from a file may be arbitrarily deep, or even loop back into itself.
inline constexpr int kMaxFolderDepth = 256;

// The blocks of a folder's data in chain order, as far as a read from the
// start would go: up to the block recorded as last, the end of the chain or
// the first damaged block header.
struct FolderLayout {
  struct Block {
    int64_t offset;     // start of the block in the host file
    int64_t dataStart;  // data position of its first data byte
    int64_t dataBytes;  // data bytes it holds
  };
  std::vector<Block> blocks;
  // Data bytes a read from the start delivers: the blocks' data, cut at the
  // stream's length.
  int64_t reachable = 0;
  // False when a read failed or the chain is damaged before its end.
  bool complete = true;
  // The record fields the layout was built from.
  int64_t firstBlock = 0;
  int64_t lastBlock = 0;
  int64_t dataLength = 0;
};

class FolderScanner {
 public:
  // Scans folder's data as its record describes it now. The folder keeps the
  // layout, so that later scans read only the block headers that changed.
  explicit FolderScanner(aoStream& folder);
  FolderScanner(const FolderScanner&) = delete;
  FolderScanner& operator=(const FolderScanner&) = delete;

  // Reads the child count at data position 0 into the folder (0 when four
  // bytes are not there, which fails) and leaves the scan after it.
  bool ReadHead();
  uint32_t count() const { return count_; }

  // Moves the scan to a data position; false beyond the reachable data.
  bool SeekTo(int64_t position);
  int64_t position() const { return position_; }
  // The end of the data this scan can read.
  int64_t reachable() const { return reachable_; }
  // False when the blocks could not all be read up to the end of the data
  // (a failed read, or damage): the scan then ends early.
  bool complete() const { return layout_->complete; }

  // Reads the record at the scan position and moves past it. where gets the
  // record's file offset and, for a record that crosses a block boundary,
  // its split. False, the position unchanged, when a whole record is not
  // there (or a read fails).
  bool NextRecord(t_aoStreamU& record, tag_aoStreamOffset& where);
  // Reads the one record at a data position, as NextRecord would there.
  bool ReadRecordAt(int64_t position, t_aoStreamU& record, tag_aoStreamOffset& where);

  // Calls visit for every named child, in physical order and with the bounds
  // of a walk by OpenStreamFirst and OpenStreamNext: no child when the count
  // is below 1 or its first `count` records are all free; afterwards every
  // record up to the end of the data; a record without its marker, or cut
  // short, ends the walk. visit returns false to stop.
  void ForEachChild(const std::function<bool(const t_aoStreamU&, const tag_aoStreamOffset&)>& visit);

  // Positions the folder object itself at a data position (at most the
  // reachable end), with the header of the block holding it loaded, ready to
  // write there. False when the position cannot be placed.
  bool PlaceFolderAt(int64_t position);

  // Brings the folder's kept layout up to date after the folder object itself
  // appended count bytes at the end of its data, `at`, and now stands in the
  // block the write ended in; the next scan then reads no block header again.
  // A layout the append cannot be traced in is dropped and walked anew.
  static void NoteAppended(aoStream& folder, int64_t at, int64_t count);

  // Where the record of the folder's data at `position` lies; false when the
  // data does not hold a whole record there.
  bool Locate(int64_t position, tag_aoStreamOffset& where) const;

 private:
  struct Piece {
    int64_t file;
    int64_t bytes;
  };
  static std::shared_ptr<FolderLayout> CurrentLayout(aoStream& folder);
  // Adds the blocks from block on; false when a read failed or the chain is
  // damaged before its end.
  static bool Walk(aoStream& folder, FolderLayout& layout, int64_t block, int64_t dataStart);
  // The block holding data position `position` (< reachable).
  size_t BlockFor(int64_t position) const;
  // The pieces in which count bytes at position lie (at most three are
  // reported: a third means "more than two"). False beyond the data.
  bool PiecesOf(int64_t position, int64_t count, Piece pieces[3], int& found) const;
  bool Read(int64_t position, unsigned char* out, int64_t count);
  static void FillWhere(const Piece pieces[3], int found, tag_aoStreamOffset& where);
  void Decode(const unsigned char* bytes, const Piece pieces[3], int found, t_aoStreamU& record,
              tag_aoStreamOffset& where) const;

  aoStream& folder_;
  std::shared_ptr<FolderLayout> layout_;
  int64_t reachable_ = 0;  // fixed for the life of the scan
  int64_t position_ = 0;
  uint32_t count_ = 0;
  mutable size_t hint_ = 0;  // block of the last look-up: scans go forward
  std::vector<unsigned char> window_;
  int64_t windowFile_ = 0;  // file offset of window_[0]
};

}  // namespace ao

#endif  // AOSTORE_STORAGE_FOLDER_SCANNER_H
