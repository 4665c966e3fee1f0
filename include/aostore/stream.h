// aoStream: one stream or folder of a container; aoStream2: a memory stream.
#ifndef AOSTORE_STREAM_H
#define AOSTORE_STREAM_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "aostore/export.h"
#include "aostore/map_sort.h"
#include "aostore/open_stream_list.h"
#include "aostore/types.h"

class aoStorage;
namespace ao {
struct StreamInternals;
struct FolderLayout;
class FolderScanner;
class ChildIndex;
class FolderIndex;
}

// A stream's bytes are a chain of blocks in the host file. Folders are streams
// whose data is a u32 child count followed by their children's header records.
// Objects are handed out by the open, create and enumeration operations and
// are given back with Release().
class AOSTORE_API aoStream {
 public:
  aoStream(aoStorage* storage, t_aoStreamU& header, ao::FileHandle file, tag_aoStreamOffset& where);
  aoStream(aoStream* parent, t_aoStreamU& header, ao::FileHandle file, tag_aoStreamOffset& where);
  virtual ~aoStream();
  aoStream(const aoStream&) = delete;
  aoStream& operator=(const aoStream&) = delete;

  // ---- Data I/O.
  // Bytes read; 0 at the end or without a block; -1 on error.
  virtual int64_t Read(void* buffer, int64_t count);
  // Bytes written (fewer at a limit), 0 when nothing may be written, -1 on
  // error. setEnd makes the end of this write the end of the data.
  // filePosition receives the host-file offset of the first byte written.
  virtual int64_t Write(const void* buffer, int64_t count, bool setEnd, int64_t* filePosition);
  // 0 on success, -1 on failure; GetCurDataPos tells the new position.
  int64_t Seek(int64_t offset, unsigned char origin, bool forward);
  int64_t Seek2(int64_t offset, unsigned int origin);
  bool SetLength(int64_t length);
  int PreallocateSpace(int64_t size);
  int PrependSize(uint32_t size);
  int GetVerifiedDataLength(int64_t& length);
  int64_t GetAllocLength();
  int64_t GetLength();
  int64_t GetCurDataPos();

  // ---- Children and folders.
  aoStream* CreateStream(const char* name, uint32_t attributes, uint32_t mode, int unique);
  bool AddStreamHeader(const char* name, uint32_t attributes, t_aoStreamU& record, tag_aoStreamOffset& where,
                       int reuseFree);
  bool FindStream(const char* name, t_aoStreamU& record, tag_aoStreamOffset& where);
  aoStream* OpenStream(const char* name, uint32_t mode);
  aoStream* OpenOrCreateStream(const char* name, int attributes);
  aoStream* OpenOrCreateStream(const char* name, uint32_t attributes, uint32_t mode);
  aoStream* OpenStreamByOffset(t_aoStreamU& record, tag_aoStreamOffset& where, const char* name, uint32_t mode);
  aoStream* OpenStreamFirst(int64_t* position, uint32_t mode);
  aoStream* OpenStreamNext(int64_t* position, uint32_t mode);
  void EnumStreams(std::vector<std::string>& names);
  int GetChildrenOf(aoStream* ancestor, aoStream** out, int max);
  bool Remove();
  bool Erase();
  bool Rename(const char* name);
  void ClearFolder();
  bool CopyStream(aoStream* destination);
  bool CopyFolder(aoStream* destination);
  // Buffers handed out are zeroed blocks; free them with FreeBuffer.
  uint32_t CopyStreamToBuffer(unsigned char*& buffer, int skipPrefix);
  int ReadAll(unsigned char** buffer, int64_t* length);
  static void FreeBuffer(unsigned char*& buffer);
  bool UpdateStreamHeaderChildStreamInfo(uint64_t bits);
  // Gives the object back; returns the name's open count before the release.
  int Release();
  uint32_t GetNumChildren();
  aoStream* GetParentStm();
  int IsFolder();
  const char* GetName();
  uint16_t GetDuration();
  aoStorage* GetStorage() const { return m_storage; }
  uint32_t GetMode() const { return m_mode; }
  bool Uses64BitOffsets() const { return m_b64; }
  const t_aoStreamU& GetHeader() const { return m_header; }
  const tag_aoStreamOffset& GetWhere() const { return m_where; }
  t_OpenStream* IsStreamOpen(const char* name);
  t_OpenStream* AddNewOpenStream(const char* name, uint32_t mode);
  int CloseStream(const char* name);

  // ---- Preloading and traversal.
  void PreloadChildren();
  aoStream* OpenPreloadChildrenFirst(void** position, uint32_t mode);
  aoStream* OpenPreloadChildrenNext(void** position, uint32_t mode);
  aoStream* OpenPreloadChildrenByOffset(t_aoStreamU& record, tag_aoStreamOffset& where, const char* name,
                                        uint32_t mode);
  int GetPreloadChildrenOffsetFirst(void** position, uint32_t mode, t_aoStreamWithOffset& out, std::string& name);
  int GetPreloadChildrenOffsetNext(void** position, uint32_t mode, t_aoStreamWithOffset& out, std::string& name);
  void EnableSorting(int enable, int mode);
  bool GoNext();

