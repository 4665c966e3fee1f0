#include "compat/fixtures.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "aostore/stream.h"
#include "platform/paths.h"

namespace ao::compat {

bool Problems::Expect(bool ok, const std::string& what) {
  if (!ok) list_.push_back(what);
  return ok;
}

void Problems::Append(const Problems& other) { list_.insert(list_.end(), other.list_.begin(), other.list_.end()); }

Problems WriteFixtures(const std::string& folder) {
  Problems problems;
  problems.Append(WriteContainers(folder));
  problems.Append(WriteRecording(folder));
  problems.Append(WriteEncryptedElement(folder));
  problems.Append(WriteSettings(folder));
  return problems;
}

Problems VerifyFixtures(const std::string& folder) {
  Problems problems;
  const std::string scratch = In(folder, "scratch");
  std::error_code error;
  std::filesystem::create_directories(scratch, error);
  if (!problems.Expect(!error, "cannot make " + scratch)) return problems;
  problems.Append(VerifyContainers(folder, scratch));
  problems.Append(VerifyRecording(folder, scratch));
  problems.Append(VerifyEncryptedElement(folder));
  problems.Append(VerifySettings(folder));
  return problems;
}

Bytes Pattern(size_t size, uint32_t seed) {
  Bytes bytes(size);
  uint32_t state = seed * 2654435761u + 12345u;
  for (unsigned char& byte : bytes) {
    state = state * 1103515245u + 12345u;
    byte = static_cast<unsigned char>(state >> 23);
  }
  return bytes;
}

std::string In(const std::string& folder, const std::string& name) { return platform::JoinPath(folder, name); }

Bytes Drain(aoStream* stream) {
  Bytes bytes;
  unsigned char piece[65536];
  for (;;) {
    const int64_t got = stream->Read(piece, sizeof piece);
    if (got <= 0) break;
    bytes.insert(bytes.end(), piece, piece + got);
  }
  return bytes;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

}  // namespace ao::compat
