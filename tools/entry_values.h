// Typed entries as text: reading a value's bytes as the type they most
// likely hold, and parsing a value given on the command line.
#ifndef AOSTORE_TOOLS_ENTRY_VALUES_H
#define AOSTORE_TOOLS_ENTRY_VALUES_H

#include <cstdint>
#include <string>
#include <vector>

namespace aotool {

enum class EntryType { kGuess, kInt, kInt64, kDouble, kString, kRect, kSize, kBlob };

// "int", "int64", "double", "string", "rect", "size", "blob"; a usage error otherwise.
EntryType ParseEntryType(const std::string& name);
const char* EntryTypeName(EntryType type);

// The type a value given as text most likely means: a whole number that
// fits 32 bits is an int, a larger one an int64, a number with a fraction
// or exponent a double, anything else a string.
EntryType GuessFromText(const std::string& text);

// The stored bytes shown as type: "int 42", "string \"hello\"", ...;
// kGuess picks the type from the length and the bytes.
std::string ShowValue(const std::vector<unsigned char>& bytes, int64_t length, bool sizePrefixed, EntryType type);

// Parsers of command-line values; a usage error when text is not one.
int32_t ParseInt(const std::string& text);
int64_t ParseInt64(const std::string& text);
double ParseDouble(const std::string& text);
// "l,t,r,b" and "cx,cy".
std::vector<int32_t> ParseInts(const std::string& text, size_t count, const char* what);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_ENTRY_VALUES_H