  // ---- Typed entries: child streams whose bytes are a value.
  std::string GetEntry(const char* name, const char* def);
  int GetEntry(const char* name, int def);
  uint32_t GetEntry(const char* name, uint32_t def);
  double GetEntry(const char* name, double def);
  int64_t GetEntry(const char* name, int64_t def);
  uint64_t GetEntry(const char* name, uint64_t def);
  RECT* GetEntry(const char* name, RECT* out, const RECT* def);
  SIZE* GetEntry(const char* name, SIZE* out, const SIZE* def);
  int GetEntryErasedOld(const char* name, void** data, unsigned int* size);
  int GetEntryErasedOld(const char* name, void* buffer, unsigned int size);
  int SetEntry(const char* name, const char* value);
  int SetEntry(const char* name, int value);
  int SetEntry(const char* name, uint32_t value);
  int SetEntry(const char* name, double value);
  int SetEntry(const char* name, int64_t value);
  int SetEntry(const char* name, uint64_t value);
  int SetEntry(const char* name, RECT* value);
  int SetEntry(const char* name, SIZE* value);
  int SetEntry(const char* name, void* data, uint32_t size);
  int SetEntryEraseOld(const char* name, void* data, uint32_t size, int prependSize);
  int SetEntryNoPrefix(const char* name, void* data, uint32_t size);

  // ---- Serialisation at the current position.
  aoStream& operator>>(unsigned short& value);
  aoStream& operator>>(int& value);
  aoStream& operator>>(double& value);
  aoStream& operator>>(std::string& value);
  aoStream& operator<<(unsigned short value);
  aoStream& operator<<(int value);
  aoStream& operator<<(double value);
  aoStream& operator<<(int64_t value);
  aoStream& operator<<(const char* value);
  aoStream& operator<<(const std::string& value);

  // ---- Stream-level locking (the container's storage lock).
  void Lock();
  void Unlock();

 protected:
  friend class aoStorage;
  friend struct ao::StreamInternals;
  friend class ao::FolderScanner;
  friend class ao::ChildIndex;
  // The stress test preallocates first blocks itself.
  friend class CTestVastrel;

  aoStream();

  int64_t AllocateFirstBlock(int64_t size);
  int64_t AllocateNextBlock(int64_t previous, int64_t size);
  int64_t SeekLeft(int64_t count, bool fromEnd);
  int64_t SeekRight(int64_t count, bool fromStart);
  int ReadFile(ao::FileHandle file, void* buffer, int64_t count, int64_t* done, void* overlapped);
  int64_t SetFilePointer(ao::FileHandle file, int64_t distance, uint32_t method);
  bool WriteStreamHeader(int64_t offset, t_aoStreamU& header);

 private:
  // Helpers shared by the data and folder code.
  int HeaderLength() const { return m_b64 ? 40 : 20; }
  int RecordSize() const { return m_b64 ? 92 : 80; }
  int64_t FileLimit() const;
  // Positioned transfers through this stream's own position (file or image).
  // ioError, when given, tells a failure the system reported from bytes
  // that are not there.
  bool ReadAtFile(int64_t offset, void* buffer, int64_t count, bool* ioError = nullptr);
  bool WriteAtFile(int64_t offset, const void* buffer, int64_t count);
  // Reads and checks the block header at block; false on a bad read or marker.
  bool ReadBlockHeaderAt(int64_t block, int64_t& dataEnd, int64_t& blockEnd, int64_t& prev, int64_t& next,
                         bool* ioError = nullptr);
  bool DecodeCheckedHeader(const unsigned char* bytes, int64_t& dataEnd, int64_t& blockEnd, int64_t& prev,
                           int64_t& next) const;
  // Makes block current with its header loaded (position: just past it).
  bool LoadBlockHeader(int64_t block, bool* ioError = nullptr);
  // Read, as far as it can go straight out of the file's mapping: small
  // blocks cost no system call each. Moves out, remaining and total on;
  // true when the read is complete, false when the rest is read as usual
  // (the file is not mapped, a block is large, damaged or beyond what the
  // mapping holds).
  bool ReadFromMapping(unsigned char*& out, int64_t& remaining, int64_t& total);
  static void WalkMappedBlocks(void* context, const unsigned char* base, int64_t held);
  // As LoadBlockHeader, and for a small want also copies up to want bytes of
  // the block's data into data in the same transfer; got tells how many.
  bool LoadBlockHeaderWithData(int64_t block, unsigned char* data, int64_t want, int64_t& got);
  bool WriteBlockHeader();
  void MoveToBlock(int64_t block);
  // Makes block current with the given header loaded (position: just past it).
  void SetCurrentBlock(int64_t block, int64_t dataEnd, int64_t blockEnd, int64_t prev, int64_t next);
  // Makes a block this object has just allocated current, header loaded,
  // positioned after the carried bytes written with its header.
  void EnterNewBlock(int64_t block, int64_t previous, int64_t capacity, int64_t carried);
  // Writes count bytes of a header record at fieldOffset within it, across a
  // block boundary of the folder when the record straddles one.
  bool WriteRecordAt(const tag_aoStreamOffset& where, int fieldOffset, const unsigned char* bytes, int count);
  bool WriteOwnRecord();
  // Takes this stream's length and block fields from its record on disk
  // (another object on the same file may have changed them).
  bool RefreshOwnRecord();
  bool WriteLengthAndLastBlock();
  // The capacity rule for a block requested with size bytes.
  int64_t BlockCapacity(int64_t size, bool first) const;
  // Allocates a block; carried gives how many bytes of data may be written
  // with its header (data may be null) and receives how many were.
  int64_t AllocateBlock(int64_t previous, int64_t size, bool first, const unsigned char* data, int64_t& carried);
  // How many of the remaining bytes of a write may go out with a new block's
  // header: as many as the next round would write into it.
  int64_t CarryLimit(int64_t remaining) const;
  // Write, also telling where its first bytes landed (and how they split
  // over a block boundary within the first `span` bytes).
  int64_t WriteChunks(const void* buffer, int64_t count, bool setEnd, int64_t* filePosition, int64_t span,
                      tag_aoStreamOffset* where);

