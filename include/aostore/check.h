// Structural verification of a container file, and the facts about its space
// that inspection tools report. The checker reads the raw bytes itself and
// trusts none of them: it never opens the file through aoStorage, so a
// damaged file is examined as it is and never changed.
#ifndef AOSTORE_CHECK_H
#define AOSTORE_CHECK_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "aostore/export.h"

namespace ao {

// What is wrong at a place in the file.
enum class CheckProblemKind {
  kHeader,   // the file header: magic, version or slot counts
  kTable,    // a root directory table: marker or slot count
  kRecord,   // a stream header record: marker, name, flags or fields
  kBlock,    // a block header: marker, or a data end outside the block
  kLink,     // a link that leads nowhere valid, or next and previous links disagreeing
  kCycle,    // a chain of tables or blocks that comes back on itself
  kPastEnd,  // something that reaches past the end of the file
  kShared,   // one block in the chains of two streams
  kOverlap,  // two structures (header, tables, blocks) covering the same bytes
  kLength,   // a data length that the stream's chain does not hold
  kFolder,   // a folder whose child count does not fit its data
};

// A short lower-case name of the kind ("header", "shared", ...).
AOSTORE_API const char* CheckProblemKindName(CheckProblemKind kind);

struct CheckProblem {
  int64_t offset = 0;  // file offset of the damaged bytes
  CheckProblemKind kind = CheckProblemKind::kHeader;
  std::string message;  // one line, naming the stream concerned where there is one
};

// Facts about the file and the space it uses. Counts cover what the checker
// could reach; bytes are file bytes.
struct ContainerFacts {
  char version = 0;           // the version character as stored
  bool legacy = false;        // the legacy header without version
  bool offsets64 = false;     // 64-bit offsets
  uint16_t slotsPerTable = 0;
  uint16_t reservedSlots = 0;
  int64_t headerLength = 0;   // offset of the first root table
  int64_t fileSize = 0;
  int64_t tables = 0;         // root directory tables
  int64_t rootSlots = 0;
  int64_t rootStreams = 0;    // root slots in use (folders and data streams)
  int64_t folders = 0;        // folders anywhere in the tree
  int64_t streams = 0;        // data streams anywhere in the tree
  int64_t blocks = 0;         // blocks in the chains of live streams
  int64_t dataBytes = 0;      // data held by live streams (their lengths)
  int64_t allocatedBytes = 0; // capacity of the blocks of live streams
  int64_t structureBytes = 0; // file header, root tables and block headers of live streams
  int64_t freeRecordBytes = 0;   // blocks still held by removed streams' records
  int64_t unreferencedBytes = 0; // bytes in no header, table or live block
  // What a compaction could give back: capacity without data plus every
  // unreferenced byte.
  int64_t reclaimableBytes = 0;
};

enum class CheckScope {
  kDirectory,  // the header, the root tables and their records: what opening needs
  kFull,       // everything: every chain, every folder, space and overlaps
};

struct CheckReport {
  // False when the file could not be opened or read at all (readError says why).
  bool readable = false;
  std::string readError;
  // True when the header is a container header.
  bool container = false;
  // True when the header and the root table chain are sound, so that the
  // library can open the file (aoStorage::Open deletes a file whose root
  // directory it cannot load: look before opening a file of unknown health).
  bool directorySound = false;
  ContainerFacts facts;
  // The problems found, in file order; at most kMaxListed are kept.
  std::vector<CheckProblem> problems;
  int64_t problemCount = 0;  // all problems found, also those not kept

  static constexpr size_t kMaxListed = 10000;
  bool Clean() const { return readable && problemCount == 0; }
};

// Called now and then with the bytes examined so far and the file size.
using CheckProgress = std::function<void(int64_t done, int64_t total)>;

// Verifies the container at path without changing it: the header, every root
// table (marker, slot count, a chain without cycles inside the file), every
// stream header record, every block chain in both directions, data ends
// within block ends, lengths covered by their chains, folder child counts
// within folder data, no block in two chains, no two structures on the same
// bytes, nothing past the end of the file. Work and memory grow with the
// file's size, never with values read from it.
AOSTORE_API CheckReport CheckContainer(const char* path, CheckScope scope = CheckScope::kFull,
                                       const CheckProgress& progress = nullptr);

}  // namespace ao

#endif  // AOSTORE_CHECK_H
