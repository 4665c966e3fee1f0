// Folders of the host file system: listing and removal.
#ifndef AOSTORE_PLATFORM_DIRECTORIES_H
#define AOSTORE_PLATFORM_DIRECTORIES_H

#include <string>
#include <vector>

namespace ao::platform {

// True when path names an existing folder (a link to one counts).
bool IsDirectory(const char* path);
// Names (not paths) of the entries directly inside folder that are not
// folders; empty when the folder cannot be read.
std::vector<std::string> ListFiles(const char* folder);
// Deletes one file (a link itself, never its target). False on failure.
bool RemoveFile(const char* path);
// Deletes a folder if it is empty. False on failure.
bool RemoveEmptyDirectory(const char* path);

}  // namespace ao::platform

#endif  // AOSTORE_PLATFORM_DIRECTORIES_H