  // Folder helpers (the tree code).
  // AddStreamHeader, also telling whether the record was appended (rather
  // than a free record taken over).
  bool AddRecord(const char* name, uint32_t attributes, t_aoStreamU& record, tag_aoStreamOffset& where, int reuseFree,
                 bool& appended);
  // Appends or reuses a record and opens the new child; the caller holds the lock.
  aoStream* CreateChild(const char* name, uint32_t attributes, uint32_t mode, int reuseFree);
  // Writes the in-memory child count at data position 0.
  bool WriteChildCount();
  // Appends a record at data position `at` (the data end unless the count
  // says otherwise); where receives its position.
  bool AppendRecord(int64_t at, const t_aoStreamU& record, tag_aoStreamOffset& where);
  bool RemoveAtDepth(int depth);
  // The index of this folder's records that every object on the file
  // shares, brought up to date with the folder's record on disk and built
  // when missing; null where the records are scanned instead (an in-memory
  // image, a head that cannot be read). The caller holds the storage lock.
  ao::FolderIndex* FolderRecords();
  // The index kept for this stream as a folder is dropped: its data was
  // written other than record by record, or its record was freed.
  void ForgetFolderRecords();
  // This child's record was written: its folder's index takes the record's
  // name and marker as they now are.
  void NoteRecordInFolder();
  // Reads the record numbered `record` of this folder's data.
  bool ReadRecordNumber(uint32_t record, t_aoStreamU& found, tag_aoStreamOffset& where);
  bool CopyFolderAtDepth(aoStream* destination, int depth);
  // Copies the size-prefix bit, duration and child information of this
  // stream's record into destination's record.
  bool CopyRecordTraits(aoStream* destination);
  // Whether other is this stream or one of the folders above it.
  bool IsSelfOrAncestor(const aoStream* other) const;
  // Rebuilds this folder's tree into destination, a new empty folder: every
  // record is created before any child's data, so each folder stays one block.
  bool CloneTreeInto(aoStream* destination, int depth);

  // Where this folder's data blocks lie, kept between scans of its records.
  std::shared_ptr<ao::FolderLayout> m_layout;

 protected:
  ao::FileHandle m_file = ao::kInvalidFile;
  aoStorage* m_storage = nullptr;
  aoStream* m_parent = nullptr;
  t_aoStreamU m_header;
  // Current block header (loaded when m_posInBlock != 0).
  int64_t m_blockDataEnd = 0;
  int64_t m_blockEnd = 0;
  int64_t m_blockPrev = 0;
  int64_t m_blockNext = 0;
  tag_aoStreamOffset m_where;
  uint32_t m_mode = 0;
  int64_t m_imagePos = 0;
  int64_t m_curBlock = 0;
  int64_t m_posInBlock = 0;
  int64_t m_dataPos = 0;
  uint32_t m_childCount = 0;
  ao::OpenStreamList m_openChildren;
  CMapStringToStreamWithOffset* m_preloaded = nullptr;
  int m_sortingEnabled = 0;
  int m_sortMode = 0;
  bool m_b64 = false;
  int64_t m_filePos = 0;  // this object's own host-file position
};

// A stream over a growable zeroed memory block.
class AOSTORE_API aoStream2 : public aoStream {
 public:
  // Over buffer (not owned) of size bytes; with a null buffer the stream
  // starts empty and owns what it allocates.
  aoStream2(void* buffer, int size);
  ~aoStream2() override;
  int64_t Read(void* out, int64_t n) override;
  int64_t Write(const void* data, int64_t n, bool setEnd, int64_t* written) override;
  // Hands the block to the caller (free with aoFreeBuffer); null when nothing
  // was written or consumed.
  void* Detach(int& length);

 private:
  unsigned char* m_base = nullptr;
  unsigned char* m_cursor = nullptr;
  unsigned int m_size = 0;
  unsigned int m_position = 0;
  int m_owns = 0;
};

#endif  // AOSTORE_STREAM_H
