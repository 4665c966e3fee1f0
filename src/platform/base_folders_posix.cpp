// Folders of the base library on POSIX. Everything the stores create for
// themselves is private to the user: folders 0700, files 0600.
#if !defined(_WIN32)

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/base.h"

namespace ao::platform {
namespace {

constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kPrivateFile = 0600;

bool IsFolder(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool MakeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), kPrivateFolder) == 0) return true;
  // Another thread or process may have made it in the meantime.
  return errno == EEXIST && IsFolder(path);
}

}  // namespace

bool GetAppDataFolder(std::string* folder) {
  if (folder == nullptr) return false;
  const char* xdg = std::getenv("XDG_DATA_HOME");
  // The XDG rules ignore a relative value.
  if (xdg != nullptr && xdg[0] == '/') {
    *folder = xdg;
    return true;
  }
  const char* home = std::getenv("HOME");
  if (home == nullptr || home[0] == '\0') return false;
  *folder = std::string(home) + "/.local/share";
  return true;
}

bool GetMainModulePath(std::string* path) {
  if (path == nullptr) return false;
  std::vector<char> buffer(4096);
  const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
  // A result that fills the buffer may have been cut short.
  if (length <= 0 || static_cast<size_t>(length) >= buffer.size()) return false;
  path->assign(buffer.data(), static_cast<size_t>(length));
  return true;
}

bool VerifyOrCreateDirectory(const char* path) {
  if (path == nullptr || path[0] == '\0') return false;
  const std::string full(path);
  if (IsFolder(full)) return true;
  // Create each missing folder from the top down; the root and folders that
  // exist already are passed over.
  for (size_t at = full.find('/', 1); at != std::string::npos; at = full.find('/', at + 1)) {
    const std::string prefix = full.substr(0, at);
    if (!prefix.empty() && prefix.back() != '/' && !IsFolder(prefix) && !MakeFolder(prefix)) return false;
  }
  return MakeFolder(full);
}

bool CreateOwnerOnlyFile(const char* path) {
  if (path == nullptr) return false;
  int fd;
  do {
    fd = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kPrivateFile);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

bool RestrictFileToOwner(const char* path) {
  return path != nullptr && ::chmod(path, kPrivateFile) == 0;
}

}  // namespace ao::platform

#endif  // !_WIN32
