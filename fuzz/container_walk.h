// Everything a reader (and a careless writer) can reach in a container,
// bounded so that any input finishes quickly. Shared by the fuzz targets
// and the regression test that replays their findings.
#ifndef AOSTORE_FUZZ_CONTAINER_WALK_H
#define AOSTORE_FUZZ_CONTAINER_WALK_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace ao::fuzz {

// Writes bytes to path, then opens it as a container every way the library
// offers and walks it: in memory, read-only from the file, and read-write
// with a few edits. Returns the number of streams it reached.
int WalkContainerBytes(const std::string& path, const uint8_t* data, size_t size);

// Opens a small valid container at path and replays log on it; then reads
// the log op by op. Returns the number of ops replayed.
int ReplayLogBytes(const std::string& path, const uint8_t* data, size_t size);

// A scratch file name for this process (in /dev/shm when it exists).
std::string ScratchPath(const char* stem);

}  // namespace ao::fuzz

#endif  // AOSTORE_FUZZ_CONTAINER_WALK_H
