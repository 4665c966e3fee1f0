// The two settings stores: the global one (users, their rights and logins,
// and the installation's settings, in "misc.dat") and the local, per-machine
// one (machine-bound encrypted entries in "LocalSettings.dat").
#ifndef AOSTORE_SETTINGS_H
#define AOSTORE_SETTINGS_H

#include <cstdint>
#include <list>
#include <mutex>
#include <string>

#include "aostore/export.h"
#include "aostore/qo_string.h"
#include "aostore/encrypted_element.h"

class aoStorage;
class aoStream;

// What a user's rights block holds.
enum GlobalUserTypeEnum : uint32_t {
  GlobalUserZelvanorPermissions = 1,  // a ZelvanorPermissionsStruct
  GlobalUserAssetPermissions = 2,     // an opaque block of asset permissions
};

// A user's rights as the application sees them: 64 rows of 16 values. The
// stored entry keeps them column by column.
struct AOSTORE_API ZelvanorPermissionsStruct {
  static constexpr int kRows = 64;
  static constexpr int kColumns = 16;
  uint32_t value[kRows][kColumns];
};

// The installation's settings: 96 bytes on disk.
struct AOSTORE_API SettingsDbInfo {
  static constexpr int kStoredSize = 96;
  // Bit 2: users must authenticate. Bits 0, 1 and 3 belong to the application;
  // UpdateUserProfile requires bits 0 and 1.
  uint32_t flags;
  // How long a user's last login stays valid.
  uint16_t loginValidityHours;
  // Not used by the library; stored as it stands.
  unsigned char rest[kStoredSize - 6];
};

// One user: 8480 bytes on disk, in this order.
struct AOSTORE_API GlobalUserEntry {
  static constexpr int kStoredSize = 8480;
  static constexpr int kNameSize = 128;
  static constexpr int kPermissionsCapacity = 8192;
  unsigned char uuid[16];           // names the user's record
  char userName[kNameSize];         // zero-terminated; case of ASCII letters ignored
  char password[kNameSize];         // zero-terminated; compared exactly
  uint32_t permissionsSize;         // 16 for type 1, the asset byte count for type 2
  uint32_t lastLoginTime;           // seconds since 1970, 32 bits
  GlobalUserTypeEnum userType;
  uint32_t reserved;
  // Type 1: the ZelvanorPermissionsStruct column by column, little-endian
  // words. Type 2: the asset permission bytes.
  unsigned char permissions[kPermissionsCapacity];
};

// The global settings store: one container "misc.dat" in the folder "System"
// of the application's data folder. Everything is loaded by Initialize and
// every change is written back at once. Not copyable.
class AOSTORE_API CGlobalSettingStgFile {
 public:
  CGlobalSettingStgFile();
  virtual ~CGlobalSettingStgFile();
  CGlobalSettingStgFile(const CGlobalSettingStgFile&) = delete;
  CGlobalSettingStgFile& operator=(const CGlobalSettingStgFile&) = delete;

