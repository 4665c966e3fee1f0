// aoStorage: creating, opening and releasing containers, and the registry of
// paths shared by every container open on the same file.
#include <cstring>
#include <mutex>
#include <vector>

#include "aostore/error.h"
#include "aostore/recorder.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "storage/file_ref.h"
#include "storage/format.h"

using ao::FileHandle;
using ao::kInvalidFile;
namespace platform = ao::platform;
namespace format = ao::format;

int64_t aoStorage::g_iMaxVastrelSize = 0x40000000000LL;
int64_t aoStorage::g_iMaxCompStmSize = 0x7F000000LL;
int aoStorage::g_bUse64BitOffsets = 1;
int aoStorage::g_bUseFileMapping = 1;
int aoStorage::g_iLockWaitMilliseconds = 0;

namespace {

// The fixed path buffer holds 259 characters and a terminator; a longer path
// would be cut and then name another file, so it is refused.
bool PathFits(const char* path) {
  if (path != nullptr && path[0] != '\0' && std::strlen(path) < 260) return true;
  ao::SetLastError(ao::errc::invalid_argument);
  return false;
}

platform::Mapping MappingSetting() {
  return aoStorage::g_bUseFileMapping != 0 ? platform::Mapping::kAllowed : platform::Mapping::kNever;
}

// Opens the file at path and joins its shared reference, waiting for the
// lock other processes honour as the settings allow.
FileHandle OpenAndJoin(const char* path, bool write, platform::Disposition disposition, t_FileRef*& ref) {
  FileHandle file = platform::Files().Open(path, write, disposition, MappingSetting());
  if (file == kInvalidFile) {
    ao::SetLastError(ao::ErrorOf(platform::LastFileError()));
    return kInvalidFile;
  }
  ref = ao::JoinFileRef(file, path, write ? ao::FileUse::kWrite : ao::FileUse::kRead);
  if (ref == nullptr) {
    platform::Files().Close(file);
    return kInvalidFile;
  }
  return file;
}

}  // namespace

aoStorage::aoStorage(const char* path, FileHandle file, uint32_t flags, int loadIntoMemory, int64_t filePosition,
                     t_FileRef* fileRef, bool writer)
    : m_fileRef(fileRef), m_writer(writer), m_file(file), m_filePos(filePosition) {
  std::strncpy(m_path, path, sizeof m_path - 1);
  if (loadIntoMemory != 0 && (flags & kAoReadWrite) == 0) {
    const int64_t size = platform::Files().Size(file);
    if (size >= 0 && size < 0xFFFFFFF0LL) {
      auto* image = static_cast<unsigned char*>(platform::AllocZeroed(static_cast<size_t>(size)));
      if (image != nullptr && platform::ReadFully(file, image, size, 0)) {
        m_image = image;
        m_imageSize = size;
        m_imagePos = filePosition;
        m_inMemory = true;
        platform::Files().Close(file);
        m_file = kInvalidFile;
        ao::NoteImageOnly(m_fileRef);
      } else {
        platform::FreeBlock(image);
      }
    }
  }
  Lock();
  int64_t size = m_inMemory ? m_imageSize : platform::Files().Size(m_file);
  m_tail = size < 0 ? 0 : size;
  PublishTail();
  Unlock();
}

aoStorage::~aoStorage() {
  platform::FreeBlock(m_image);
  delete m_recorder;
  ao::LeaveFileRef(m_fileRef, m_writer ? ao::FileUse::kWrite : ao::FileUse::kRead, m_inMemory);
  delete m_snapshot;
}

