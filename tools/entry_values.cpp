#include "entry_values.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <type_traits>

#include "errors.h"
#include "json.h"
#include "names.h"
#include "text.h"

namespace aotool {
namespace {

uint32_t U32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
int32_t I32(const unsigned char* p) { return static_cast<int32_t>(U32(p)); }
uint64_t U64(const unsigned char* p) { return U32(p) | static_cast<uint64_t>(U32(p + 4)) << 32; }
int64_t I64(const unsigned char* p) { return static_cast<int64_t>(U64(p)); }
double F64(const unsigned char* p) { return std::bit_cast<double>(U64(p)); }

bool Printable(const std::string& text) {
  for (const char c : text)
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') return false;
  return true;
}

// The string encoding of entries: a u16 length, or 0xFFFF and a u32 length,
// then the characters. False when the bytes are not exactly one string.
bool DecodeString(const StoredValue& value, std::string& text) {
  const std::vector<unsigned char>& bytes = value.bytes;
  if (value.length < 2 || static_cast<int64_t>(bytes.size()) < value.length) return false;
  size_t start = 2;
  uint64_t count = static_cast<uint64_t>(bytes[0] | bytes[1] << 8);
  if (count == 0xFFFF) {
    if (value.length < 6) return false;
    count = U32(&bytes[2]);
    start = 6;
  }
  if (start + count != static_cast<uint64_t>(value.length)) return false;
  text.assign(reinterpret_cast<const char*>(&bytes[start]), static_cast<size_t>(count));
  return true;
}

// The data bytes of a value: after the size prefix when it has one.
std::vector<unsigned char> Data(const StoredValue& value) {
  const size_t skip = value.sizePrefixed ? std::min<size_t>(4, value.bytes.size()) : 0;
  return std::vector<unsigned char>(value.bytes.begin() + static_cast<std::ptrdiff_t>(skip), value.bytes.end());
}

std::string Hex(const std::vector<unsigned char>& bytes, size_t most) {
  std::string hex;
  for (size_t i = 0; i < bytes.size() && i < most; ++i) {
    char pair[4];
    std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
    hex += pair;
  }
  return hex + (bytes.size() > most ? "..." : "");
}

std::string Blob(const StoredValue& value) {
  const int64_t length = value.sizePrefixed ? value.length - 4 : value.length;
  return "blob " + std::to_string(length) + " bytes" + (value.sizePrefixed ? " after its size" : "") + ": " +
         Hex(Data(value), 16);
}

std::string Rect(const unsigned char* p) {
  return std::to_string(I32(p)) + "," + std::to_string(I32(p + 4)) + "," + std::to_string(I32(p + 8)) + "," +
         std::to_string(I32(p + 12));
}

std::string JsonNumber(double value) { return std::isfinite(value) ? FormatNumber(value) : "null"; }

template <typename T>
T ParseWhole(const std::string& text, EntryType type) {
  T value{};
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  const bool negative = !text.empty() && text[0] == '-';
  if (parsed.ec == std::errc::result_out_of_range || (std::is_unsigned_v<T> && negative && text.size() > 1)) {
    Fail(Exit::kUsage, "\"" + text + "\" does not fit " + WithArticle(type) + " (" +
                           std::to_string(std::numeric_limits<T>::min()) + " to " +
                           std::to_string(std::numeric_limits<T>::max()) + ")");
  }
  if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end)
    Fail(Exit::kUsage, "\"" + text + "\" is not a whole number");
  return value;
}

}  // namespace

EntryType ParseEntryType(const std::string& name) {
  for (const EntryType type :
       {EntryType::kInt, EntryType::kUInt, EntryType::kInt64, EntryType::kUInt64, EntryType::kDouble,
        EntryType::kString, EntryType::kRect, EntryType::kSize, EntryType::kBlob}) {
    if (name == EntryTypeName(type)) return type;
  }
  Fail(Exit::kUsage,
       "unknown entry type \"" + name + "\" (int, uint, int64, uint64, double, string, rect, size, blob)");
}

const char* EntryTypeName(EntryType type) {
  switch (type) {
    case EntryType::kInt:
      return "int";
    case EntryType::kUInt:
      return "uint";
    case EntryType::kInt64:
      return "int64";
    case EntryType::kUInt64:
      return "uint64";
    case EntryType::kDouble:
      return "double";
    case EntryType::kString:
      return "string";
    case EntryType::kRect:
      return "rect";
    case EntryType::kSize:
      return "size";
    case EntryType::kBlob:
      return "blob";
    case EntryType::kGuess:
      break;
  }
  return "guess";
}

std::string WithArticle(EntryType type) {
  const std::string name = EntryTypeName(type);
  return (name[0] == 'i' ? "an " : "a ") + name;
}

EntryType GuessFromText(const std::string& text) {
  const char* end = text.data() + text.size();
  int64_t whole = 0;
  const auto parsed = std::from_chars(text.data(), end, whole);
  if (!text.empty() && parsed.ptr == end && parsed.ec == std::errc())
    return whole >= INT32_MIN && whole <= INT32_MAX ? EntryType::kInt : EntryType::kInt64;
  if (!text.empty() && parsed.ptr == end && parsed.ec == std::errc::result_out_of_range) {
    uint64_t large = 0;
    if (text[0] != '-' && std::from_chars(text.data(), end, large).ec == std::errc()) return EntryType::kUInt64;
    Fail(Exit::kUsage, "\"" + text + "\" does not fit 64 bits (--type double or --type string keeps it)");
  }
  double real = 0;
  const auto floating = std::from_chars(text.data(), end, real);
  if (!text.empty() && floating.ec == std::errc() && floating.ptr == end) return EntryType::kDouble;
  return EntryType::kString;
}