  // Acquires the key, loads settings and users. 0 when already initialised.
  int Initialize(char* dataFolder);
  // Reads the settings (writing defaults when they cannot be read) and adds
  // every readable user to the list; unreadable user records are removed from
  // the file. Always 1.
  int Load();
  // 1 when a user of that name (null: the first user) has a valid login and,
  // unless password is null, exactly that password; the user becomes current.
  int TestUserProfile(const char* name, const char* password, GlobalUserTypeEnum* type);
  // 1 while now is before the user's last login plus the validity hours.
  int IsLastLoginTimeValid(uint32_t now, GlobalUserEntry* user);
  int IsAuthenticateUsersEnabled();
  // Sets flag bits 0, 2, 1, 3 from the low bit of each argument and the
  // validity hours, and writes the settings. Always 1.
  int UpdateSettings(int bit0, int bit2, int bit1, int bit3, uint16_t hours);
  // Writes a user's password and rights (permissions when given, else the
  // asset block); a new name gets a new record, seen after the next Load.
  // 0 unless settings bits 0 and 1 are set and assetLength <= 8192.
  int UpdateUserProfile(const char* name, const char* password, ZelvanorPermissionsStruct* permissions,
                        unsigned char* assetPermissions, int assetLength);
  // Copies the current user's permissions into out when it is of type 1.
  // Returns 0 in every case: callers look at the current user's type.
  int GetZelvanorPermissions(ZelvanorPermissionsStruct* out);
  // A copy of the current user's asset block (free with aoFreeBuffer) when it
  // is of type 2: 1; else 0.
  int GetAssetPermissions(unsigned char** out, uint32_t* length);
  int SaveSettingsInfo(int saved, SettingsDbInfo* settings);
  int SaveUserInfo(int isNew, GlobalUserEntry* user);
  // Removes the child of "Users" named by the user's name (not by the UUID
  // that names its record). 1 whenever "Users" could be opened.
  int DeleteUserFromFile(GlobalUserEntry* user);
  // Drops users whose login has lapsed from the file and the list. Always 1.
  int DeleteOldEntries();
  // Reads one settings-kind record into data (size bytes); loaded becomes 1
  // and the result 1 when it was read.
  int LoadChildItemInStreamFromFile(const char* fileName, uint64_t key, const char* streamName,
                                    const char* childName, const StreamKeyBuf& keyMaterial, unsigned char* data,
                                    uint64_t size, int& loaded);

 private:
  // Opens "misc.dat" of the key folder in file; a file created here is made
  // private to its owner.
  int OpenSettingsFile(CVastrelFile& file, int mode);
  // The data folder joined with "System".
  std::string KeyFolder() const;
  // The user whose name matches (null: the first user); null when none does.
  GlobalUserEntry* FindUser(const char* name);

  AppDatabaseParams m_params;
  std::mutex m_fileMutex;
  uint64_t m_provider;
  int m_settingsSaved;
  int m_initialized;
  std::list<GlobalUserEntry> m_users;
  std::string m_dataFolder;
  SettingsDbInfo m_settings;
  GlobalUserEntry m_currentUser;
  std::mutex m_settingsMutex;
  std::mutex m_userListMutex;
};

// The local, per-machine store: named entries in one stream of
// "LocalSettings.dat", each enciphered under a password derived from the
// machine's identifier, so that a copy taken to another machine reads nothing.
// Copies share the container and stream as they stand; only one copy may be
// closed or destroyed.
class AOSTORE_API CLocalSettingStgFile {
 public:
  CLocalSettingStgFile();
  CLocalSettingStgFile(const CLocalSettingStgFile& other);
  CLocalSettingStgFile& operator=(const CLocalSettingStgFile& other);
  virtual ~CLocalSettingStgFile();

  // The file's path: folder, else the program's folder (useAppData 0) or the
  // per-user data folder, then "LocalSettings.dat". 0 when out is null, the
  // folder cannot be found or the path does not fit in out.
  static int GetLocalSettingsFilePath(Qo::QOSTR* out, int useAppData, const char* folder);
  // Opens (create: also creates) the file by the path rule and its stream.
  int OpenStgFolder(int useAppData, const char* streamName, int create, const char* folder);
  // Deciphers entry name into value; 1 only when it holds exactly size bytes
  // (value is untouched otherwise).
  int ReadLocalSettingEntry(const char* name, unsigned char* value, int size);
  // Enciphers size bytes of value and stores them as entry name.
  int WriteLocalSettingEntry(const char* name, unsigned char* value, int size);

 protected:
  int OpenStgFile(const char* path, int create);
  int OpenStream(const char* name, int create);
  int CloseStream();
  int CloseStgFile();

 private:
  aoStorage* m_storage;
  aoStream* m_stream;
};

#endif  // AOSTORE_SETTINGS_H
