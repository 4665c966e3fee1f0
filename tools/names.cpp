#include "names.h"

#include <cstdio>

#include "aostore/aostore.h"
#include "errors.h"

namespace aotool {
namespace {

bool Control(unsigned char byte) { return byte < 0x20 || byte == 0x7F; }

std::string Hex(unsigned char byte) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02x", byte);
  return text;
}

#ifdef _WIN32
// Characters and device names Windows keeps out of file names.
std::string WindowsProblem(const std::string& name) {
  for (const char c : std::string(":*?\"<>|"))
    if (name.find(c) != std::string::npos) return std::string("holds '") + c + "', which Windows file names may not";
  if (name.back() == '.' || name.back() == ' ') return "ends in a dot or a space, which Windows drops";
  std::string stem = name.substr(0, name.find('.'));
  for (char& c : stem) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
  for (const char* device : {"CON", "PRN", "AUX", "NUL"})
    if (stem == device) return "is a device name on Windows";
  if (stem.size() == 4 && (stem.rfind("COM", 0) == 0 || stem.rfind("LPT", 0) == 0) && stem[3] >= '1' && stem[3] <= '9')
    return "is a device name on Windows";
  return "";
}
#endif

}  // namespace

std::string NameProblem(const std::string& name) {
  if (name.empty()) return "is empty";
  if (name.size() > static_cast<size_t>(kAoMaxNameLength))
    return "is " + std::to_string(name.size()) + " bytes long, more than the " + std::to_string(kAoMaxNameLength) +
           " a name may have";
  if (name == "." || name == "..") return "is \"" + name + "\", which names a folder itself or its parent";
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '/') return "holds '/', the path separator";
    if (c == '\\') return "holds '\\', the path separator on Windows";
    if (Control(byte)) return "holds a control character (" + Hex(byte) + ")";
  }
  return "";
}

std::string HostNameProblem(const std::string& name) {
  std::string problem = NameProblem(name);
#ifdef _WIN32
  if (problem.empty()) problem = WindowsProblem(name);
#endif
  return problem;
}

void RequireValidNames(const std::vector<std::string>& names) {
  std::string path;
  for (const std::string& name : names) {
    path += (path.empty() ? "" : "/") + name;
    const std::string problem = NameProblem(name);
    if (!problem.empty()) Fail(Exit::kInvalidName, Shown(path) + ": the name " + problem);
  }
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else if (c == '\r') {
      quoted += "\\r";
    } else if (Control(byte)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", byte);
      quoted += escape;
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

std::string Shown(const std::string& text) {
  for (const char c : text)
    if (Control(static_cast<unsigned char>(c))) return Quoted(text);
  return text;
}

}  // namespace aotool
