// Bounded text in Qo::QOSTR values: what the base library's formatter does
// for the folders, paths and stream-path pieces of the encrypted elements.
#ifndef AOSTORE_GENFILE_QO_STRING_H
#define AOSTORE_GENFILE_QO_STRING_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "aostore/qo_string.h"

namespace ao::genfile {

// Capacities used for folders and file paths, and for pieces of stream paths.
inline constexpr uint16_t kQoPathCapacity = 260;
inline constexpr uint16_t kQoPieceCapacity = 128;

// A Qo string with its own storage. It points into itself, so it is not
// copied.
template <uint16_t Capacity>
class QoBuffer {
 public:
  QoBuffer() : text_{}, string_{Capacity, text_} {}
  QoBuffer(const QoBuffer&) = delete;
  QoBuffer& operator=(const QoBuffer&) = delete;
  Qo::QOSTR* get() { return &string_; }
  const char* c_str() const { return text_; }

 private:
  char text_[Capacity];
  Qo::QOSTR string_;
};

// The text of a Qo string; nullopt when there is no string or its buffer
// holds no terminator within its capacity.
std::optional<std::string_view> QoText(const Qo::QOSTR* string);
// Replaces the text. A text that does not fit (with its terminator) is not
// cut short, since a shortened path names another file: the string is left
// empty and the result is false.
bool QoAssign(Qo::QOSTR* string, std::string_view text);
// folder, the platform's path separator, name: the "%s\%s" of the base
// library. False (string empty) when it does not fit.
bool QoJoinPath(Qo::QOSTR* string, std::string_view folder, std::string_view name);

}  // namespace ao::genfile

#endif  // AOSTORE_GENFILE_QO_STRING_H
