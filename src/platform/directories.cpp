#include "platform/directories.h"

#include <filesystem>
#include <system_error>

namespace ao::platform {

namespace fs = std::filesystem;

bool IsDirectory(const char* path) {
  if (path == nullptr || *path == '\0') return false;
  std::error_code error;
  return fs::is_directory(fs::path(path), error);
}

std::vector<std::string> ListFiles(const char* folder) {
  std::vector<std::string> names;
  if (!IsDirectory(folder)) return names;
  std::error_code error;
  fs::directory_iterator entry(fs::path(folder), error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code kindError;
    if (entry->is_directory(kindError)) continue;
    names.push_back(entry->path().filename().string());
  }
  return names;
}

bool RemoveFile(const char* path) {
  if (path == nullptr || *path == '\0') return false;
  std::error_code error;
  fs::path target(path);
  // fs::remove would also delete an empty folder; only files are meant here.
  if (fs::is_directory(fs::symlink_status(target, error))) return false;
  return fs::remove(target, error) && !error;
}

bool RemoveEmptyDirectory(const char* path) {
  if (path == nullptr || *path == '\0') return false;
  std::error_code error;
  fs::path target(path);
  // A link to a folder is not the folder; leave it alone.
  if (!fs::is_directory(fs::symlink_status(target, error))) return false;
  // An empty folder is removed; a non-empty one makes fs::remove fail.
  return fs::remove(target, error) && !error;
}

}  // namespace ao::platform
