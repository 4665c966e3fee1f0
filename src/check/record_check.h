// Reads one stream header record (a root slot or a child record of a folder)
// and tells whether it describes a stream, a free place or damage.
#ifndef AOSTORE_CHECK_RECORD_CHECK_H
#define AOSTORE_CHECK_RECORD_CHECK_H

#include <cstdint>
#include <string>

#include "aostore/types.h"
#include "check/problem_log.h"

namespace ao::check {

enum class RecordState {
  kFree,     // an empty name: a free slot, perhaps keeping a removed stream's blocks
  kLive,     // a stream in use
  kDamaged,  // not a record (reported); nothing in it is used
};

struct InspectedRecord {
  RecordState state = RecordState::kDamaged;
  t_aoStreamU record;
};

// raw holds the record's bytes (80 or 92). place names it in messages, such
// as "root slot 7". Slots of a root table added later carry no marker until
// they are first used; a child record always carries one.
InspectedRecord InspectRecord(const unsigned char* raw, int64_t offset, bool rootSlot, bool b64,
                              const std::string& place, ProblemLog& problems);

}  // namespace ao::check

#endif  // AOSTORE_CHECK_RECORD_CHECK_H
