#include "json.h"

#include <cstdio>

namespace aotool {

std::string JsonString(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (byte < 0x20 || byte >= 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", byte);
      quoted += escape;
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

}  // namespace aotool
