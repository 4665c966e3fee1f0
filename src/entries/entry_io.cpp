// Work shared by the entries of containers and folders, once the entry
// stream is open.
#include "entries/entry_io.h"

#include "aostore/recorder.h"
#include "aostore/storage.h"
#include "platform/memory.h"

namespace ao::entries {
namespace {

// Positions of Seek: origin 0 counts from the start, origin 1 back from the end.
constexpr unsigned char kFromStart = 0;
constexpr unsigned char kFromEnd = 1;

// An entry's length comes from its header record on disk; the value cannot
// be larger than the host file that holds it, so nothing larger is allocated.
bool PlausibleLength(aoStream* stream, int64_t length) {
  if (length > UINT32_MAX) return false;
  aoStorage* storage = stream->GetStorage();
  const int64_t fileSize = storage != nullptr ? storage->GetFileSize() : -1;
  return length <= (fileSize >= 0 ? fileSize : aoStorage::g_iMaxCompStmSize);
}

}  // namespace

CCompRecorder* RecorderOf(aoStream* stream) {
  aoStorage* storage = stream != nullptr ? stream->GetStorage() : nullptr;
  return storage != nullptr ? storage->GetRecorder() : nullptr;
}

aoStream* UnlessFolder(aoStream* stream) {
  if (stream != nullptr && stream->IsFolder() != 0) {
    stream->Release();
    return nullptr;
  }
  return stream;
}

bool ReadValueBytes(aoStream* stream, unsigned char* bytes, uint32_t n) {
  stream = UnlessFolder(stream);
  if (stream == nullptr) return false;
  stream->Read(bytes, n);  // a short entry keeps the zeroes of the rest
  stream->Release();
  return true;
}

std::string ReadString(aoStream* stream, const char* def) {
  stream = UnlessFolder(stream);
  if (stream == nullptr) return def != nullptr ? def : "";
  std::string value;
  *stream >> value;
  stream->Release();
  return value;
}

int WriteValueBytes(aoStream* stream, unsigned char* bytes, uint32_t n) {
  if (stream == nullptr) return 0;
  if (CCompRecorder* recorder = RecorderOf(stream)) recorder->OpWrite(bytes, n, 0, stream, 1);
  stream->Write(bytes, n, false, nullptr);
  stream->Release();
  return 1;
}

void AppendRecord(aoStream* stream, const void* data, uint32_t size, bool slot, bool wide) {
  if (slot) {
    const int width = wide ? 8 : 4;
    int64_t start = stream->GetLength();
    if (!wide) start = static_cast<uint32_t>(start);
    if (start == 0) start = width;
    unsigned char bytes[8];
    format::PutWide(bytes, start, wide);
    stream->Seek(0, kFromStart, true);
    stream->Write(bytes, width, false, nullptr);
  }
  stream->Seek(0, kFromEnd, true);
  stream->Write(data, size, false, nullptr);
}

int AppendEntry(aoStream* stream, const void* data, uint32_t size, bool slot, bool wide) {
  if (stream == nullptr) return 0;
  if (CCompRecorder* recorder = RecorderOf(stream)) {
    recorder->OpAppend(static_cast<unsigned char*>(const_cast<void*>(data)), size, stream, slot ? 1 : 0);
  }
  AppendRecord(stream, data, size, slot, wide);
  stream->Release();
  return 1;
}

int ReplaceEntry(aoStream* stream, const void* data, uint32_t size, int prependSize, int recordedPrefix) {
  if (stream == nullptr) return 0;
  if (CCompRecorder* recorder = RecorderOf(stream)) {
    recorder->OpWrite(static_cast<unsigned char*>(const_cast<void*>(data)), size, 1, stream, recordedPrefix);
  }
  if (prependSize != 0 && stream->PrependSize(size) == 0) {
    stream->Release();
    return 0;
  }
  const int64_t written = stream->Write(data, size, true, nullptr);
  stream->Release();
  return written != -1 ? 1 : 0;
}

int ReadReplacedEntry(aoStream* stream, void** data, unsigned int* size) {
  stream = UnlessFolder(stream);
  if (stream == nullptr) return 0;
  int64_t length = 0;
  bool ok = stream->GetVerifiedDataLength(length) != 0;
  if (ok && length >= 1) {
    void* block = PlausibleLength(stream, length) ? platform::AllocZeroed(static_cast<size_t>(length)) : nullptr;
    if (block != nullptr && stream->Read(block, length) == length) {
      *data = block;
      *size = static_cast<unsigned int>(length);
    } else {
      platform::FreeBlock(block);
      ok = false;
    }
  }
  stream->Release();
  return ok ? 1 : 0;
}

int ReadReplacedEntryInto(aoStream* stream, void* buffer, unsigned int size) {
  stream = UnlessFolder(stream);
  if (stream == nullptr) return 0;
  int64_t length = 0;
  const bool ok = (buffer != nullptr || size == 0) && stream->GetVerifiedDataLength(length) != 0;
  // Deliberately lenient once the prefix agreed: a buffer larger than the
  // value receives nothing, and a short read still counts as success.
  if (ok && size != 0 && size <= length) stream->Read(buffer, size);
  stream->Release();
  return ok ? 1 : 0;
}

}  // namespace ao::entries
