// Container files built byte by byte, so that a test can place every record,
// block and link exactly where it wants, sound or damaged.
#ifndef AOSTORE_TESTS_CHECK_CONTAINER_IMAGE_H
#define AOSTORE_TESTS_CHECK_CONTAINER_IMAGE_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "aostore/check.h"
#include "storage/format.h"
#include "support/temp_dir.h"

namespace ao::test {

struct Chain {
  int64_t first = 0;
  int64_t last = 0;
  std::vector<int64_t> blocks;
};

class ContainerImage {
 public:
  // A new container: header and one empty root table (64-bit, 32-bit or legacy).
  explicit ContainerImage(bool b64, bool legacy = false) : b64_(b64) {
    bytes.assign(legacy ? 26 : 32, 0);
    std::memcpy(bytes.data(), format::kMagic, legacy ? 25 : 24);
    if (!legacy) {
      bytes[24] = b64 ? '2' : '1';
      format::PutU16(&bytes[26], 64);
      format::PutU16(&bytes[28], 6);
    }
    firstTable = static_cast<int64_t>(bytes.size());
    AppendTable();
  }

  int recordSize() const { return format::RecordSize(b64_); }
  int blockHeader() const { return format::BlockHeaderSize(b64_); }

  // Appends an empty root table (slots marked, names empty); returns its offset.
  int64_t AppendTable() {
    const int64_t at = End();
    bytes.resize(bytes.size() + static_cast<size_t>(format::TableSize(b64_, 64)), 0);
    format::EncodeTableHeader({format::kTableMarker, 64, 0}, b64_, &bytes[at]);
    for (int slot = 0; slot < 64; ++slot) format::PutU32(&bytes[SlotOffset(at, slot)], format::kRecordMarker);
    return at;
  }
  void LinkTable(int64_t table, int64_t next) { format::PutWide(&bytes[table + 8], next, b64_); }

  int64_t SlotOffset(int64_t table, int slot) const {
    return table + format::TableHeaderSize(b64_) + static_cast<int64_t>(slot) * recordSize();
  }
  int64_t RootSlot(int slot) const { return SlotOffset(firstTable, slot); }

  // Appends one block holding data in a data area of capacity bytes.
  int64_t AppendBlock(const std::vector<unsigned char>& data, int64_t capacity, int64_t prev, int64_t next = 0) {
    const int64_t at = End();
    const int64_t header = blockHeader();
    bytes.resize(bytes.size() + static_cast<size_t>(header + capacity), 0);
    format::EncodeBlockHeader({format::kBlockMarker, header + static_cast<int64_t>(data.size()), header + capacity,
                               prev, next},
                              b64_, &bytes[at]);
    if (!data.empty()) std::memcpy(&bytes[at + header], data.data(), data.size());
    return at;
  }

  // Appends data as a chain of blocks of the given data sizes (full blocks,
  // no spare capacity), linked both ways.
  Chain AppendChain(const std::vector<unsigned char>& data, const std::vector<size_t>& pieces) {
    Chain chain;
    size_t used = 0;
    for (size_t piece : pieces) {
      std::vector<unsigned char> part(data.begin() + static_cast<long>(used),
                                      data.begin() + static_cast<long>(used + piece));
      const int64_t block = AppendBlock(part, static_cast<int64_t>(piece), chain.last);
      if (chain.last != 0) SetNext(chain.last, block);
      if (chain.first == 0) chain.first = block;
      chain.last = block;
      chain.blocks.push_back(block);
      used += piece;
    }
    return chain;
  }

  // Block header fields.
  int64_t FieldOffset(int64_t block, int field) const {  // 0 data end, 1 block end, 2 previous, 3 next
    return block + (b64_ ? 8 : 4) + field * format::OffsetSize(b64_);
  }
  void SetNext(int64_t block, int64_t next) { format::PutWide(&bytes[FieldOffset(block, 3)], next, b64_); }
  void SetPrev(int64_t block, int64_t prev) { format::PutWide(&bytes[FieldOffset(block, 2)], prev, b64_); }
  void SetDataEnd(int64_t block, int64_t end) { format::PutWide(&bytes[FieldOffset(block, 0)], end, b64_); }
  void SetBlockEnd(int64_t block, int64_t end) { format::PutWide(&bytes[FieldOffset(block, 1)], end, b64_); }

  static t_aoStreamU Record(const char* name, uint8_t flags, int64_t length, const Chain& chain) {
    t_aoStreamU record = format::MakeRecord(name);
    record.mark = 1;
    record.flags = flags;
    record.dataLength = length;
    record.firstBlock = chain.first;
    record.lastBlock = chain.last;
    return record;
  }
  void PutRecord(int64_t at, const t_aoStreamU& record) { format::EncodeRecord(record, b64_, &bytes[at]); }

  // Folder data: the child count, then the records.
  std::vector<unsigned char> FolderData(const std::vector<t_aoStreamU>& children) const {
    std::vector<unsigned char> data(4 + children.size() * static_cast<size_t>(recordSize()));
    format::PutU32(data.data(), static_cast<uint32_t>(children.size()));
    for (size_t i = 0; i < children.size(); ++i)
      format::EncodeRecord(children[i], b64_, &data[4 + i * static_cast<size_t>(recordSize())]);
    return data;
  }

  void PutWide(int64_t at, int64_t value) { format::PutWide(&bytes[at], value, b64_); }
  int64_t End() const { return static_cast<int64_t>(bytes.size()); }
  void Save(const std::string& path) const { WriteWholeFile(path, bytes); }

  std::vector<unsigned char> bytes;
  int64_t firstTable = 0;

 private:
  bool b64_;
};

// Every problem of a report, one per line, for failure messages.
inline std::string Problems(const CheckReport& report) {
  std::string text;
  for (const auto& problem : report.problems)
    text += std::to_string(problem.offset) + " " + CheckProblemKindName(problem.kind) + ": " + problem.message + "\n";
  return text;
}

}  // namespace ao::test

#endif  // AOSTORE_TESTS_CHECK_CONTAINER_IMAGE_H
