// Files of the host read and written whole, with the reason the system
// gives when that fails ("Permission denied", "Is a directory").
#ifndef AOSTORE_TOOLS_HOST_FILES_H
#define AOSTORE_TOOLS_HOST_FILES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace aotool {

// Why the file at path cannot be opened for reading; empty when it can.
std::string ReadProblem(const std::string& path);
// Why a file at path cannot be opened for writing (created when missing,
// and removed again then); empty when it can.
std::string WriteProblem(const std::string& path);

// Fails with kConflict when path is the container file itself: a
// container read into itself grows as fast as it is read.
void RequireOtherFile(const std::string& path, const std::string& container);

// A host file read from its start; "-" stands for standard input.
class HostInput {
 public:
  // Fails with kHostFile and the system's reason when path cannot be read.
  explicit HostInput(const std::string& path);
  ~HostInput();
  HostInput(const HostInput&) = delete;
  HostInput& operator=(const HostInput&) = delete;

  // Up to capacity bytes; 0 at the end. Fails with kHostFile on a read error.
  size_t Read(unsigned char* buffer, size_t capacity);
  // The file's size, 0 for standard input or when unknown.
  int64_t size() const { return size_; }
  const std::string& name() const { return name_; }

 private:
  std::FILE* file_;
  std::string name_;
  int64_t size_ = 0;
};

// A host file written from its start, created or truncated.
class HostOutput {
 public:
  // Fails with kHostFile and the system's reason when path cannot be written.
  explicit HostOutput(const std::string& path);
  ~HostOutput();
  HostOutput(const HostOutput&) = delete;
  HostOutput& operator=(const HostOutput&) = delete;

  // Fails with kHostFile on a write error.
  void Write(const unsigned char* bytes, size_t count);
  // Flushes and closes; fails with kHostFile when the bytes did not all reach the file.
  void Close();

 private:
  std::FILE* file_;
  std::string path_;
};

}  // namespace aotool

#endif  // AOSTORE_TOOLS_HOST_FILES_H
