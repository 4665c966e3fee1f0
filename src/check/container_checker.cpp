#include "check/container_checker.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unordered_set>

#include "check/record_check.h"
#include "check/segment_reader.h"
#include "storage/format.h"

namespace ao::check {
namespace {
constexpr int64_t kBlocksPerProgressCall = 256;
}  // namespace

ContainerChecker::ContainerChecker(const char* path, CheckScope scope, const CheckProgress& progress)
    : file_(path), scope_(scope), progress_(progress),
      walker_(file_, layout_, space_, owners_, problems_, [this] { Tick(); }) {}

CheckReport ContainerChecker::Run() {
  CheckReport report;
  if (!file_.ok()) {
    report.readError = file_.error();
    return report;
  }
  if (CheckHeader()) {
    WalkRootTables();
    if (scope_ == CheckScope::kFull) {
      for (const Found& root : roots_) WalkStream(root);
      while (!folders_.empty()) {
        const PendingFolder folder = std::move(folders_.back());
        folders_.pop_back();
        ReadFolder(folder);
      }
      // Blocks kept by removed streams' records go last: whatever a live
      // stream holds is the live stream's.
      for (const Found& removed : removed_) walker_.Walk(removed.owner, removed.record, removed.offset);
    }
    Finish();
  }
  if (file_.failed()) {
    report.readError = "read error at offset " + std::to_string(file_.failedAt());
    return report;
  }
  if (progress_) progress_(facts_.fileSize, facts_.fileSize);
  report.readable = true;
  report.container = container_;
  report.directorySound = directorySound_;
  report.facts = facts_;
  report.problemCount = problems_.count();
  report.problems = problems_.TakeSorted();
  return report;
}

bool ContainerChecker::CheckHeader() {
  const int64_t size = file_.size();
  facts_.fileSize = size;
  layout_.fileSize = size;
  unsigned char bytes[format::kFileHeaderSize] = {};
  if (!file_.Read(0, bytes, std::min<int64_t>(size, format::kFileHeaderSize))) return false;
  if (size < format::kFileHeaderSize) {
    problems_.Add(0, CheckProblemKind::kHeader,
                  "the file is " + std::to_string(size) + " bytes long, shorter than a container header");
    return false;
  }
  if (std::memcmp(bytes, format::kMagic, format::kMagicCompared) != 0) {
    problems_.Add(0, CheckProblemKind::kHeader, "no container magic at the start of the file");
    return false;
  }
  container_ = true;
  format::FileHeader header;
  if (!format::DecodeFileHeader(bytes, sizeof bytes, header)) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", bytes[24]);
    problems_.Add(24, CheckProblemKind::kHeader, std::string("the version byte ") + text + " is not a known version");
    return false;
  }
  facts_.version = header.version;
  facts_.legacy = header.legacy;
  facts_.offsets64 = header.b64;
  facts_.slotsPerTable = header.slotsPerTable;
  facts_.reservedSlots = header.reservedSlots;
  facts_.headerLength = header.headerLength;
  layout_.b64 = header.b64;
  layout_.headerLength = header.headerLength;
  if (header.slotsPerTable != format::kSlotsPerTable) {
    problems_.Add(26, CheckProblemKind::kHeader,
                  "root tables added to this file would get " + std::to_string(header.slotsPerTable) +
                      " slots, but only tables of " + std::to_string(format::kSlotsPerTable) + " slots can be read");
  }
  space_.AddStructure(0, header.headerLength, SpaceUse::kFileHeader);
  return true;
}

void ContainerChecker::WalkRootTables() {
  std::unordered_set<int64_t> seen;
  bool sound = true;
  int64_t holder = 0;  // where the link to the table lies; 0: the first table follows the header
  for (int64_t offset = layout_.headerLength; offset != 0 && sound;) {
    const std::string link =
        holder == 0 ? "the first root table" : "the next-table link of the root table at " + std::to_string(holder);
    sound = false;
    if (offset < layout_.headerLength) {
      problems_.Add(holder, CheckProblemKind::kLink,
                    link + " points to " + std::to_string(offset) +
                        (offset < 0 ? ", a negative offset" : ", inside the file header"));
    } else if (!file_.Contains(offset, layout_.tableHeader())) {
      problems_.Add(holder == 0 ? offset : holder, CheckProblemKind::kPastEnd,
                    link + " at " + std::to_string(offset) + " lies past the end of the file at " +
                        std::to_string(file_.size()));
    } else if (!seen.insert(offset).second) {
      problems_.Add(holder, CheckProblemKind::kCycle,
                    link + " comes back to the root table at " + std::to_string(offset));
    } else {
      const int64_t table = offset;
      sound = ReadRootTable(table, offset);
      holder = table;
    }
  }
  directorySound_ = sound && !file_.failed();
}

