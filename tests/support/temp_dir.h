// A temporary folder for one test, removed with everything in it afterwards.
#ifndef AOSTORE_TESTS_SUPPORT_TEMP_DIR_H
#define AOSTORE_TESTS_SUPPORT_TEMP_DIR_H

#include <cstdint>
#include <string>
#include <vector>

namespace ao::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  // path() joined with name.
  std::string File(const std::string& name) const;

 private:
  std::string path_;
};

std::vector<unsigned char> ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::vector<unsigned char>& bytes);
bool FileExists(const std::string& path);
int64_t FileSize(const std::string& path);
// Deterministic test bytes: a different pattern for every seed.
std::vector<unsigned char> Pattern(size_t size, uint32_t seed);

}  // namespace ao::test

#endif  // AOSTORE_TESTS_SUPPORT_TEMP_DIR_H
