// Paths and folders of the host system.
#ifndef AOSTORE_PLATFORM_PATHS_H
#define AOSTORE_PLATFORM_PATHS_H

#include <string>

namespace ao::platform {

// '/' on POSIX, '\\' on Windows.
char PathSeparator();
// folder + separator + name.
std::string JoinPath(const std::string& folder, const std::string& name);
// The system's folder for temporary files.
std::string TempDirectory();

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_PATHS_H
