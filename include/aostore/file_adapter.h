// Streams seen as files and reached by paths: CFile, the small file base that
// file-minded code is written against; CAoStreamFile, one stream behind that
// base; CPathLoader, nested streams opened by "a/b/c" paths; and aoStreamBuf,
// a std::streambuf so that the standard streams read and write a stream.
//
// Example: write a few values into a child stream and read them back.
//
//   aoStorage* storage = aoStorage::OpenOrCreate("notes.ao", kAoModeEdit, 0);
//   CPathLoader loader;                 // owns the folders it opens
//   aoStream* day = loader.GetStreamByPath(storage, "journal/2024/june", 1, 1);
//   aoStream* text = day->OpenOrCreateStream("text", 0);   // a data stream
//   {
//     aoStreamBuf buffer(text);
//     std::iostream io(&buffer);
//     io << "visitors " << 42 << '\n' << "weather sunny\n" << std::flush;
//     io.seekg(0);
//     std::string word;
//     int visitors = 0;
//     io >> word >> visitors;           // "visitors", 42
//     std::getline(io >> std::ws, word);  // "weather sunny"
//   }                                   // the buffer flushes on destruction
//   text->Release();                    // ours: released before its folder
//   loader.CloseOpenStorages();         // releases journal, 2024 and june
//   storage->Release();
#ifndef AOSTORE_FILE_ADAPTER_H
#define AOSTORE_FILE_ADAPTER_H

#include <cstddef>
#include <cstdint>
#include <streambuf>
#include <string>
#include <vector>

#include "aostore/export.h"

class aoStorage;
class aoStream;

// The file object that file-minded code (archives, readers) is written
// against. Positions and lengths are bytes; Seek origins are begin (0),
// current (1) and end (2), as each file class defines them.
class AOSTORE_API CFile {
 public:
  enum SeekPosition : uint32_t { begin = 0, current = 1, end = 2 };

  CFile() = default;
  virtual ~CFile();
  CFile(const CFile&) = default;
  CFile& operator=(const CFile&) = default;

  // Names the file; a null path throws std::invalid_argument.
  virtual void SetFilePath(const char* path);
  virtual std::string GetFilePath() const;
  // A second, independent object on the same file, or null when the file
  // class cannot give one. The caller deletes it.
  virtual CFile* Duplicate() const = 0;
  // Bytes read (0 at the end or on failure).
  virtual uint32_t Read(void* buffer, uint32_t count) = 0;
  virtual void Write(const void* data, uint32_t count) = 0;
  // The new position, or -1 when the position could not be reached.
  virtual int32_t Seek(int32_t offset, uint32_t from) = 0;
  virtual int64_t GetLength() = 0;
  virtual void Flush() = 0;
  virtual void Close() = 0;
  // Closes without reporting errors.
  virtual void Abort() = 0;
  // Direct access to a file's own buffer; 0 when the file has none, as here.
  virtual uint32_t GetBufferPtr(uint32_t command, uint32_t count, void** start, void** max);

 private:
  std::string m_filePath;
};

// One stream presented as a CFile. The stream is not owned: the adapter never
// releases it, and it must outlive the adapter's use.
class AOSTORE_API CAoStreamFile : public CFile {
 public:
  CAoStreamFile() = default;
  explicit CAoStreamFile(aoStream* stream) : m_pStream(stream) {}
  ~CAoStreamFile() override;
  CAoStreamFile(const CAoStreamFile&) = default;
  CAoStreamFile& operator=(const CAoStreamFile&) = default;

