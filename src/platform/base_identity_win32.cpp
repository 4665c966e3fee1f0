// Machine identity on Windows: the MachineGuid that setup writes once per
// installation.
#if defined(_WIN32)

#include <windows.h>

#include <cstring>
#include <string>

#include "platform/host_identity.h"

namespace ao::platform {
namespace {

// A GUID in text is 36 characters; anything much longer is not one, so the
// value is never read into an unbounded buffer.
constexpr DWORD kMaxIdentifier = 256;

std::string MachineGuid() {
  HKEY key = nullptr;
  // The 64-bit view: a 32-bit process would otherwise be redirected away from
  // the value.
  if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Cryptography", 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY,
                      &key) != ERROR_SUCCESS) {
    return {};
  }
  char text[kMaxIdentifier] = {};
  DWORD type = 0;
  DWORD size = sizeof text - 1;  // leaves room for a terminator the value may lack
  const LONG result =
      ::RegQueryValueExA(key, "MachineGuid", nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
  ::RegCloseKey(key);
  if (result != ERROR_SUCCESS || type != REG_SZ) return {};
  return std::string(text, ::strnlen(text, size));
}

}  // namespace

std::string HostMachineIdentifier() { return MachineGuid(); }

}  // namespace ao::platform

#endif  // _WIN32
