// Folders of the base library on Windows. What the stores create for
// themselves is private to the user, as on POSIX: the folder or file gets a
// protected access list with one entry, full access for the current user.
#if defined(_WIN32)

#include <windows.h>
// Left out of windows.h under WIN32_LEAN_AND_MEAN.
#include <aclapi.h>
#include <knownfolders.h>
#include <shlobj.h>

#include <string>
#include <vector>

#include "platform/base.h"

namespace ao::platform {
namespace {

// Longest path the ANSI file functions accept.
constexpr DWORD kMaxModulePath = 32768;

// A security descriptor whose access list admits the current user alone.
// Folders pass the entry on to everything created inside them.
class OwnerOnlySecurity {
 public:
  explicit OwnerOnlySecurity(bool folder) {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return;
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    user_.resize((size + sizeof(DWORD64) - 1) / sizeof(DWORD64));
    const bool gotUser = size != 0 && ::GetTokenInformation(token, TokenUser, user_.data(), size, &size);
    ::CloseHandle(token);
    if (!gotUser) return;
    PSID sid = reinterpret_cast<TOKEN_USER*>(user_.data())->User.Sid;

    const DWORD aclSize = sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD) + ::GetLengthSid(sid);
    acl_.resize((aclSize + sizeof(DWORD) - 1) / sizeof(DWORD));
    auto* acl = reinterpret_cast<ACL*>(acl_.data());
    const DWORD inherit = folder ? OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE : 0;
    ready_ = ::InitializeAcl(acl, aclSize, ACL_REVISION) &&
             ::AddAccessAllowedAceEx(acl, ACL_REVISION, inherit, FILE_ALL_ACCESS, sid) &&
             ::InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) &&
             ::SetSecurityDescriptorDacl(&descriptor_, TRUE, acl, FALSE) &&
             ::SetSecurityDescriptorControl(&descriptor_, SE_DACL_PROTECTED, SE_DACL_PROTECTED);
    attributes_.nLength = sizeof attributes_;
    attributes_.lpSecurityDescriptor = &descriptor_;
    attributes_.bInheritHandle = FALSE;
  }
  OwnerOnlySecurity(const OwnerOnlySecurity&) = delete;
  OwnerOnlySecurity& operator=(const OwnerOnlySecurity&) = delete;

  bool ready() const { return ready_; }
  SECURITY_ATTRIBUTES* attributes() { return ready_ ? &attributes_ : nullptr; }
  ACL* acl() { return ready_ ? reinterpret_cast<ACL*>(acl_.data()) : nullptr; }

 private:
  std::vector<DWORD64> user_;  // TOKEN_USER, which the SID points into
  std::vector<DWORD> acl_;
  SECURITY_DESCRIPTOR descriptor_{};
  SECURITY_ATTRIBUTES attributes_{};
  bool ready_ = false;
};

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

bool IsFolder(const std::string& path) {
  const DWORD attributes = ::GetFileAttributesA(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool MakeFolder(const std::string& path, OwnerOnlySecurity& security) {
  if (!security.ready()) return false;
  if (::CreateDirectoryA(path.c_str(), security.attributes())) return true;
  // Another thread or process may have made it in the meantime.
  return ::GetLastError() == ERROR_ALREADY_EXISTS && IsFolder(path);
}

// Length of the part of path that is never created: "C:\", "\\server\share\"
// or a leading "\".
size_t RootLength(const std::string& path) {
  if (path.size() >= 2 && path[1] == ':') return path.size() > 2 && IsSeparator(path[2]) ? 3 : 2;
  if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) {
    size_t at = path.find_first_of("\\/", 2);                      // end of the server name
    if (at != std::string::npos) at = path.find_first_of("\\/", at + 1);  // end of the share name
    return at == std::string::npos ? path.size() : at + 1;
  }
  return !path.empty() && IsSeparator(path[0]) ? 1 : 0;
}

// Converts a system wide string to the ANSI code page the file functions
// use; false when a character has no ANSI form (the path would name another
// file).
bool ToAnsi(const wchar_t* wide, std::string* out) {
  BOOL lossy = FALSE;
  const int size = ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide, -1, nullptr, 0, nullptr, &lossy);
  if (size <= 0 || lossy) return false;
  std::string text(static_cast<size_t>(size), '\0');
  if (::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide, -1, text.data(), size, nullptr, &lossy) != size ||
      lossy) {
    return false;
  }
  text.resize(static_cast<size_t>(size) - 1);  // the converted terminator
  *out = std::move(text);
  return true;
}

}  // namespace

bool GetAppDataFolder(std::string* folder) {
  if (folder == nullptr) return false;
  // The roaming AppData folder of the user.
  PWSTR wide = nullptr;
  if (SUCCEEDED(::SHGetKnownFolderPath(FOLDERID_RoamingAppData, 0, nullptr, &wide))) {
    const bool converted = ToAnsi(wide, folder);
    ::CoTaskMemFree(wide);
    if (converted) return true;
  } else {
    ::CoTaskMemFree(wide);
  }
  // Without the shell's answer, the environment names the same folder.
  char value[MAX_PATH];
  const DWORD length = ::GetEnvironmentVariableA("APPDATA", value, sizeof value);
  if (length == 0 || length >= sizeof value) return false;
  folder->assign(value, length);
  return true;
}

bool GetMainModulePath(std::string* path) {
  if (path == nullptr) return false;
  std::vector<char> buffer(MAX_PATH);
  for (;;) {
    const DWORD length = ::GetModuleFileNameA(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return false;
    // A result that fills the buffer was cut short.
    if (length < buffer.size()) {
      path->assign(buffer.data(), length);
      return true;
    }
    if (buffer.size() >= kMaxModulePath) return false;
    buffer.resize(buffer.size() * 2);
  }
}

bool VerifyOrCreateDirectory(const char* path) {
  if (path == nullptr || path[0] == '\0') return false;
  const std::string full(path);
  if (IsFolder(full)) return true;
  OwnerOnlySecurity security(true);
  // Create each missing folder from the top down; the root and folders that
  // exist already are passed over.
  for (size_t at = full.find_first_of("\\/", RootLength(full)); at != std::string::npos;
       at = full.find_first_of("\\/", at + 1)) {
    const std::string prefix = full.substr(0, at);
    if (!prefix.empty() && !IsSeparator(prefix.back()) && !IsFolder(prefix) && !MakeFolder(prefix, security)) {
      return false;
    }
  }
  return IsFolder(full) || MakeFolder(full, security);
}

bool CreateOwnerOnlyFile(const char* path) {
  if (path == nullptr) return false;
  OwnerOnlySecurity security(false);
  if (!security.ready()) return false;
  HANDLE file = ::CreateFileA(path, GENERIC_WRITE, 0, security.attributes(), CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  ::CloseHandle(file);
  return true;
}

bool RestrictFileToOwner(const char* path) {
  if (path == nullptr) return false;
  OwnerOnlySecurity security(false);
  if (!security.ready()) return false;
  return ::SetNamedSecurityInfoA(const_cast<char*>(path), SE_FILE_OBJECT,
                                 DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                 security.acl(), nullptr) == ERROR_SUCCESS;
}

}  // namespace ao::platform

#endif  // _WIN32
