// CVastrelFile: the application's data file, a container seen through a
// cursor of one current generic stream and one current child stream.
#ifndef AOSTORE_VASTREL_FILE_H
#define AOSTORE_VASTREL_FILE_H

#include <cstdint>

#include "aostore/export.h"

class aoStorage;
class aoStream;

// Root streams of the container are "generic streams"; a generic stream that
// is a folder holds "child streams". The object keeps at most one open
// container, one current generic stream, one current child stream and an
// optional in-memory copy of the rest of the child (for decryption).
//
// Results are 1 for success and 0 for failure unless stated otherwise.
// Copies are shallow: a copy shares the container, streams and buffers of its
// original, and only one of the two may be closed or destroyed.
class AOSTORE_API CVastrelFile {
 public:
  CVastrelFile();
  CVastrelFile(const CVastrelFile& other);
  CVastrelFile& operator=(const CVastrelFile& other);
  // Closes the container if one is open.
  virtual ~CVastrelFile();

  // ---- Container.
  // Mode 1 and 3: open for reading. Mode 2: open for reading and writing,
  // creating the container when it cannot be opened. Any container open
  // before is closed first, also when the mode is refused.
  int Open(const char* path, int mode);
  // 0 when nothing was open.
  int Close();
  // Deletes the files without an extension in folder, then the folder itself
  // if that left it empty. Does nothing if folder is not a folder.
  static void Remove(const char* folder);

  // ---- Generic streams (root streams of the container).
  int OpenGenericStream(const char* name, int write);
  // Opens the generic stream name and, when it is a folder, its child
  // childName as the current child. 1 also when the stream is no folder.
  int OpenGenericStreams(const char* name, const char* childName);
  // Creates the stream with CreateStreamHelper(name, type, ...) when missing.
  int OpenOrCreateGenericStream(const char* name, int seekToEnd, uint32_t type);
  // created: 1 when the stream had to be created (even if creating failed).
  int OpenOrCreateGenericStream(const char* name, int seekToEnd, uint32_t type, int& created);
  // Walks the root streams record by record; 0 (and nothing current) at the end.
  int OpenNextGenericStream();
  // The same walk, reading only, visiting numbered streams only: names of 8
  // hexadecimal digits from 10000000 to fffffffe.
  int OpenNextStream();
  // Bytes read, 0 without a current generic stream.
  int64_t ReadGenericStream(unsigned char* data, int64_t length);
  // 1 when all length bytes were written.
  int WriteGenericStream(unsigned char* data, int32_t length);
  int WriteGenericStream(aoStream* stream, unsigned char* data, int32_t length);
  // Reads up to length bytes, then moves back by length (the amount asked
  // for, not the amount read): a tag is peeked, not consumed. Returns the
  // count read, 0 when nothing came.
  int64_t ReadTagSeekBack(unsigned char* data, int64_t length);
  // Moves the generic stream (not the child) forward.
  int SeekForward(int64_t count);
  int GoToBeginningOfGenericStream();
  // Data length of the generic stream; 0 without one.
  int64_t GetStreamSize();
  // Name of the generic stream in this object's name buffer; null without one.
  char* GetStreamName();
  // Opens the first root stream with flags, or moves to the next one; the
  // name (in the name buffer), or null at the end.
  char* GetNextStreamName(uint32_t flags);
  // value in lower-case hexadecimal without leading zeros, written to out
  // (at least 9 bytes) or, when out is null, to one buffer shared by all
  // callers.
  static char* CreateStreamName(uint32_t value, char* out);
  // Opens name and removes it. On failure the stream stays current.
  int RemoveGenericStream(const char* name);
  int RemoveGenericStream();
  // ORs bits into the child-stream information of a folder generic stream.
  int UpdateStreamHeaderChildStreamInfo(uint64_t info);
  // Ends the child stream, the buffers and the generic stream; 0 when no
  // generic stream was current.
  int CloseStream();

