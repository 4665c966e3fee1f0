// Room a killed writer left at the end of a container file.
#ifndef AOSTORE_STORAGE_ROOM_RECLAIM_H
#define AOSTORE_STORAGE_ROOM_RECLAIM_H

#include "aostore/types.h"

namespace ao {

// While a container is written, its file is grown ahead of its end, and a
// writer killed before it gave that room back leaves it behind, marked with
// where the writer began appending. Blocks and root tables are appended one
// after the other from there, so walking them from that place finds the end
// of everything that writer wrote; the file is cut back to it. What the walk
// stops at (a header half written, room never used) is appended space that
// nothing refers to. Called by the first writer of the file, which holds the
// lock that keeps other processes from writing it.
void GiveBackRoomLeftBehind(FileHandle file);

}  // namespace ao

#endif  // AOSTORE_STORAGE_ROOM_RECLAIM_H
