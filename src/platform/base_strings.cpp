// The base library's text helpers; no operating system involved.
#include <cstring>

#include "platform/base.h"

namespace ao::platform {

std::string MakeQoUUIDString(const QoUUID& uuid) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(36);
  for (size_t i = 0; i < uuid.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(kDigits[uuid[i] >> 4]);
    text.push_back(kDigits[uuid[i] & 0x0F]);
  }
  return text;
}

bool QoCStrSplitOnChar(const char* text, char separator, std::string* first, std::string* second) {
  if (first == nullptr || second == nullptr) return false;
  second->clear();
  if (text == nullptr) {
    first->clear();
    return false;
  }
  const char* at = std::strchr(text, separator);
  if (separator == '\0' || at == nullptr) {
    first->assign(text);
    return false;
  }
  first->assign(text, static_cast<size_t>(at - text));
  second->assign(at + 1);
  return true;
}

}  // namespace ao::platform
