// Files one build writes for another build to read: containers, a recorder
// log, a key record with the records it enciphers, and both settings stores.
// The Windows and the Linux build must each read what the other wrote.
#ifndef AOSTORE_TESTS_COMPAT_FIXTURES_H
#define AOSTORE_TESTS_COMPAT_FIXTURES_H

#include <cstdint>
#include <string>
#include <vector>

class aoStream;

namespace ao::compat {

using Bytes = std::vector<unsigned char>;

// What went wrong, one line each; empty when everything held.
class Problems {
 public:
  // Notes what when ok is false; returns ok.
  bool Expect(bool ok, const std::string& what);
  const std::vector<std::string>& list() const { return list_; }
  void Append(const Problems& other);

 private:
  std::vector<std::string> list_;
};

// Writes every fixture into folder, which exists and is empty.
Problems WriteFixtures(const std::string& folder);
// Reads the fixtures in folder, written by this build or another one.
// Scratch files go to a folder "scratch" made inside folder.
Problems VerifyFixtures(const std::string& folder);

// The parts, each writing or reading its own files in folder.
Problems WriteContainers(const std::string& folder);
Problems VerifyContainers(const std::string& folder, const std::string& scratch);
Problems WriteRecording(const std::string& folder);
Problems VerifyRecording(const std::string& folder, const std::string& scratch);
Problems WriteEncryptedElement(const std::string& folder);
Problems VerifyEncryptedElement(const std::string& folder);
Problems WriteSettings(const std::string& folder);
Problems VerifySettings(const std::string& folder);

// ---- Helpers shared by the parts.
// Deterministic bytes, the same on every build: a different run per seed.
Bytes Pattern(size_t size, uint32_t seed);
// folder joined with name by the platform's separator.
std::string In(const std::string& folder, const std::string& name);
// All bytes of a stream from its current position; releases nothing.
Bytes Drain(aoStream* stream);
Bytes ReadFile(const std::string& path);
bool WriteFile(const std::string& path, const Bytes& bytes);

}  // namespace ao::compat

#endif  // AOSTORE_TESTS_COMPAT_FIXTURES_H
