// The global settings store: its lifetime, loading, and the operations that
// open "misc.dat".
#include <cstring>
#include <string>

#include "aostore/settings.h"
#include "aostore/stream.h"
#include "platform/base.h"
#include "platform/crypto.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "settings/login_time.h"
#include "settings/record_io.h"
#include "settings/settings_record.h"

namespace {

constexpr char kKeyFileName[] = "misc.dat";
constexpr char kKeyFolderName[] = "System";
constexpr char kKeyStreamName[] = "System";
constexpr char kKeyChildName[] = "Key";
constexpr char kCryptContainerName[] = "GlobalContainer";
constexpr char kSettingsChildName[] = "UserInfo";
// Capacity of the folder strings handed to the element functions.
constexpr uint16_t kMaxPath = 260;

// A folder as the element functions take it; empty when it does not fit.
class FolderString {
 public:
  explicit FolderString(const std::string& folder) {
    if (folder.size() < sizeof text_) std::memcpy(text_, folder.c_str(), folder.size() + 1);
    value_.capacity = kMaxPath;
    value_.buffer = text_;
  }
  Qo::QOSTR* get() { return &value_; }

 private:
  char text_[kMaxPath] = {};
  Qo::QOSTR value_;
};

}  // namespace

CGlobalSettingStgFile::CGlobalSettingStgFile()
    : m_params(), m_provider(0), m_settingsSaved(0), m_initialized(0), m_settings(), m_currentUser() {
  m_params.keyFileName = kKeyFileName;
}

CGlobalSettingStgFile::~CGlobalSettingStgFile() {
  if (m_provider != 0) {
    if (m_params.key != 0) ao::platform::DestroyKey(m_params.key);
    ao::platform::ReleaseCryptoProvider(m_provider);
  }
}

std::string CGlobalSettingStgFile::KeyFolder() const { return ao::platform::JoinPath(m_dataFolder, kKeyFolderName); }

int CGlobalSettingStgFile::OpenSettingsFile(CVastrelFile& file, int mode) {
  const std::string folder = KeyFolder();
  const std::string path = ao::platform::JoinPath(folder, kKeyFileName);
  const bool existed = ao::platform::Files().Exists(path.c_str());
  FolderString folderString(folder);
  const int opened = OpenVastrelFile(m_params.keyMaterial, &file, folderString.get(), kKeyFileName, kKeyStreamName,
                                     kKeyChildName, mode);
  if (opened != 0 && !existed) ao::platform::RestrictFileToOwner(path.c_str());
  return opened;
}

int CGlobalSettingStgFile::Initialize(char* dataFolder) {
  if (m_initialized != 0) return 0;
  // The key folder and everything below it must fit the paths the element
  // functions build.
  if (dataFolder == nullptr || std::strlen(dataFolder) >= kMaxPath) return 0;
  m_provider = GetCryptContainer(kCryptContainerName);
  m_dataFolder = dataFolder;
  if (m_provider != 0) {
    FolderString keyFolder(KeyFolder());
    InitEncryptionElement(m_provider, &m_params, keyFolder.get(), kKeyStreamName, kKeyChildName);
  }
  m_initialized = 1;
  Load();
  return 1;
}

int CGlobalSettingStgFile::LoadChildItemInStreamFromFile(const char* fileName, uint64_t key, const char* streamName,
                                                        const char* childName, const StreamKeyBuf& keyMaterial,
                                                        unsigned char* data, uint64_t size, int& loaded) {
  std::lock_guard<std::mutex> fileLock(m_fileMutex);
  CVastrelFile file;
  FolderString folder(KeyFolder());
  if (OpenVastrelFile(keyMaterial, &file, folder.get(), fileName, kKeyStreamName, kKeyChildName, 1) == 0) return 0;
  ao::settings::OuterHeader outer;
  int result = 0;
  if (file.OpenGenericStreams(streamName, childName) != 0 && ao::settings::ReadOuterHeader(file, &outer) &&
      ((outer.flags & ao::settings::kRecordEncrypted) == 0 || ao::settings::DecryptRecordRest(file, key)) &&
      ao::settings::ReadRecord(file, outer, ao::settings::kSettingsRecord, data, size)) {
    loaded = 1;
    result = 1;
  }
  file.Close();
  return result;
}

