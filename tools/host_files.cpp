#include "host_files.h"

#include <cerrno>
#include <filesystem>

#include "errors.h"

namespace fs = std::filesystem;

namespace aotool {

std::string ReadProblem(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error) return error.message();
  if (fs::is_directory(status)) return std::generic_category().message(EISDIR);
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return SystemReason();
  std::fclose(file);
  return "";
}

std::string WriteProblem(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) return std::generic_category().message(EISDIR);
  const bool existed = fs::exists(status);
  std::FILE* file = std::fopen(path.c_str(), existed ? "r+b" : "wb");
  if (file == nullptr) return SystemReason();
  std::fclose(file);
  if (!existed) fs::remove(path, error);
  return "";
}

void RequireOtherFile(const std::string& path, const std::string& container) {
  std::error_code error;
  if (path != "-" && fs::equivalent(path, container, error)) Fail(Exit::kConflict, path + ": is the container itself");
}

HostInput::HostInput(const std::string& path) : file_(nullptr), name_(path == "-" ? "standard input" : path) {
  if (path == "-") {
    file_ = stdin;
    return;
  }
  const std::string problem = ReadProblem(path);
  if (!problem.empty()) Fail(Exit::kHostFile, path + ": " + problem);
  file_ = std::fopen(path.c_str(), "rb");
  if (file_ == nullptr) Fail(Exit::kHostFile, path + ": " + SystemReason());
  std::error_code error;
  const auto size = fs::file_size(path, error);
  if (!error) size_ = static_cast<int64_t>(size);
}

HostInput::~HostInput() {
  if (file_ != nullptr && file_ != stdin) std::fclose(file_);
}

size_t HostInput::Read(unsigned char* buffer, size_t capacity) {
  const size_t got = std::fread(buffer, 1, capacity, file_);
  if (got < capacity && std::ferror(file_) != 0) Fail(Exit::kHostFile, name_ + ": " + SystemReason());
  return got;
}

HostOutput::HostOutput(const std::string& path) : file_(std::fopen(path.c_str(), "wb")), path_(path) {
  if (file_ == nullptr) {
    const std::string reason = SystemReason();
    std::error_code error;
    Fail(Exit::kHostFile,
         path + ": " + (fs::is_directory(path, error) ? std::generic_category().message(EISDIR) : reason));
  }
}

HostOutput::~HostOutput() {
  if (file_ != nullptr) std::fclose(file_);
}

void HostOutput::Write(const unsigned char* bytes, size_t count) {
  if (std::fwrite(bytes, 1, count, file_) != count) Fail(Exit::kHostFile, path_ + ": " + SystemReason());
}

void HostOutput::Close() {
  std::FILE* file = file_;
  file_ = nullptr;
  if (std::fflush(file) != 0 || std::ferror(file) != 0) {
    const std::string reason = SystemReason();
    std::fclose(file);
    Fail(Exit::kHostFile, path_ + ": " + reason);
  }
  if (std::fclose(file) != 0) Fail(Exit::kHostFile, path_ + ": " + SystemReason());
}

}  // namespace aotool
