#include "support/temp_dir.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace fs = std::filesystem;

namespace ao::test {

TempDir::TempDir() {
  static std::atomic<int> counter{0};
  std::random_device random;
  const fs::path base = fs::temp_directory_path() /
                        ("aostore-test-" + std::to_string(random()) + "-" + std::to_string(counter++));
  fs::create_directories(base);
  path_ = base.string();
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string TempDir::File(const std::string& name) const { return (fs::path(path_) / name).string(); }

std::vector<unsigned char> ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteWholeFile(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool FileExists(const std::string& path) { return fs::exists(path); }

int64_t FileSize(const std::string& path) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  return error ? -1 : static_cast<int64_t>(size);
}

std::vector<unsigned char> Pattern(size_t size, uint32_t seed) {
  std::vector<unsigned char> bytes(size);
  uint32_t state = seed * 2654435761u + 1;
  for (auto& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<unsigned char>(state >> 24);
  }
  return bytes;
}

}  // namespace ao::test