aoStorage* aoStorage::Create(const char* path, uint32_t flags, uint32_t minBlockCapacity) {
  (void)flags;  // the host file is always opened for reading and writing here
  if (!PathFits(path)) return nullptr;
  // The file is cut only once this process is its only writer.
  t_FileRef* ref = nullptr;
  const FileHandle file = OpenAndJoin(path, true, platform::Disposition::kOpenAlways, ref);
  if (file == kInvalidFile) return nullptr;
  std::lock_guard<std::recursive_mutex> registry(ao::Registry().lock);
  const bool b64 = g_bUse64BitOffsets != 0;
  {
    // Containers open on the file stop storing into pages mapped before the
    // file is cut under them.
    std::lock_guard<std::recursive_mutex> cut(ref->lock);
    ref->rewrites.Forget();
    if (!platform::Files().SetSize(file, 0)) {
      ao::SetLastError(ao::ErrorOf(platform::LastFileError()));
      platform::Files().Close(file);
      ao::LeaveFileRef(ref, ao::FileUse::kWrite, false);
      return nullptr;
    }
    platform::Files().LimitGrowth(file, b64 ? g_iMaxVastrelSize : format::kLimit32);
    unsigned char header[format::kFileHeaderSize];
    format::EncodeFileHeader(b64, header);
    std::vector<unsigned char> table(static_cast<size_t>(format::TableSize(b64, format::kSlotsPerTable)));
    format::EncodeTableHeader({format::kTableMarker, format::kSlotsPerTable, 0}, b64, table.data());
    for (int slot = 0; slot < format::kSlotsPerTable; ++slot)
      format::PutU32(table.data() + format::TableHeaderSize(b64) + slot * format::RecordSize(b64),
                     format::kRecordMarker);
    // As in the original layout, the results of these two writes are not
    // checked here: a file that did not take them fails to load its root
    // directory below.
    platform::WriteFully(file, header, sizeof header, 0);
    platform::WriteFully(file, table.data(), static_cast<int64_t>(table.size()), format::kFileHeaderSize);
  }

  auto* storage =
      new aoStorage(path, file, 0, 0, format::kFileHeaderSize + format::TableSize(b64, format::kSlotsPerTable), ref, true);
  storage->m_b64 = b64;
  storage->m_created = true;
  storage->m_slotsPerTable = format::kSlotsPerTable;
  storage->m_reservedSlots = format::kReservedSlots;
  storage->m_version = b64 ? '2' : '1';
  storage->m_headerLength = format::kFileHeaderSize;
  storage->m_minBlockCapacity = minBlockCapacity;
  if (!storage->InitStreamMap()) {
    // The two writes above did not take (a full disk, the file size limit).
    const ao::errc why = ao::ErrorOf(platform::LastFileError());
    platform::Files().Close(file);
    delete storage;
    platform::Files().Delete(path);
    ao::SetLastError(why);
    return nullptr;
  }
  ao::SetLastError(ao::errc::ok);
  return storage;
}

aoStorage* aoStorage::ReadStorageHeader(FileHandle file, const char* path, uint32_t flags,
                                        uint32_t minBlockCapacity, int loadIntoMemory, t_FileRef* fileRef) {
  unsigned char bytes[format::kFileHeaderSize] = {};
  size_t got = 0;
  format::FileHeader header;
  const bool writer = (flags & kAoReadWrite) != 0;
  if (!platform::Files().ReadAt(file, bytes, sizeof bytes, 0, &got) ||
      !format::DecodeFileHeader(bytes, got, header)) {
    platform::Files().Close(file);
    ao::LeaveFileRef(fileRef, writer ? ao::FileUse::kWrite : ao::FileUse::kRead, false);
    ao::SetLastError(ao::errc::not_a_container);
    return nullptr;
  }
  auto* storage = new aoStorage(path, file, flags, loadIntoMemory, header.headerLength, fileRef, writer);
  storage->m_b64 = header.b64;
  storage->m_minBlockCapacity = minBlockCapacity;
  storage->m_fastOpen = 0;
  storage->m_slotsPerTable = header.slotsPerTable;
  storage->m_reservedSlots = header.reservedSlots;
  storage->m_headerLength = header.headerLength;
  storage->m_version = header.version;
  if (writer) platform::Files().LimitGrowth(file, storage->FileLimit());
  return storage;
}

