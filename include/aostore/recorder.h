// CCompRecorder: the edit log of a container.
#ifndef AOSTORE_RECORDER_H
#define AOSTORE_RECORDER_H

#include <cstdint>

#include "aostore/export.h"
#include "aostore/types.h"

// The log is the plain concatenation of op records, little-endian, without
// header, alignment or terminator. After the op byte:
//   RecOpEnter, RecOpEnterFast  u16 N, N name bytes (no NUL), u8 flag (folder
//                               for an enter, at-end for a fast enter)
//   RecOpLeave                  nothing
//   RecOpRemove                 u16 N, N name bytes
//   RecOpWrite                  u8 truncate, u8 size prefix, u32 L, L bytes
//   RecOpAppend                 u8 prefix, u32 L, L bytes
enum RecOpEnum : unsigned char {
  RecOpEnter = 1,
  RecOpEnterFast = 2,
  RecOpLeave = 3,
  RecOpRemove = 4,
  RecOpWrite = 5,
  RecOpAppend = 6,
};

// One entry of the recorder's stack of entered streams.
struct AOSTORE_API RecStmStruct {
  char name[kAoNameFieldSize];
  int isFolder;
  void* stream;
};

// A byte log of edits: enter, enter-fast, leave, remove, write and append
// records. Recording ops are fed by the container while it records; reading
// ops (PopOp) decode the log again for replay.
class AOSTORE_API CCompRecorder {
 public:
  static constexpr int kMaxDepth = 32;

  // An empty recorder without a buffer; the log grows by at least growBy
  // bytes (4096 at the least) at a time.
  explicit CCompRecorder(unsigned int growBy = 4096);
  // Frees the buffer when the recorder owns it.
  ~CCompRecorder();
  CCompRecorder(const CCompRecorder&) = delete;
  CCompRecorder& operator=(const CCompRecorder&) = delete;

  // ---- Buffer (malloc/realloc/free). Growth is linear, never doubling.
  // Allocates size bytes when there is no buffer yet.
  void Init(unsigned int size);
  // Grows the buffer by n bytes (the growth step when n is 0), allocating
  // 4096 bytes first when there is none. 0 when memory is short; the old
  // buffer then stays as it was.
  int Expand(unsigned int n);
  // Copies len bytes at the position, growing by at least minGrow.
  void Add(unsigned char* const data, unsigned int len, unsigned int minGrow);
  // Takes buf as the log to read (len bytes, position 0). With owns the
  // recorder frees it later; without, the caller keeps it and the recorder
  // never reallocates or frees it (a write past its end moves to a copy).
  void Attach(unsigned char* buf, unsigned int len, int owns);
  // Gives the buffer away (null when there is none); *len receives the data
  // length. Free the buffer with CCompRecorder::Free.
  unsigned char* Detach(unsigned int* len);
  // A new recorder (owned by the caller) holding a copy of the log, read from
  // its start, with an empty stream stack.
  CCompRecorder* Clone();
  // Drops the log: an owned buffer is freed, a borrowed one is kept.
  void Empty();
  static void Free(unsigned char* p);
  unsigned int GetBufferPos() const { return m_position; }
  unsigned int GetLength() const { return m_capacity; }
  unsigned int GetDataLength() const { return m_dataLength; }
  int GetStmDepth() const { return m_depth; }
  // Non-zero once the recorder gave up: the log is incomplete.
  int HasBeenStopped() const { return m_stopped; }
  unsigned int GetOpCount() const { return m_opCount; }
  void ThrowExceptions(int on) { m_throw = on; }

  // ---- Reading. Nothing is ever read past the data length.
  void SeekToBegin() { m_position = 0; }
  // The byte at the position, not consumed; 0 at the end of the data.
  int PeekByte(unsigned char& b);
  // The unread rest of the log (no copy): its address and length.
  unsigned char* PeekAll(unsigned int* len);
  // Copies n bytes and advances; 0 when fewer remain. Throws
  // std::string("Read error") instead when mayThrow and the throw flag are
  // both set.
  int Read(unsigned char* out, unsigned int n, int mayThrow);
  // Decodes the next op record: *op, the name or the flag text ("0"/"1"
  // characters) in text (kAoNameFieldSize bytes), the data of a write or an
  // append in *data (pointing into the log), and the enter flag or the data
  // length in *len. 1 when a whole record was decoded; 0 at the end of the
  // log, for a truncated or malformed record and for a name of 52 bytes or
  // more.
  int PopOp(RecOpEnum* op, char* text, unsigned char** data, uint32_t* len);

  // ---- Recording. Stream arguments are aoStream objects, compared by
  // address; the recorder keeps a stack of the streams it has entered and
  // logs every data op relative to the stream on top, entering missing
  // ancestors first. Once stopped, nothing more is written.
  void OpEnter(const char* name, int isFolder, void* stream);
  void OpEnterFast(const char* name, int atEnd, void* stream);
  void OpLeave(void* stream);
  void OpRemove(const char* name, void* parent);
  void OpWrite(unsigned char* data, uint32_t len, int truncate, void* stream, int sizePrefix);
  void OpAppend(unsigned char* data, uint32_t len, void* stream, int prefix);

 private:
  void PushOp(RecOpEnum op, const char* text, unsigned char* data, uint32_t len);
  int InsertParents(const RecStmStruct* top, void* stream);
  int UpdateStmStack(void* stream);
  // A new buffer of size bytes that this recorder owns, holding no data.
  bool AllocateFresh(unsigned int size);
  // Makes room for n more bytes at the position, growing by grow bytes when
  // short; false when memory cannot be had.
  bool EnsureRoom(unsigned int n, unsigned int grow);
  // Appends one fixed field; a field that cannot be stored stops the log.
  void PutField(const unsigned char* bytes, unsigned int n);
  void PutU8(uint8_t v);
  void PutU16(uint16_t v);
  void PutU32(uint32_t v);
  void Push(const char* name, int isFolder, void* stream);
  bool TopIs(const void* stream) const { return m_depth > 0 && m_stack[m_depth - 1].stream == stream; }
  // Bytes that may be read: none without a buffer.
  unsigned int Readable() const { return m_buffer != nullptr ? m_dataLength : 0; }
  void NoteHighWater() {
    if (m_position > m_dataLength) m_dataLength = m_position;
  }

  RecStmStruct m_stack[kMaxDepth] = {};
  int m_depth = 0;
  int m_stopped = 0;
  unsigned int m_opCount = 0;
  unsigned char* m_buffer = nullptr;
  unsigned int m_position = 0;
  unsigned int m_capacity = 0;
  unsigned int m_dataLength = 0;
  int m_ownsBuffer = 1;
  int m_throw = 0;
  unsigned int m_growBy = 4096;
};

#endif  // AOSTORE_RECORDER_H
