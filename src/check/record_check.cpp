#include "check/record_check.h"

#include <cstdio>
#include <cstring>

#include "storage/format.h"

namespace ao::check {

InspectedRecord InspectRecord(const unsigned char* raw, int64_t offset, bool rootSlot, bool b64,
                              const std::string& place, ProblemLog& problems) {
  InspectedRecord result;
  const std::string where = place + " at " + std::to_string(offset);
  const uint32_t marker = format::GetU32(raw);
  const unsigned char* name = raw + format::kRecordNameOffset;
  const bool nameEmpty = name[0] == 0;
  if (rootSlot && marker == 0) {
    if (nameEmpty) {
      result.state = RecordState::kFree;
    } else {
      problems.Add(offset, CheckProblemKind::kRecord, where + " has a name but no record marker");
    }
    return result;
  }
  if (marker != format::kRecordMarker) {
    problems.Add(offset, CheckProblemKind::kRecord, where + " has no record marker (found " + Hex32(marker) + ")");
    return result;
  }
  if (std::memchr(name, 0, kAoNameFieldSize) == nullptr) {
    problems.Add(offset + format::kRecordNameOffset, CheckProblemKind::kRecord,
                 where + ": the name is not terminated within its " + std::to_string(kAoNameFieldSize) + " bytes");
    return result;
  }
  result.record = format::DecodeRecord(raw, b64);
  if (nameEmpty) {
    result.state = RecordState::kFree;
    return result;
  }
  result.state = RecordState::kLive;
  const std::string stream = where + " (\"" + result.record.name + "\")";
  const unsigned flags = result.record.flags;
  if ((flags & ~static_cast<unsigned>(kAoFlagFolder | kAoFlagSizePrefix)) != 0) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", flags);
    problems.Add(offset + format::kRecordFlagsOffset, CheckProblemKind::kRecord,
                 stream + " has unknown flag bits in its flag byte " + text);
  }
  if (result.record.dataLength < 0) {
    problems.Add(offset + format::kRecordLengthOffset, CheckProblemKind::kRecord,
                 stream + " has the negative length " + std::to_string(result.record.dataLength));
  }
  return result;
}

}  // namespace ao::check
