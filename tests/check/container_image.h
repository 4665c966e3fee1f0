// Container files built byte by byte, so that a test can place every record,
// block and link exactly where it wants, sound or damaged.
#ifndef AOSTORE_TESTS_CHECK_CONTAINER_IMAGE_H
#define AOSTORE_TESTS_CHECK_CONTAINER_IMAGE_H

#include <cstdint>
#include <cstring>
#include <functional>
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

// Root slot 6: "data", 30 bytes in three blocks of 10. Root slot 7: the
// folder "dir" holding "kid" (5 bytes in one block).
struct SampleTree {
  explicit SampleTree(bool b64) : image(b64) {
    data = image.AppendChain(Pattern(30, 1), {10, 10, 10});
    image.PutRecord(image.RootSlot(6), ContainerImage::Record("data", 0, 30, data));
    kid = image.AppendChain(Pattern(5, 2), {5});
    const auto folderData = image.FolderData({ContainerImage::Record("kid", 0, 5, kid)});
    folder = image.AppendChain(folderData, {folderData.size()});
    image.PutRecord(image.RootSlot(7), ContainerImage::Record("dir", kAoFlagFolder,
                                                              static_cast<int64_t>(folderData.size()), folder));
  }
  int64_t KidRecord() const { return folder.first + image.blockHeader() + 4; }
  int64_t FolderCount() const { return folder.first + image.blockHeader(); }

  ContainerImage image;
  Chain data, kid, folder;
};

// One kind of damage done to a SampleTree, and where a check must report it.
struct DamageCase {
  const char* what;
  std::function<void(ContainerImage&)> apply;
  CheckProblemKind kind;
  int64_t offset;
};

// Every kind of damage the check tells apart, each alone on the sample.
inline std::vector<DamageCase> DamageCases(const SampleTree& s, bool b64) {
  using K = CheckProblemKind;
  const int header = s.image.blockHeader(), width = b64 ? 8 : 4;
  const int64_t slot = s.image.RootSlot(6), table = s.image.firstTable, end = s.image.End();
  const auto& d = s.data.blocks;
  // A second root table linked after the first, whose own link is `next`.
  auto secondTable = [](int64_t next) {
    return [next](ContainerImage& i) {
      const int64_t second = i.AppendTable();
      i.LinkTable(i.firstTable, second);
      i.LinkTable(second, next < 0 ? i.firstTable : next);
    };
  };
  return {
      {"magic", [](ContainerImage& i) { i.bytes[3] = 'x'; }, K::kHeader, 0},
      {"version", [](ContainerImage& i) { i.bytes[24] = '0'; }, K::kHeader, 24},
      {"short file", [](ContainerImage& i) { i.bytes.resize(20); }, K::kHeader, 0},
      {"table marker", [table](ContainerImage& i) { i.bytes[table + 1] = 0; }, K::kTable, table},
      {"table slots", [table](ContainerImage& i) { i.bytes[table + 4] = 63; }, K::kTable, table + 4},
      {"table loop", secondTable(-1), K::kCycle, end},
      {"table past end", secondTable(end + 100000), K::kPastEnd, end},
      {"block as table", secondTable(s.data.first), K::kTable, s.data.first},
      {"record marker", [slot](ContainerImage& i) { std::memset(&i.bytes[slot], 0, 4); }, K::kRecord, slot},
      {"unended name", [slot](ContainerImage& i) { std::memset(&i.bytes[slot + 4], 'n', 52); }, K::kRecord, slot + 4},
      {"child record", [&s](ContainerImage& i) { i.bytes[s.KidRecord()] = 0x11; }, K::kRecord, s.KidRecord()},
      {"block marker", [d](ContainerImage& i) { i.bytes[d[1]] = 0; }, K::kBlock, d[1]},
      {"data past block", [d, header](ContainerImage& i) { i.SetDataEnd(d[2], header + 11); }, K::kBlock, d[2]},
      {"data in header", [d, header](ContainerImage& i) { i.SetDataEnd(d[2], header - 1); }, K::kBlock, d[2]},
      {"previous link", [d](ContainerImage& i) { i.SetPrev(d[2], d[0]); }, K::kLink, d[2]},
      {"first has previous", [d, &s](ContainerImage& i) { i.SetPrev(d[0], s.kid.first); }, K::kLink, d[0]},
      {"first in header", [slot, b64](ContainerImage& i) { i.PutWide(slot + (b64 ? 84 : 76), 5); }, K::kLink, slot},
      {"next past end", [d, end](ContainerImage& i) { i.SetNext(d[2], end + 1000); }, K::kPastEnd, d[2]},
      {"block past end", [&s](ContainerImage& i) { i.SetBlockEnd(s.folder.first, 1 << 20); }, K::kPastEnd,
       s.folder.first},
      {"chain loop", [d](ContainerImage& i) { i.SetNext(d[2], d[0]); }, K::kCycle, d[2]},
      {"shared block", [d](ContainerImage& i) {
         i.PutRecord(i.RootSlot(8), ContainerImage::Record("thief", 0, 10, Chain{d[1], d[1], {}}));
       }, K::kShared, d[1]},
      {"folder in itself", [&s](ContainerImage& i) {
         const auto self = i.FolderData(
             {ContainerImage::Record("self", kAoFlagFolder, 4 + i.recordSize(), s.folder)});
         std::copy(self.begin(), self.end(), i.bytes.begin() + s.FolderCount());
       }, K::kShared, s.folder.first},
      {"overlap", [d, header](ContainerImage& i) { i.SetBlockEnd(d[0], header + 25); }, K::kOverlap, d[1]},
      {"length", [slot](ContainerImage& i) { i.PutWide(slot + 68, 31); }, K::kLength, slot},
      {"last outside chain", [slot, width, &s](ContainerImage& i) { i.PutWide(slot + 68 + width, s.kid.first); },
       K::kLink, slot},
      {"last too early", [slot, width, d](ContainerImage& i) { i.PutWide(slot + 68 + width, d[0]); }, K::kLength,
       slot},
      {"child count", [&s](ContainerImage& i) { i.bytes[s.FolderCount()] = 2; }, K::kFolder, s.FolderCount()},
      {"folder length", [](ContainerImage& i) { i.PutWide(i.RootSlot(7) + 68, 3); }, K::kFolder, s.image.RootSlot(7)},
  };
}

// Every problem of a report, one per line, for failure messages.
inline std::string Problems(const CheckReport& report) {
  std::string text;
  for (const auto& problem : report.problems)
    text += std::to_string(problem.offset) + " " + CheckProblemKindName(problem.kind) + ": " + problem.message + "\n";
  return text;
}

}  // namespace ao::test

#endif  // AOSTORE_TESTS_CHECK_CONTAINER_IMAGE_H
