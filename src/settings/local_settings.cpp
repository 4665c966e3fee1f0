// The local settings store: machine-bound entries in "LocalSettings.dat".
#include <cstring>
#include <string>

#include "aostore/settings.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "platform/base.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "platform/paths.h"

namespace {

constexpr char kLocalSettingsFile[] = "LocalSettings.dat";
// Longest folder taken from the caller, and the capacity of the paths built
// here, terminator included.
constexpr size_t kMaxFolder = 259;
constexpr uint16_t kMaxPath = 260;

// The folder of the path rule: the caller's, the program's own or the
// per-user data folder.
bool LocalSettingsFolder(int useAppData, const char* folder, std::string* out) {
  if (folder != nullptr) {
    if (std::strlen(folder) > kMaxFolder) return false;
    *out = folder;
    return true;
  }
  if (useAppData != 0) return ao::platform::GetAppDataFolder(out);
  std::string program;
  if (!ao::platform::GetMainModulePath(&program)) return false;
  const size_t cut = program.find_last_of(ao::platform::PathSeparator());
  if (cut == std::string::npos) return false;
  *out = program.substr(0, cut);
  return true;
}

bool LocalSettingsPath(int useAppData, const char* folder, std::string* path) {
  std::string where;
  if (!LocalSettingsFolder(useAppData, folder, &where)) return false;
  *path = ao::platform::JoinPath(where, kLocalSettingsFile);
  return true;
}

// The machine-bound password, made from the machine's identifier when needed
// and wiped afterwards; it is never stored.
class MachinePassword {
 public:
  MachinePassword() {
    uint32_t length = 0;
    unsigned char* identifier = ao::platform::GetSystemIdentifier(&length);
    if (identifier != nullptr && length != 0) {
      password_ = ao::platform::GenerateSystemDependentPassword(identifier, length);
    }
    ao::platform::FreeSecretBlock(identifier);
  }
  ~MachinePassword() { ao::platform::FreeSecretBlock(password_); }
  MachinePassword(const MachinePassword&) = delete;
  MachinePassword& operator=(const MachinePassword&) = delete;
  const unsigned char* get() const { return password_; }

 private:
  unsigned char* password_ = nullptr;
};

}  // namespace

CLocalSettingStgFile::CLocalSettingStgFile() : m_storage(nullptr), m_stream(nullptr) {}

CLocalSettingStgFile::CLocalSettingStgFile(const CLocalSettingStgFile& other) = default;

CLocalSettingStgFile& CLocalSettingStgFile::operator=(const CLocalSettingStgFile& other) = default;

CLocalSettingStgFile::~CLocalSettingStgFile() {
  if (m_stream != nullptr) m_stream->Release();
  if (m_storage != nullptr) m_storage->Release();
}

int CLocalSettingStgFile::GetLocalSettingsFilePath(Qo::QOSTR* out, int useAppData, const char* folder) {
  if (out == nullptr || out->buffer == nullptr) return 0;
  std::string path;
  if (!LocalSettingsPath(useAppData, folder, &path)) return 0;
  // A path cut to fit would name another file; refuse it instead.
  if (path.size() >= out->capacity) return 0;
  std::memcpy(out->buffer, path.c_str(), path.size() + 1);
  return 1;
}

int CLocalSettingStgFile::OpenStgFolder(int useAppData, const char* streamName, int create, const char* folder) {
  if (streamName == nullptr) return 0;
  std::string path;
  if (!LocalSettingsPath(useAppData, folder, &path) || path.size() >= kMaxPath) return 0;
  if (!OpenStgFile(path.c_str(), create)) return 0;
  return OpenStream(streamName, create);
}

int CLocalSettingStgFile::WriteLocalSettingEntry(const char* name, unsigned char* value, int size) {
  if (m_storage == nullptr || m_stream == nullptr || name == nullptr || value == nullptr || size < 0) return 0;
  MachinePassword password;
  if (password.get() == nullptr) return 0;
  unsigned char* cipher = nullptr;
  uint32_t cipherLength = 0;
  if (!ao::platform::AES256Encrypt(value, static_cast<uint32_t>(size), password.get(), &cipher, &cipherLength)) {
    return 0;
  }
  const int stored = m_stream->SetEntryEraseOld(name, cipher, cipherLength, 1);
  ao::platform::FreeBlock(cipher);
  return stored != 0 ? 1 : 0;
}

int CLocalSettingStgFile::ReadLocalSettingEntry(const char* name, unsigned char* value, int size) {
  if (m_storage == nullptr || m_stream == nullptr || name == nullptr || value == nullptr || size < 0) return 0;
  void* data = nullptr;
  unsigned int dataLength = 0;
  const int found = m_stream->GetEntryErasedOld(name, &data, &dataLength);
  auto* cipher = static_cast<unsigned char*>(data);
  MachinePassword password;
  int result = 0;
  if (found != 0 && cipher != nullptr && dataLength != 0 && password.get() != nullptr) {
    unsigned char* plain = nullptr;
    uint32_t plainLength = 0;
    // Another machine's password, or a value of another length, leaves the
    // caller's buffer as it was.
    if (ao::platform::AES256Decrypt(cipher, dataLength, password.get(), &plain, &plainLength) &&
        plainLength == static_cast<uint32_t>(size)) {
      std::memcpy(value, plain, plainLength);
      result = 1;
    }
    ao::platform::FreeSecretBlock(plain);
  }
  if (cipher != nullptr) aoStream::FreeBuffer(cipher);
  return result;
}

int CLocalSettingStgFile::OpenStgFile(const char* path, int create) {
  CloseStgFile();
  if (path == nullptr) return 0;
  if (create == 0) {
    m_storage = aoStorage::Open(path, kAoModeInspect, 0, 0);
    return m_storage != nullptr ? 1 : 0;
  }
  m_storage = aoStorage::Open(path, kAoModeEdit, 0, 0);
  if (m_storage == nullptr) {
    // A file made here is its owner's alone: the container is written over
    // the private empty file and keeps its mode.
    const bool madeHere = ao::platform::CreateOwnerOnlyFile(path);
    m_storage = aoStorage::Create(path, kAoModeEdit, 0);
    if (m_storage == nullptr && madeHere) ao::platform::Files().Delete(path);
  }
  return m_storage != nullptr ? 1 : 0;
}

int CLocalSettingStgFile::OpenStream(const char* name, int create) {
  if (m_storage == nullptr) return 0;
  CloseStream();
  if (name == nullptr) return 0;
  m_stream = create != 0 ? m_storage->OpenOrCreateStream(name, 1) : m_storage->OpenStream(name, kAoModeInspect);
  return m_stream != nullptr ? 1 : 0;
}

int CLocalSettingStgFile::CloseStream() {
  if (m_stream == nullptr) return 0;
  m_stream->Release();
  m_stream = nullptr;
  return 1;
}

int CLocalSettingStgFile::CloseStgFile() {
  if (m_storage == nullptr) return 0;
  CloseStream();
  m_storage->Release();
  m_storage = nullptr;
  return 1;
}