int CGlobalSettingStgFile::Load() {
  unsigned char settings[SettingsDbInfo::kStoredSize] = {};
  int loaded = 0;
  if (LoadChildItemInStreamFromFile(kKeyFileName, m_params.key, ao::settings::kSettingsRecord.streamName,
                                    kSettingsChildName, m_params.keyMaterial, settings, sizeof settings, loaded)) {
    m_settings = ao::settings::DecodeSettings(settings);
  } else {
    UpdateSettings(0, 0, 0, 0, 0);
  }

  {
    std::lock_guard<std::mutex> fileLock(m_fileMutex);
    const std::string path = ao::platform::JoinPath(KeyFolder(), kKeyFileName);
    const bool existed = ao::platform::Files().Exists(path.c_str());
    CVastrelFile file;
    int isChild = 0;
    aoStream* users = OpenVastrelAuthStream(file, m_dataFolder.c_str(), kKeyFileName,
                                            ao::settings::kUserRecord.streamName, m_params.keyMaterial,
                                            kKeyFolderName, kKeyStreamName, kKeyChildName, isChild);
    if (!existed && ao::platform::Files().Exists(path.c_str())) ao::platform::RestrictFileToOwner(path.c_str());
    if (users != nullptr) {
      int64_t cursor = 0;
      int removeCurrent = 0;
      unsigned char stored[GlobalUserEntry::kStoredSize];
      // Moving on from a record that could not be read deletes it.
      while (file.OpenNextGenericChildStreamUsingParentStream(users, &cursor, removeCurrent) != 0) {
        ao::settings::OuterHeader outer;
        removeCurrent = 1;
        if (!ao::settings::ReadOuterHeader(file, &outer)) continue;
        const bool encrypted = (outer.flags & ao::settings::kRecordEncrypted) != 0;
        if (encrypted && m_params.key == 0) {
          // Without a key nothing can tell a good record from a bad one: keep it.
          removeCurrent = 0;
          continue;
        }
        if (encrypted && !ao::settings::DecryptRecordRest(file, m_params.key)) continue;
        if (!ao::settings::ReadRecord(file, outer, ao::settings::kUserRecord, stored, sizeof stored)) continue;
        m_users.push_back(ao::settings::DecodeUser(stored));
        removeCurrent = 0;
      }
      file.CloseChildStream(0);
      if (isChild != 0) users->Release();
    }
    file.Close();
  }
  DeleteOldEntries();
  return 1;
}

int CGlobalSettingStgFile::SaveSettingsInfo(int /*saved*/, SettingsDbInfo* settings) {
  if (settings == nullptr) return 0;
  unsigned char stored[SettingsDbInfo::kStoredSize];
  ao::settings::EncodeSettings(*settings, stored);
  std::lock_guard<std::mutex> fileLock(m_fileMutex);
  CVastrelFile file;
  if (OpenSettingsFile(file, 2) == 0) return 0;
  const int written = ao::settings::WriteRecord(file, m_params.key, ao::settings::kSettingsRecord, stored,
                                                ao::settings::kSettingsRecord.streamName, kSettingsChildName);
  file.Close();
  return written;
}

int CGlobalSettingStgFile::SaveUserInfo(int /*isNew*/, GlobalUserEntry* user) {
  if (user == nullptr) return 0;
  ao::platform::QoUUID uuid;
  std::memcpy(uuid.data(), user->uuid, uuid.size());
  const std::string childName = ao::platform::MakeQoUUIDString(uuid);
  unsigned char stored[GlobalUserEntry::kStoredSize];
  ao::settings::EncodeUser(*user, stored);
  std::lock_guard<std::mutex> fileLock(m_fileMutex);
  CVastrelFile file;
  if (OpenSettingsFile(file, 2) == 0) return 0;
  const int written = ao::settings::WriteRecord(file, m_params.key, ao::settings::kUserRecord, stored,
                                                ao::settings::kUserRecord.streamName, childName.c_str());
  file.Close();
  return written;
}

int CGlobalSettingStgFile::DeleteUserFromFile(GlobalUserEntry* user) {
  if (user == nullptr) return 0;
  std::lock_guard<std::mutex> fileLock(m_fileMutex);
  CVastrelFile file;
  if (OpenSettingsFile(file, 2) == 0) return 0;
  // Looked up by the user's name, not by the UUID text that names the
  // record: the stored record is in general not found. Kept as it stands.
  const int removed = file.RemoveGenericChildStream(ao::settings::kUserRecord.streamName, user->userName);
  file.Close();
  return removed;
}

int CGlobalSettingStgFile::DeleteOldEntries() {
  const uint32_t now = ao::settings::CurrentTime32();
  for (auto user = m_users.begin(); user != m_users.end();) {
    if (IsLastLoginTimeValid(now, &*user) == 0 && DeleteUserFromFile(&*user) != 0) {
      user = m_users.erase(user);
    } else {
      ++user;
    }
  }
  return 1;
}
