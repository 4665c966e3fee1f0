// aoStorage: one open container file.
#ifndef AOSTORE_STORAGE_H
#define AOSTORE_STORAGE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "aostore/export.h"
#include "aostore/map_sort.h"
#include "aostore/open_stream_list.h"
#include "aostore/types.h"

class aoStream;
class CCompRecorder;
struct t_FileRef;
namespace ao {
struct StorageInternals;
}

// A container: a host file (or an in-memory image of it) holding a tree of
// named streams. Made only by the static factories; ended with Release().
// Every aoStream handed out is owned by the caller until aoStream::Release.
class AOSTORE_API aoStorage {
 public:
  // Largest host file offset a 64-bit file may reach (32-bit files: 0xFFFFFFFF).
  static int64_t g_iMaxVastrelSize;
  // Largest data position of any stream.
  static int64_t g_iMaxCompStmSize;
  // Non-zero: Create writes version "2" (64-bit offsets), else "1".
  static int g_bUse64BitOffsets;
  // Non-zero (the default): on POSIX systems containers opened from now on
  // are read and written through a shared mapping of their file, which is
  // grown ahead of its end while written, and a SIGBUS handler turns a fault
  // in the library's own copies into a failed call. Zero: plain read and
  // write calls only, no mapping and no handler.
  static int g_bUseFileMapping;
  // How long an open waits for another process to stop writing the file
  // (or, for a writer, to stop reading it) before it fails; 0, the default,
  // fails at once. Milliseconds.
  static int g_iLockWaitMilliseconds;

  // ---- Lifecycle. Each factory returns a new object or null.
  // New empty container; an existing file at the path is overwritten.
  static aoStorage* Create(const char* path, uint32_t flags, uint32_t minBlockCapacity);
  // Existing container with its root directory loaded. With loadIntoMemory and
  // without flag 0x04 the whole file is read into memory and never written.
  static aoStorage* Open(const char* path, uint32_t flags, uint32_t minBlockCapacity, int loadIntoMemory);
  // Existing container, header only: only the reserved fast slots are usable.
  static aoStorage* OpenFast(const char* path, uint32_t flags, uint32_t minBlockCapacity);
  static aoStorage* OpenOrCreate(const char* path, uint32_t flags, uint32_t minBlockCapacity);
  // Rebuilds the container at path compactly; 1 on success, 0 on failure.
  static int Recreate(const char* path);
  // Rebuilds what storage has open, ends storage and returns a fresh object on
  // the rebuilt file; returns storage untouched if the rebuild cannot start.
  static aoStorage* Recreate(aoStorage* storage, const char* path);

  // Closes the file and destroys the object.
  void Release();
  const char* GetPath();
  // Makes everything written to the container so far durable: after it
  // returns 1, a power cut loses none of it. 0 on failure (ao::LastError
  // says why), and for an object that does not write the file.
  int Sync();

  // ---- Facts of the open file (for tools).
  char GetVersion() const { return m_version; }
  bool Uses64BitOffsets() const { return m_b64; }
  uint16_t GetSlotsPerTable() const { return m_slotsPerTable; }
  uint16_t GetReservedSlots() const { return m_reservedSlots; }
  int64_t GetHeaderLength() const { return m_headerLength; }
  bool IsInMemory() const { return m_inMemory; }
  // Size of the host file (or of the in-memory image); -1 when unknown.
  int64_t GetFileSize();

  // ---- Root stream directory.
  aoStream* CreateStream(const char* name, uint32_t mode);
  aoStream* CreateStream(const char* name, uint32_t attributes, uint32_t mode);
  aoStream* CreateStreamFast(const char* name, uint32_t mode);
  aoStream* CreateStreamFast(const char* name, uint32_t attributes, uint32_t mode);
  aoStream* CreateStreamHelper(const char* name, uint32_t attributes, uint32_t mode, bool reserved, bool openFirst);
  aoStream* OpenStream(const char* name, uint32_t mode);
  aoStream* OpenStreamFast(const char* name, uint32_t mode);
  aoStream* OpenStreamByOffset(tag_aoStreamOffset& where, const char* name, uint32_t mode);
  aoStream* OpenOrCreateStream(const char* name, int attributes);
  aoStream* OpenOrCreateStreamFast(const char* name, int append);
  aoStream* FindRootStream(const char* name);
  aoStream* FindRootStorage(const char* name);
  aoStream* FindRootStorageWrite(const char* name);
  aoStream* OpenStreamFirst(void** position, uint32_t mode, int snapshot);
  aoStream* OpenStreamNext(void** position, uint32_t mode);
  aoStream* OpenStreamFirst(uint32_t mode);
  aoStream* OpenStreamFirst2(int* position, uint32_t mode);
  aoStream* OpenStreamNext2(int* position, uint32_t mode);
  bool RemoveStream(const char* name);
  int RenameStreamHeaderName(int64_t recordOffset, char* name, uint32_t length);
  uint32_t GetSubfolderCount(const char* name);
  void EnableSorting(int enable, int mode);
  CMapStringToStreamOffset* CreateSortedStreamList();
  void DestroySortedStreamList(CMapStringToStreamOffset* list);
  int IterateSortedStreamsNoOPENS(CIterateSortedStreams* iterate, int snapshot);
  bool InitStreamMap();
  bool FindStreamOffset(const char* name, tag_aoStreamOffset& where);
  t_OpenStream* IsStreamOpen(const char* name);
  t_OpenStream* AddNewOpenStream(const char* name, uint32_t mode);
  int CloseStream(const char* name);