aoStorage* aoStorage::Open(const char* path, uint32_t flags, uint32_t minBlockCapacity, int loadIntoMemory) {
  if (!PathFits(path)) return nullptr;
  const bool write = (flags & kAoReadWrite) != 0;
  t_FileRef* ref = nullptr;
  const FileHandle file = OpenAndJoin(path, write, platform::Disposition::kOpenExisting, ref);
  if (file == kInvalidFile) return nullptr;
  std::lock_guard<std::recursive_mutex> registry(ao::Registry().lock);
  aoStorage* storage = ReadStorageHeader(file, path, flags, minBlockCapacity, write ? 0 : loadIntoMemory, ref);
  if (storage == nullptr) return nullptr;
  storage->m_minBlockCapacity = minBlockCapacity;
  storage->m_fastOpen = 0;
  if (!storage->InitStreamMap()) {
    // A container whose header was accepted but whose root directory cannot
    // be loaded is removed, the same clean-up as a failed Create.
    if (storage->m_file != kInvalidFile) platform::Files().Close(storage->m_file);
    delete storage;
    platform::Files().Delete(path);
    ao::SetLastError(ao::errc::damaged);
    return nullptr;
  }
  ao::SetLastError(ao::errc::ok);
  return storage;
}

aoStorage* aoStorage::OpenFast(const char* path, uint32_t flags, uint32_t minBlockCapacity) {
  if (!PathFits(path)) return nullptr;
  const bool write = (flags & kAoReadWrite) != 0;
  t_FileRef* ref = nullptr;
  const FileHandle file = OpenAndJoin(path, write, platform::Disposition::kOpenExisting, ref);
  if (file == kInvalidFile) return nullptr;
  aoStorage* storage = ReadStorageHeader(file, path, flags, minBlockCapacity, 0, ref);
  if (storage == nullptr) return nullptr;
  storage->m_minBlockCapacity = minBlockCapacity;
  storage->m_fastOpen = 1;
  ao::SetLastError(ao::errc::ok);
  return storage;
}

aoStorage* aoStorage::OpenOrCreate(const char* path, uint32_t flags, uint32_t minBlockCapacity) {
  std::lock_guard<std::recursive_mutex> registry(ao::Registry().lock);
  aoStorage* storage = Open(path, flags, minBlockCapacity, 0);
  if (storage != nullptr) return storage;
  // A file another process holds would refuse Create just the same.
  if (ao::LastError() == ao::errc::busy || ao::LastError() == ao::errc::read_elsewhere) return nullptr;
  return Create(path, flags, minBlockCapacity);
}

int aoStorage::Sync() {
  if (!m_writer || m_file == kInvalidFile) {
    ao::SetLastError(ao::errc::invalid_argument);
    return 0;
  }
  if (!platform::Files().Flush(m_file) || (m_created && !platform::Files().FlushFolderOf(m_path))) {
    ao::SetLastError(ao::errc::io_error);
    return 0;
  }
  m_created = false;
  ao::SetLastError(ao::errc::ok);
  return 1;
}

void aoStorage::Release() {
  if (m_file != kInvalidFile) platform::Files().Close(m_file);
  m_file = kInvalidFile;
  delete this;
}

const char* aoStorage::GetPath() { return m_path; }

int64_t aoStorage::GetFileSize() { return m_inMemory ? m_imageSize : platform::Files().Size(m_file); }

void aoStorage::FlagsToAttributes(uint32_t flags, uint32_t& access, uint32_t& share) {
  constexpr uint32_t kGenericRead = 0x80000000u, kGenericWrite = 0x40000000u;
  constexpr uint32_t kShareRead = 0x1u, kShareWrite = 0x2u;
  access = 0;
  share = 0;
  if (flags & kAoRead) access |= kGenericRead;
  if (flags & kAoReadWrite) access |= kGenericRead | kGenericWrite;
  if (flags & kAoShareRead) share |= kShareRead;
  if (flags & kAoShareReadWrite) share |= kShareRead | kShareWrite;
}

void aoStorage::Lock() {
  if (m_fileRef == nullptr) return;
  m_fileRef->lock.lock();
  m_tail = m_fileRef->tail;
}

void aoStorage::Unlock() {
  if (m_fileRef != nullptr) m_fileRef->lock.unlock();
}

void aoStorage::PublishTail() {
  if (m_fileRef != nullptr) m_fileRef->tail = m_tail;
}

bool aoStorage::HasUsableFile() const { return m_file != kInvalidFile || m_inMemory; }

int64_t aoStorage::FileLimit() const { return m_b64 ? g_iMaxVastrelSize : format::kLimit32; }

int aoStorage::RecordSize() const { return format::RecordSize(m_b64); }

int aoStorage::TableHeaderSize() const { return format::TableHeaderSize(m_b64); }