  // Duplicating a stream file is not supported: always null.
  CFile* Duplicate() const override;
  // The stream's Read; 0 without a stream or on a read error.
  uint32_t Read(void* buffer, uint32_t count) override;
  // The stream's Write, never truncating; nothing without a stream.
  void Write(const void* data, uint32_t count) override;
  // Origin 0: a positive offset from the start, a negative one counted back
  // from the end; origin 1: relative; any other origin, 2 included, goes to
  // the start whatever the offset (use origin 0 with a negative offset, or
  // origin 1, to reach the end). Returns the new position, -1 on failure.
  int32_t Seek(int32_t offset, uint32_t from) override;
  // The stream's data length; 0 without a stream.
  int64_t GetLength() override;
  // The adapter owns no operating-system file: these do nothing.
  void Flush() override;
  void Close() override;
  void Abort() override;

  // The stream's name; "" without a stream.
  const std::string GetStorageName();
  aoStream* GetStream() const { return m_pStream; }

 private:
  aoStream* m_pStream = nullptr;
};

// Opens streams by slash-separated paths through the folders of a container
// ("a/b/c": no leading or trailing '/'; an empty segment fails). Every stream
// opened along the way, each level and the target, stays open in the loader
// until CloseOpenStorages or destruction: callers use the returned streams
// but never release them.
class AOSTORE_API CPathLoader {
 public:
  CPathLoader() = default;
  ~CPathLoader();
  CPathLoader(const CPathLoader&) = delete;
  CPathLoader& operator=(const CPathLoader&) = delete;

  // Opens (write: mode 0x16, else 0x12) or, with create, opens or creates
  // every level as a folder. Null when a level is missing, is not a folder,
  // or cannot be opened; the levels opened before stay in the loader.
  aoStream* GetStreamByPath(aoStorage* storage, std::string path, int write, int create);
  // The same below start (which the loader does not take over); an empty
  // path gives start itself.
  aoStream* GetSubStreamByPath(aoStream* start, std::string path, int write, int create);
  // Removes the stream at path with its subtree and then releases every
  // stream the loader holds. 1 when it was removed, else 0.
  int DeleteStreamByPath(aoStorage* storage, std::string path);
  // Releases every held stream, the most recently opened first.
  void CloseOpenStorages();

  // The held streams in opening order; GetAt throws std::invalid_argument
  // for an index outside 0 .. GetSize() - 1.
  size_t GetSize() const { return m_streams.size(); }
  aoStream* GetAt(size_t index) const;

 private:
  // Cuts the first segment off path and returns it (all of path when it has
  // no '/').
  std::string GetNextFolder(std::string& path);

  std::vector<aoStream*> m_streams;
};

// A std::streambuf over one stream, for std::istream, std::ostream and
// std::iostream: reads and writes go through a buffer, seeks map onto the
// stream's seeks, and sync (std::flush, destruction) writes what is pending.
// Writing never truncates: it overwrites and extends. Seeking is limited to
// 0 .. length and needs a stream of a container (a memory stream reads and
// writes sequentially only). The stream is not owned and must outlive the
// buffer; while the buffer holds pending data, use the stream only through it.
class AOSTORE_API aoStreamBuf : public std::streambuf {
 public:
  explicit aoStreamBuf(aoStream* stream, size_t bufferSize = 64 * 1024);
  ~aoStreamBuf() override;
  aoStreamBuf(const aoStreamBuf&) = delete;
  aoStreamBuf& operator=(const aoStreamBuf&) = delete;

  aoStream* stream() const { return m_stream; }

 protected:
  int_type underflow() override;
  int_type overflow(int_type ch) override;
  int sync() override;
  std::streamsize showmanyc() override;
  std::streamsize xsgetn(char_type* out, std::streamsize count) override;
  std::streamsize xsputn(const char_type* data, std::streamsize count) override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir dir, std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

 private:
  // Writes the put area to the stream; false when it did not all go.
  bool FlushPending();
  // Gives back the read-ahead: moves the stream to the logical position.
  bool DropReadAhead();
  // The logical position: the stream's, less read-ahead, plus pending bytes.
  int64_t LogicalPosition() const;
  bool MoveStreamTo(int64_t target);

  aoStream* m_stream;
  std::vector<char> m_buffer;
};

#endif  // AOSTORE_FILE_ADAPTER_H
