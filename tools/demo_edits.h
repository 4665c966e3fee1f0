// The demo's edits: typed entries written and read back, and a session of
// edits recorded on one container and replayed into a copy of it.
#ifndef AOSTORE_TOOLS_DEMO_EDITS_H
#define AOSTORE_TOOLS_DEMO_EDITS_H

#include <ostream>
#include <string>

namespace aotool {

// Writes one entry of every type into the folder demo/settings of the
// container at file, reads each back and prints it. False when a value read
// back differs from the one written.
bool WriteTypedEntries(const std::string& file, std::ostream& out);

// Records a session of edits (a removal, entries of a new folder, blob
// appends, a root entry) on the container at file, replays the log into the
// container at replica (a copy of file made before), and compares the two.
// False when the replay or the comparison falls short.
bool RecordAndReplay(const std::string& file, const std::string& replica, std::ostream& out);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_DEMO_EDITS_H
