// Records shared by the container, its streams and their callers.
#ifndef AOSTORE_TYPES_H
#define AOSTORE_TYPES_H

#include <cstdint>
#include <string>

#include "aostore/export.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
// The Windows geometry records, with the same fields, where windows.h is absent.
struct RECT {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
};
struct SIZE {
  int32_t cx;
  int32_t cy;
};
#endif

namespace ao {
// Host file handle: a POSIX descriptor or a Win32 HANDLE, -1 when invalid.
using FileHandle = std::intptr_t;
inline constexpr FileHandle kInvalidFile = -1;
}  // namespace ao

// Longest stream name, without its terminating NUL.
inline constexpr int kAoMaxNameLength = 51;
// Size of the name field of a stream header record, terminator included.
inline constexpr int kAoNameFieldSize = 52;

// Open flags of containers and streams.
inline constexpr uint32_t kAoRead = 0x02;
inline constexpr uint32_t kAoReadWrite = 0x04;
inline constexpr uint32_t kAoShareRead = 0x08;
inline constexpr uint32_t kAoShareReadWrite = 0x10;
inline constexpr uint32_t kAoExclusive = 0x20;
inline constexpr uint32_t kAoModeInspect = 0x12;  // read, shared read and write
inline constexpr uint32_t kAoModeEdit = 0x16;     // read and write, shared

// Bits of the stream flag byte.
inline constexpr uint8_t kAoFlagFolder = 0x01;
inline constexpr uint8_t kAoFlagSizePrefix = 0x02;

// A stream header record in memory. On disk it is 80 bytes (32-bit offsets) or
// 92 bytes (64-bit offsets); the codecs in the library translate field by field.
struct AOSTORE_API t_aoStreamU {
  uint32_t marker = 0;          // 0xFCFCFCFC
  char name[kAoNameFieldSize] = {};
  uint64_t childInfo = 0;       // child-stream information bits
  uint8_t mark = 0;             // set to 1 on creation, removal and info update
  uint16_t duration = 0;        // high 16 bits of the creation attributes
  uint8_t flags = 0;            // kAoFlagFolder, kAoFlagSizePrefix
  int64_t dataLength = 0;
  int64_t lastBlock = 0;
  int64_t firstBlock = 0;
};

// Where a stream header record lives, so that it can be found again.
struct AOSTORE_API tag_aoStreamOffset {
  int64_t recordOffset = 0;  // file offset of the header record
  int64_t tableOffset = 0;   // root table holding it (0 for a child)
  uint32_t slotCount = 0;    // slots of that table (0 for a child)
  uint32_t duration = 0;     // record duration multiplied by 60
  uint64_t childInfo = 0;    // record child-stream information
  uint8_t mark = 0;          // record byte 64
  // A child record may cross a block boundary of its folder's data: its first
  // splitAt bytes lie at recordOffset and the rest at continuation (0 when the
  // record lies in one piece).
  uint32_t splitAt = 0;
  int64_t continuation = 0;
};

// A child record together with its position (preloaded folder maps).
struct AOSTORE_API t_aoStreamWithOffset {
  t_aoStreamU record;
  tag_aoStreamOffset where;
};

// One entry of an open-stream list: the first opener's mode decides sharing.
struct AOSTORE_API t_OpenStream {
  std::string name;
  uint32_t count = 0;
  uint32_t mode = 0;
};

// Caller-owned cursor of aoStorage::IterateSortedStreamsNoOPENS.
struct AOSTORE_API CIterateSortedStreams {
  int32_t m_bFirst = 1;
  uint32_t m_nFixedSpan = 0;
  int32_t m_nSortMode = 0;
  uint32_t m_nLastSpan = 0;
  int32_t m_nPos = 0;
  std::string m_strName;
  tag_aoStreamOffset m_offset;
  uint32_t m_nSpan = 0;
};

#endif  // AOSTORE_TYPES_H
