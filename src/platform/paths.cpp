#include "platform/paths.h"

#include <filesystem>
#include <system_error>

namespace ao::platform {

char PathSeparator() {
#if defined(_WIN32)
  return '\\';
#else
  return '/';
#endif
}

std::string JoinPath(const std::string& folder, const std::string& name) {
  return folder + PathSeparator() + name;
}

std::string TempDirectory() {
  std::error_code error;
  std::filesystem::path dir = std::filesystem::temp_directory_path(error);
  if (error) return ".";
  std::string text = dir.string();
  while (text.size() > 1 && (text.back() == '/' || text.back() == '\\')) text.pop_back();
  return text;
}

}  // namespace ao::platform
