// Typed entries as text: what a value's stored bytes can be, showing them as
// one of those types, and parsing a value given on the command line.
//
// The container keeps no type with a value: a value's type is told by its
// length and shape (4 bytes an int, 8 bytes an int64, a double or a size,
// 16 bytes a rect, a length and as many characters a string, a size prefix
// a blob). Any value can be read as a blob, its bytes as they are.
#ifndef AOSTORE_TOOLS_ENTRY_VALUES_H
#define AOSTORE_TOOLS_ENTRY_VALUES_H

#include <cstdint>
#include <string>
#include <vector>

namespace aotool {

enum class EntryType { kGuess, kInt, kUInt, kInt64, kUInt64, kDouble, kString, kRect, kSize, kBlob };

// "int", "uint", "int64", "uint64", "double", "string", "rect", "size",
// "blob"; a usage error otherwise.
EntryType ParseEntryType(const std::string& name);
const char* EntryTypeName(EntryType type);

// The type a value given as text most likely means: a whole number is an
// int when it fits 32 bits, else an int64, else a uint64 (a usage error
// beyond 64 bits); a number with a fraction or exponent a double; anything
// else a string.
EntryType GuessFromText(const std::string& text);

// A value's stored bytes: the first bytes of its stream (bytes), the
// stream's whole length and whether it carries a size prefix.
struct StoredValue {
  std::vector<unsigned char> bytes;
  int64_t length = 0;
  bool sizePrefixed = false;
};

// The types the stored value can be read as, blob aside; empty when it has
// the shape of none of them.
std::vector<EntryType> StoredTypes(const StoredValue& value);
// What the value holds, for messages: "8 bytes: an int64, a uint64, a
// double or a size", "a blob of 3 bytes after a size prefix".
std::string DescribeStored(const StoredValue& value);
// "an int", "a double".
std::string WithArticle(EntryType type);

// The value shown as type: "int 42", "string \"hello\""; kGuess picks the
// type from the stored types. type must be one of them (or kBlob).
std::string ShowValue(const StoredValue& value, EntryType type);
// The value as JSON members: "\"type\": \"int\", \"value\": 42".
std::string ValueJson(const StoredValue& value);

// Parsers of command-line values; a usage error when text is not one.
int32_t ParseInt(const std::string& text);
uint32_t ParseUInt(const std::string& text);
int64_t ParseInt64(const std::string& text);
uint64_t ParseUInt64(const std::string& text);
double ParseDouble(const std::string& text);
// "l,t,r,b" and "cx,cy".
std::vector<int32_t> ParseInts(const std::string& text, size_t count, const char* what);
// Hexadecimal bytes: "00ff10" (an even count of digits, either case).
std::vector<unsigned char> ParseHex(const std::string& text);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_ENTRY_VALUES_H
