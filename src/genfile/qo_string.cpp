#include "genfile/qo_string.h"

#include <cstring>
#include <string>

#include "platform/paths.h"

namespace ao::genfile {

std::optional<std::string_view> QoText(const Qo::QOSTR* string) {
  if (string == nullptr || string->buffer == nullptr || string->capacity == 0) return std::nullopt;
  const void* end = std::memchr(string->buffer, '\0', string->capacity);
  if (end == nullptr) return std::nullopt;
  return std::string_view(string->buffer, static_cast<size_t>(static_cast<const char*>(end) - string->buffer));
}

bool QoAssign(Qo::QOSTR* string, std::string_view text) {
  if (string == nullptr || string->buffer == nullptr || string->capacity == 0) return false;
  if (text.size() >= string->capacity) {
    string->buffer[0] = '\0';
    return false;
  }
  // text may lie in the buffer itself.
  std::memmove(string->buffer, text.data(), text.size());
  string->buffer[text.size()] = '\0';
  return true;
}

bool QoJoinPath(Qo::QOSTR* string, std::string_view folder, std::string_view name) {
  return QoAssign(string, ao::platform::JoinPath(std::string(folder), std::string(name)));
}

}  // namespace ao::genfile