bool ContainerChecker::ReadRootTable(int64_t offset, int64_t& next) {
  std::vector<unsigned char> bytes(static_cast<size_t>(layout_.tableSize()));
  if (!file_.Read(offset, bytes.data(), layout_.tableHeader())) return false;
  const format::TableHeader table = format::DecodeTableHeader(bytes.data(), layout_.b64);
  if (table.marker != format::kTableMarker) {
    problems_.Add(offset, CheckProblemKind::kTable,
                  "no root table marker at " + std::to_string(offset) + " (found " + Hex32(table.marker) + ")");
    return false;
  }
  if (table.slotCount != format::kSlotsPerTable) {
    problems_.Add(offset + 4, CheckProblemKind::kTable,
                  "the root table at " + std::to_string(offset) + " has " + std::to_string(table.slotCount) +
                      " slots; every root table must have " + std::to_string(format::kSlotsPerTable));
    return false;
  }
  if (!file_.Contains(offset, layout_.tableSize())) {
    problems_.Add(offset, CheckProblemKind::kPastEnd,
                  "the root table at " + std::to_string(offset) + " passes the end of the file at " +
                      std::to_string(file_.size()));
    return false;
  }
  if (!file_.Read(offset, bytes.data(), layout_.tableSize())) return false;
  space_.AddStructure(offset, offset + layout_.tableSize(), SpaceUse::kTable);
  ++facts_.tables;
  facts_.rootSlots += format::kSlotsPerTable;
  for (int slot = 0; slot < format::kSlotsPerTable; ++slot) {
    const int64_t at = offset + layout_.tableHeader() + static_cast<int64_t>(slot) * layout_.recordSize();
    const InspectedRecord inspected =
        InspectRecord(bytes.data() + (at - offset), at, true, layout_.b64,
                      "root slot " + std::to_string(slot) + " of the table at " + std::to_string(offset), problems_);
    const int32_t owner = Note(inspected.state, inspected.record, at, -1);
    if (owner >= 0) roots_.push_back({owner, inspected.record, at});
  }
  if (table.next < 0) {
    problems_.Add(offset + 8, CheckProblemKind::kLink,
                  "the next-table link of the root table at " + std::to_string(offset) + " holds the negative offset " +
                      std::to_string(table.next));
    return false;
  }
  next = table.next;
  return true;
}

int32_t ContainerChecker::Note(RecordState state, const t_aoStreamU& record, int64_t offset, int32_t parent) {
  if (state == RecordState::kDamaged) return -1;
  if (state == RecordState::kFree) {
    if (record.firstBlock != 0 || record.lastBlock != 0) {
      const int32_t owner = owners_.Add({parent, "", offset, false, false});
      removed_.push_back({owner, record, offset});
    }
    return -1;
  }
  const bool folder = (record.flags & kAoFlagFolder) != 0;
  if (parent < 0) ++facts_.rootStreams;
  ++(folder ? facts_.folders : facts_.streams);
  facts_.dataBytes += std::max<int64_t>(record.dataLength, 0);
  return owners_.Add({parent, record.name, offset, true, folder});
}

void ContainerChecker::WalkStream(const Found& found) {
  ChainFacts chain = walker_.Walk(found.owner, found.record, found.offset);
  facts_.blocks += chain.blocks;
  facts_.allocatedBytes += chain.capacity;
  // A folder's records are read from the blocks its own walk claimed, and no
  // other walk can claim them again: every byte of folder data is read at
  // most once, whatever the records say.
  if (owners_[found.owner].folder && !chain.data.empty())
    folders_.push_back({found.owner, std::move(chain.data), std::max<int64_t>(found.record.dataLength, 0),
                        found.offset});
}

void ContainerChecker::ReadFolder(const PendingFolder& folder) {
  if (folder.length == 0) return;  // read as a folder without children
  const std::string who = owners_.Describe(folder.owner);
  if (folder.length < 4) {
    problems_.Add(folder.recordOffset, CheckProblemKind::kFolder,
                  who + ": its length " + std::to_string(folder.length) + " is too short for its child count");
    return;
  }
  int64_t held = 0;
  for (const Segment& segment : folder.data) held += segment.length;
  const int64_t readable = std::min(folder.length, held);
  SegmentReader reader(file_, folder.data, readable);
  unsigned char head[4];
  int64_t headAt = 0;
  if (!reader.Next(head, 4, &headAt)) return;  // too little data: the walk reported the length
  const uint32_t count = format::GetU32(head);
  const int64_t size = layout_.recordSize();
  const int64_t needed = 4 + static_cast<int64_t>(count) * size;
  if (needed > folder.length) {
    problems_.Add(headAt, CheckProblemKind::kFolder,
                  who + ": its child count " + std::to_string(count) + " needs " + std::to_string(needed) +
                      " bytes of folder data, but the folder holds " + std::to_string(folder.length));
  }
  const int64_t records = std::min<int64_t>(count, (readable - 4) / size);
  std::vector<unsigned char> raw(static_cast<size_t>(size));
  for (int64_t index = 0; index < records; ++index) {
    int64_t at = 0;
    if (!reader.Next(raw.data(), size, &at)) break;
    const InspectedRecord inspected = InspectRecord(
        raw.data(), at, false, layout_.b64, "child record " + std::to_string(index) + " of " + who, problems_);
    const int32_t owner = Note(inspected.state, inspected.record, at, folder.owner);
    if (owner >= 0) WalkStream({owner, inspected.record, at});
  }
}

void ContainerChecker::Tick() {
  if (progress_ && ++ticks_ % kBlocksPerProgressCall == 0)
    progress_(std::min(space_.recordedBytes(), facts_.fileSize), facts_.fileSize);
}

void ContainerChecker::Finish() {
  space_.ReportOverlaps(owners_, problems_);
  if (scope_ != CheckScope::kFull) return;
  facts_.structureBytes =
      facts_.headerLength + facts_.tables * layout_.tableSize() + facts_.blocks * layout_.blockHeader();
  const int64_t inUse = space_.CoveredBytes(
      [this](const Extent& extent) { return extent.use != SpaceUse::kBlock || owners_[extent.owner].live; });
  facts_.freeRecordBytes = space_.CoveredBytes(
      [this](const Extent& extent) { return extent.use == SpaceUse::kBlock && !owners_[extent.owner].live; });
  facts_.unreferencedBytes = std::max<int64_t>(facts_.fileSize - inUse, 0);
  facts_.reclaimableBytes =
      std::max<int64_t>(facts_.allocatedBytes - facts_.dataBytes, 0) + facts_.unreferencedBytes;
}

}  // namespace ao::check
