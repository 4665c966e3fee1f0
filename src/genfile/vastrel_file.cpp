// CVastrelFile: construction, copying, the container and folder removal.
#include "aostore/vastrel_file.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "aostore/storage.h"
#include "aostore/stream.h"
#include "aostore/types.h"
#include "platform/directories.h"
#include "platform/paths.h"

namespace {

// Longest folder path Remove accepts, terminator included.
constexpr size_t kMaxFolderPath = 260;

}  // namespace

CVastrelFile::CVastrelFile()
    : m_nOpenMode(0),
      m_bCreated(0),
      m_pStorage(nullptr),
      m_pGenericStream(nullptr),
      m_pChildStream(nullptr),
      m_pChildBuffer(nullptr),
      m_nChildBufferLength(0),
      m_nChildBufferPos(0),
      m_szName{},
      m_pGenericBuffer(nullptr),
      m_nGenericBufferLength(0),
      m_nGenericBufferPos(0) {}

// Deliberately shallow: both objects then share one container and its streams.
CVastrelFile::CVastrelFile(const CVastrelFile& other) = default;
CVastrelFile& CVastrelFile::operator=(const CVastrelFile& other) = default;

CVastrelFile::~CVastrelFile() {
  if (m_pStorage == nullptr) return;
  CloseStream();
  m_pStorage->Release();
  m_pStorage = nullptr;
  m_nOpenMode = 0;
}

int CVastrelFile::Open(const char* path, int mode) {
  Close();
  if (path == nullptr) return 0;
  aoStorage* storage = nullptr;
  switch (mode) {
    case 1:
    case 3:  // read as mode 1; only the stored mode differs
      storage = aoStorage::Open(path, kAoModeInspect, 0, 0);
      break;
    case 2:
      storage = aoStorage::Open(path, kAoModeEdit, 0, 0);
      if (storage == nullptr) {
        m_bCreated = 1;
        storage = aoStorage::Create(path, kAoModeEdit, 0);
      }
      break;
    default:
      return 0;
  }
  if (storage == nullptr) return 0;
  m_pStorage = storage;
  m_nOpenMode = mode;
  return 1;
}

int CVastrelFile::Close() {
  if (m_pStorage == nullptr) return 0;
  CloseStream();
  m_pStorage->Release();
  m_pStorage = nullptr;
  m_nOpenMode = 0;
  return 1;
}

void CVastrelFile::Remove(const char* folder) {
  // A path that does not fit is refused rather than shortened: a shortened
  // path could name another folder, whose files would then be deleted.
  if (folder == nullptr || std::strlen(folder) >= kMaxFolderPath) return;
  if (!ao::platform::IsDirectory(folder)) return;
  // Only names without an extension: the data files of the application.
  for (const std::string& name : ao::platform::ListFiles(folder)) {
    if (name.find('.') != std::string::npos) continue;
    ao::platform::RemoveFile(ao::platform::JoinPath(folder, name).c_str());
  }
  ao::platform::RemoveEmptyDirectory(folder);
}

void CVastrelFile::FreeChildBuffer() {
  if (m_pChildBuffer != nullptr) aoStream::FreeBuffer(m_pChildBuffer);
  m_pChildBuffer = nullptr;
  m_nChildBufferLength = 0;
  m_nChildBufferPos = 0;
}

void CVastrelFile::FreeGenericBuffer() {
  if (m_pGenericBuffer != nullptr) aoStream::FreeBuffer(m_pGenericBuffer);
  m_pGenericBuffer = nullptr;
  m_nGenericBufferLength = 0;
  m_nGenericBufferPos = 0;
}

void CVastrelFile::CopyName(const char* name) {
  // At most 63 characters; the buffer stays terminated at its 64th.
  std::memset(m_szName, 0, sizeof m_szName);
  if (name == nullptr) return;
  const char* end = std::find(name, name + 63, '\0');
  std::memcpy(m_szName, name, static_cast<size_t>(end - name));
}

bool CVastrelFile::HasGenericFolder() { return m_pGenericStream != nullptr && m_pGenericStream->IsFolder() != 0; }

uint32_t CVastrelFile::ModeFlags() const { return m_nOpenMode == 2 ? kAoModeEdit : kAoModeInspect; }
