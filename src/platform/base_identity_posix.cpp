// Machine identity on POSIX: the systemd / D-Bus machine id, which stays the
// same for the life of an installation.
#if !defined(_WIN32)

#include <cstring>
#include <fstream>
#include <string>

#include "platform/host_identity.h"

namespace ao::platform {
namespace {

// The id files hold 32 hex digits and a newline; anything much longer is not
// an id file, so reading stops well before an unbounded allocation.
constexpr size_t kMaxIdentifierFile = 4096;

std::string Trim(const std::string& text) {
  const char* blanks = " \t\r\n";
  const size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return {};
  const size_t end = text.find_last_not_of(blanks);
  return text.substr(begin, end - begin + 1);
}

std::string ReadIdentifierFile(const char* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::string text(kMaxIdentifierFile, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  return Trim(text);
}

}  // namespace

std::string HostMachineIdentifier() {
  std::string id = ReadIdentifierFile("/etc/machine-id");
  if (id.empty()) id = ReadIdentifierFile("/var/lib/dbus/machine-id");
  return id;
}

}  // namespace ao::platform

#endif  // !_WIN32