std::vector<EntryType> StoredTypes(const StoredValue& value) {
  if (value.sizePrefixed) return {};
  // The types of a fixed length, by that length.
  static constexpr std::pair<int64_t, EntryType> kFixed[] = {
      {4, EntryType::kInt},    {4, EntryType::kUInt}, {8, EntryType::kInt64}, {8, EntryType::kUInt64},
      {8, EntryType::kDouble}, {8, EntryType::kSize}, {16, EntryType::kRect}};
  std::vector<EntryType> types;
  std::string text;
  if (DecodeString(value, text)) types.push_back(EntryType::kString);
  for (const auto& [length, type] : kFixed)
    if (value.length == length) types.push_back(type);
  return types;
}

std::string DescribeStored(const StoredValue& value) {
  if (value.sizePrefixed) return "a blob of " + std::to_string(value.length - 4) + " bytes after a size prefix";
  std::vector<EntryType> types = StoredTypes(value);
  if (types.empty()) types.push_back(EntryType::kBlob);
  std::string text = std::to_string(value.length) + (value.length == 1 ? " byte: " : " bytes: ");
  for (size_t i = 0; i < types.size(); ++i)
    text += (i == 0 ? "" : i + 1 == types.size() ? " or " : ", ") + WithArticle(types[i]);
  return text;
}

std::string ShowValue(const StoredValue& value, EntryType type) {
  const std::vector<EntryType> types = StoredTypes(value);
  const auto has = [&types](EntryType t) { return std::find(types.begin(), types.end(), t) != types.end(); };
  std::string text;
  if (type == EntryType::kGuess) {
    if (has(EntryType::kString) && DecodeString(value, text) && Printable(text)) return "string " + Quoted(text);
    if (has(EntryType::kDouble)) {
      return "int64 " + std::to_string(I64(value.bytes.data())) + " or double " + FormatNumber(F64(value.bytes.data()));
    }
    type = has(EntryType::kInt) ? EntryType::kInt : has(EntryType::kRect) ? EntryType::kRect : EntryType::kBlob;
  }
  if (!has(type)) type = EntryType::kBlob;
  const unsigned char* p = value.bytes.data();
  switch (type) {
    case EntryType::kInt:
      return "int " + std::to_string(I32(p));
    case EntryType::kUInt:
      return "uint " + std::to_string(U32(p));
    case EntryType::kInt64:
      return "int64 " + std::to_string(I64(p));
    case EntryType::kUInt64:
      return "uint64 " + std::to_string(U64(p));
    case EntryType::kDouble:
      return "double " + FormatNumber(F64(p));
    case EntryType::kString:
      DecodeString(value, text);
      return "string " + Quoted(text);
    case EntryType::kRect:
      return "rect " + Rect(p);
    case EntryType::kSize:
      return "size " + std::to_string(I32(p)) + "," + std::to_string(I32(p + 4));
    case EntryType::kBlob:
    case EntryType::kGuess:
      break;
  }
  return Blob(value);
}

std::string ValueJson(const StoredValue& value) {
  const std::vector<EntryType> types = StoredTypes(value);
  const auto has = [&types](EntryType t) { return std::find(types.begin(), types.end(), t) != types.end(); };
  const unsigned char* p = value.bytes.data();
  std::string text;
  if (has(EntryType::kString) && DecodeString(value, text) && Printable(text))
    return "\"type\": \"string\", \"value\": " + JsonString(text);
  if (has(EntryType::kInt)) return "\"type\": \"int\", \"value\": " + std::to_string(I32(p));
  if (has(EntryType::kDouble)) {
    return "\"type\": \"int64 or double\", \"int64\": " + std::to_string(I64(p)) +
           ", \"double\": " + JsonNumber(F64(p));
  }
  if (has(EntryType::kRect)) return "\"type\": \"rect\", \"value\": [" + Rect(p) + "]";
  return "\"type\": \"blob\", \"sizePrefixed\": " + std::string(value.sizePrefixed ? "true" : "false") +
         ", \"hex\": \"" + Hex(Data(value), value.bytes.size()) + "\"";
}

int32_t ParseInt(const std::string& text) { return ParseWhole<int32_t>(text, EntryType::kInt); }
uint32_t ParseUInt(const std::string& text) { return ParseWhole<uint32_t>(text, EntryType::kUInt); }
int64_t ParseInt64(const std::string& text) { return ParseWhole<int64_t>(text, EntryType::kInt64); }
uint64_t ParseUInt64(const std::string& text) { return ParseWhole<uint64_t>(text, EntryType::kUInt64); }

double ParseDouble(const std::string& text) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end)
    Fail(Exit::kUsage, "\"" + text + "\" is not a number");
  return value;
}

std::vector<int32_t> ParseInts(const std::string& text, size_t count, const char* what) {
  std::vector<int32_t> values;
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(',', start);
    if (comma == std::string::npos) comma = text.size();
    values.push_back(ParseInt(text.substr(start, comma - start)));
    start = comma + 1;
  }
  if (values.size() != count)
    Fail(Exit::kUsage,
         std::string("a ") + what + " is " + std::to_string(count) + " whole numbers separated by commas");
  return values;
}

std::vector<unsigned char> ParseHex(const std::string& text) {
  const auto digit = [](char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
  };
  std::vector<unsigned char> bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = digit(text[i]);
    const int low = i + 1 < text.size() ? digit(text[i + 1]) : -1;
    if (high < 0 || low < 0) {
      Fail(Exit::kUsage, "a blob is hexadecimal bytes (\"00ff10\"), @FILE or -; \"" + text +
                             "\" is not an even count of hexadecimal digits");
    }
    bytes.push_back(static_cast<unsigned char>(high << 4 | low));
  }
  return bytes;
}

}  // namespace aotool