  // ---- Child streams (all need a current generic stream).
  // Opens name as the current child (replacing one that was current).
  int DoesGenericChildStreamExist(const char* name);
  // Opens the first child, or the one after the current child (which is
  // closed), always for reading and writing. *cursor is the caller's.
  int OpenNextGenericChildStream(int64_t* cursor);
  // The same over the children of parent; with removeCurrent set the child
  // left behind is deleted.
  int OpenNextGenericChildStreamUsingParentStream(aoStream* parent, int64_t* cursor, int removeCurrent);
  // Opens or creates name in parent; the stream is the caller's to release.
  aoStream* OpenOrCreateGenericChildStream(aoStream* parent, const char* name, int seekToEnd, uint32_t type);
  // From the child buffer when one was filled, else from the child stream.
  int64_t ReadGenericChildStream(unsigned char* data, int64_t length);
  // Reads the rest of the child into the child buffer; ReadAll's result.
  int64_t ReadGenericChildStream_BufferRest();
  // Deciphers the child buffer in place with a fresh duplicate of key (the
  // key stream starts at its beginning for every buffer).
  int ReadGenericChildStream_DecryptRest(uint64_t key);
  // length when all of it was written to the current child, else 0.
  uint32_t WriteGenericChildOpenedStream(unsigned char* data, int32_t length, int flag);
  // Opens or creates the child name and writes to it: at its end with
  // append, else over its start (nothing is cut off). The child does not
  // become current.
  int WriteGenericChildStream(const char* name, unsigned char* data, int32_t length, int append, int flag);
  // The same inside parent, followed by a second write of data2 when it is
  // given; the result tells whether the last write was complete.
  int WriteGenericChildStream(aoStream* parent, const char* name, unsigned char* data, int32_t length, int append,
                              int flag, unsigned char* data2, int32_t length2);
  // As WriteGenericChildStream; a newly created child first gets size bytes
  // of space when preallocate is set.
  int WriteGenericChildStream_PreallocateSpace(const char* name, unsigned char* data, int32_t length,
                                               int preallocate, int64_t size, int append, int flag);
  // Removes childName from the folder name; 1 also when there was no such
  // child. Everything is closed afterwards.
  int RemoveGenericChildStream(const char* name, const char* childName);
  // 0 when oldName is missing or newName is taken.
  int RenameGenericChildStream(const char* oldName, const char* newName);
  // Ends the current child, deleting it when remove is set.
  int CloseChildStream(int remove);
  int64_t GetChildStreamSize();
  // Opens the first child into iterator, or, when iterator is set, releases
  // it and tries the next one; no cursor survives between calls, so after
  // the first child the walk ends. Callers test iterator: the name buffer is
  // returned whenever the generic stream is a folder.
  char* GetNextChildStreamName(aoStream*& iterator);
  int GoToBeginningOfGenericChildStream();
  int GoToEndOfGenericChildStream();
  // Moves back by count, through the child buffer first and then the child
  // stream: the buffered bytes lie just before the stream's position.
  int SeekBackChildStream(int64_t count);

  // ---- Current objects, for the library's own callers.
  int GetOpenMode() const { return m_nOpenMode; }
  // 1 once Open in mode 2 had to create the container.
  int WasCreated() const { return m_bCreated; }
  aoStorage* GetStorage() const { return m_pStorage; }
  aoStream* GetGenericStream() const { return m_pGenericStream; }
  aoStream* GetChildStream() const { return m_pChildStream; }

 private:
  void FreeChildBuffer();
  void FreeGenericBuffer();
  void CopyName(const char* name);
  bool HasGenericFolder();
  uint32_t ModeFlags() const;

  int m_nOpenMode;
  int m_bCreated;
  aoStorage* m_pStorage;
  aoStream* m_pGenericStream;
  aoStream* m_pChildStream;
  unsigned char* m_pChildBuffer;
  int64_t m_nChildBufferLength;
  int64_t m_nChildBufferPos;
  char m_szName[128];
  unsigned char* m_pGenericBuffer;
  int64_t m_nGenericBufferLength;
  int64_t m_nGenericBufferPos;
};

#endif  // AOSTORE_VASTREL_FILE_H