  // ---- Typed entries: root streams whose bytes are a value.
  std::string GetEntry(const char* name, const char* def);
  int GetEntry(const char* name, int def);
  uint32_t GetEntry(const char* name, uint32_t def);
  double GetEntry(const char* name, double def);
  int64_t GetEntry(const char* name, int64_t def);
  std::string GetEntryFast(const char* name, const char* def);
  int GetEntryFast(const char* name, int def);
  double GetEntryFast(const char* name, double def);
  int64_t GetEntryFast(const char* name, int64_t def);
  // Allocates *data (free with aoFreeBuffer); 1 on success, also for an empty entry.
  int GetEntryErasedOld(const char* name, void** data, unsigned int* size);
  int GetEntryErasedOld(const char* name, void* buffer, unsigned int size);
  int SetEntry(const char* name, const char* value);
  int SetEntry(const char* name, int value);
  int SetEntry(const char* name, uint32_t value);
  int SetEntry(const char* name, double value);
  int SetEntry(const char* name, int64_t value);
  int SetEntry(const char* name, void* data, uint32_t size);
  int SetEntryFast(const char* name, const char* value);
  int SetEntryFast(const char* name, int value);
  int SetEntryFast(const char* name, double value);
  int SetEntryFast(const char* name, int64_t value);
  int SetEntryEraseOld(const char* name, void* data, uint32_t size, int prependSize);
  int SetEntryNoPrefix(const char* name, void* data, uint32_t size);

  // ---- Recording and replay.
  int StartRecording();
  // Hands the recorder (owned by the caller) out; null when not recording.
  CCompRecorder* StopRecording();
  // Applies a log; returns the number of op records processed.
  int ReplayRecording(unsigned char* log, uint32_t length);
  // The active recorder, or null.
  CCompRecorder* GetRecorder() const { return m_recorder; }

 private:
  friend class aoStream;
  friend struct ao::StorageInternals;

  aoStorage(const char* path, ao::FileHandle file, uint32_t flags, int loadIntoMemory, int64_t filePosition,
            t_FileRef* fileRef, bool writer);
  ~aoStorage();
  aoStorage(const aoStorage&) = delete;
  aoStorage& operator=(const aoStorage&) = delete;

  // fileRef: the file's shared reference, already counted for this object;
  // a failure closes the file and uncounts it.
  static aoStorage* ReadStorageHeader(ao::FileHandle file, const char* path, uint32_t flags,
                                      uint32_t minBlockCapacity, int loadIntoMemory, t_FileRef* fileRef);
  void FlagsToAttributes(uint32_t flags, uint32_t& access, uint32_t& share);
  void Lock();
  void Unlock();
  int ReadFile(ao::FileHandle file, void* buffer, int64_t count, int64_t* done, void* overlapped);
  int64_t SetFilePointer(ao::FileHandle file, int64_t distance, uint32_t method);
  bool WriteStreamHeader(int64_t offset, t_aoStreamU& header);

  // Rewrites count bytes of the host file at offset (file mode only), under
  // the storage lock.
  bool WriteInPlace(int64_t offset, const void* bytes, int64_t count);
  // Positioned read from the file or the image; false when it cannot be had.
  // zeroFirst: the buffer is cleared first, so that a read that fails
  // leaves no bytes of an earlier one in it.
  bool ReadAtFile(int64_t offset, void* buffer, int64_t count, bool zeroFirst = true);
  struct FreeSlot;
  bool FindFreeSlot(bool reserved, FreeSlot& slot);
  bool ScanTablesForFreeSlot(bool reserved, FreeSlot& slot);
  bool AppendRootTable(int64_t previousTable, FreeSlot& slot);
  aoStream* OpenFirstOrdinarySlot(uint32_t mode);
  // Reads a whole root table; false on a bad read or table marker.
  // fileSize: the size of the file the table must lie in.
  bool ReadRootTable(int64_t offset, std::vector<unsigned char>& bytes, uint32_t& slotCount, int64_t& next,
                     int64_t fileSize);
  // Visits every table of the chain in order; false when the chain is damaged.
  // visit(tableOffset, slotCount, tableBytes) returns false to stop early.
  bool WalkRootTables(const std::function<bool(int64_t, uint32_t, const unsigned char*)>& visit);
  bool HasUsableFile() const;
  int64_t FileLimit() const;
  int RecordSize() const;
  int TableHeaderSize() const;
  void PublishTail();
  void ReplaceSnapshot(int snapshot);
  aoStream* OpenMapEntry(const void* assoc, uint32_t mode);
  aoStream* FindRootOfKind(const char* name, bool folders, bool writeFirst);
  // Writes source's whole tree compactly into a new container at temporary;
  // false, with no file left there, when any of it could not be copied.
  static bool WriteCompactCopy(aoStorage* source, const char* temporary);

  uint32_t m_minBlockCapacity = 0;
  char m_path[260] = {};
  int m_fastOpen = 0;
  uint16_t m_slotsPerTable = 64;
  uint16_t m_reservedSlots = 6;
  int64_t m_headerLength = 32;
  int64_t m_tail = 0;
  ao::OpenStreamList m_openStreams;
  std::vector<std::string> m_names;
  CCompRecorder* m_recorder = nullptr;
  CMapStringToStreamOffset* m_snapshot = nullptr;
  t_FileRef* m_fileRef = nullptr;
  bool m_writer = false;  // counted as a writer of the file
  bool m_created = false;  // made the file: its folder entry is synced once
  bool m_b64 = false;
  ao::FileHandle m_file = ao::kInvalidFile;
  bool m_inMemory = false;
  unsigned char* m_image = nullptr;
  int64_t m_imageSize = 0;
  int64_t m_imagePos = 0;
  char m_version = '2';
  int64_t m_filePos = 0;  // this object's own host-file position
  int m_sortingEnabled = 0;
  int m_sortMode = 0;
};

#endif  // AOSTORE_STORAGE_H
