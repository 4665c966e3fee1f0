#include "entry_values.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <climits>
#include <cstdio>

#include "errors.h"
#include "text.h"

namespace aotool {
namespace {

uint32_t U32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
int64_t I64(const unsigned char* p) { return static_cast<int64_t>(U32(p) | static_cast<uint64_t>(U32(p + 4)) << 32); }
double F64(const unsigned char* p) { return std::bit_cast<double>(I64(p)); }

bool Printable(const unsigned char* text, size_t length) {
  for (size_t i = 0; i < length; ++i)
    if (text[i] < 0x20 && text[i] != '\t' && text[i] != '\n' && text[i] != '\r') return false;
  return true;
}

// The string encoding of entries: a u16 length, or 0xFFFF and a u32 length,
// then the characters. False when the bytes are not exactly one string.
bool DecodeString(const std::vector<unsigned char>& bytes, int64_t length, std::string& text) {
  if (length < 2 || static_cast<int64_t>(bytes.size()) < length) return false;
  size_t start = 2;
  uint64_t count = static_cast<uint64_t>(bytes[0] | bytes[1] << 8);
  if (count == 0xFFFF) {
    if (length < 6) return false;
    count = U32(&bytes[2]);
    start = 6;
  }
  if (start + count != static_cast<uint64_t>(length)) return false;
  text.assign(reinterpret_cast<const char*>(&bytes[start]), static_cast<size_t>(count));
  return true;
}

std::string Quote(const std::string& text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (c == '\n') {
      quoted += "\\n";
      continue;
    }
    quoted += c;
  }
  return quoted + "\"";
}

std::string Hex(const std::vector<unsigned char>& bytes, int64_t length) {
  std::string hex;
  const size_t shown = std::min<size_t>(static_cast<size_t>(std::max<int64_t>(length, 0)), std::min<size_t>(bytes.size(), 16));
  for (size_t i = 0; i < shown; ++i) {
    char pair[4];
    std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
    hex += pair;
  }
  return hex + (static_cast<int64_t>(shown) < length ? "..." : "");
}

}  // namespace

EntryType ParseEntryType(const std::string& name) {
  static const std::pair<const char*, EntryType> kTypes[] = {
      {"int", EntryType::kInt},       {"int64", EntryType::kInt64}, {"double", EntryType::kDouble},
      {"string", EntryType::kString}, {"rect", EntryType::kRect},   {"size", EntryType::kSize},
      {"blob", EntryType::kBlob}};
  for (const auto& [text, type] : kTypes)
    if (name == text) return type;
  Fail(Exit::kUsage, "unknown entry type \"" + name + "\" (int, int64, double, string, rect, size, blob)");
}

const char* EntryTypeName(EntryType type) {
  switch (type) {
    case EntryType::kInt: return "int";
    case EntryType::kInt64: return "int64";
    case EntryType::kDouble: return "double";
    case EntryType::kString: return "string";
    case EntryType::kRect: return "rect";
    case EntryType::kSize: return "size";
    case EntryType::kBlob: return "blob";
    case EntryType::kGuess: break;
  }
  return "guess";
}

EntryType GuessFromText(const std::string& text) {
  int64_t whole = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, whole);
  if (!text.empty() && parsed.ec == std::errc() && parsed.ptr == end)
    return whole >= INT32_MIN && whole <= INT32_MAX ? EntryType::kInt : EntryType::kInt64;
  double real = 0;
  const auto floating = std::from_chars(text.data(), end, real);
  if (!text.empty() && floating.ec == std::errc() && floating.ptr == end) return EntryType::kDouble;
  return EntryType::kString;
}

std::string ShowValue(const std::vector<unsigned char>& bytes, int64_t length, bool sizePrefixed, EntryType type) {
  std::string text;
  if (type == EntryType::kGuess) {
    if (sizePrefixed) return "blob, " + std::to_string(length - 4) + " bytes after its size: " +
                             Hex(std::vector<unsigned char>(bytes.begin() + std::min<size_t>(4, bytes.size()), bytes.end()),
                                 length - 4);
    if (DecodeString(bytes, length, text) && Printable(reinterpret_cast<const unsigned char*>(text.data()), text.size()))
      return "string " + Quote(text);
    if (length == 4) type = EntryType::kInt;
    if (length == 8) {
      return "int64 " + std::to_string(I64(bytes.data())) + " or double " + FormatNumber(F64(bytes.data()));
    }
    if (length == 16) type = EntryType::kRect;
    if (type == EntryType::kGuess) return "blob " + std::to_string(length) + " bytes: " + Hex(bytes, length);
  }
  const auto need = [&](int64_t count) {
    if (length < count || static_cast<int64_t>(bytes.size()) < count)
      Fail(Exit::kConflict, "the entry holds " + std::to_string(length) + " bytes, too few for a " +
                                EntryTypeName(type));
  };
  switch (type) {
    case EntryType::kInt:
      need(4);
      return "int " + std::to_string(static_cast<int32_t>(U32(bytes.data())));
    case EntryType::kInt64:
      need(8);
      return "int64 " + std::to_string(I64(bytes.data()));
    case EntryType::kDouble:
      need(8);
      return "double " + FormatNumber(F64(bytes.data()));
    case EntryType::kString:
      if (!DecodeString(bytes, length, text)) Fail(Exit::kConflict, "the entry does not hold a string");
      return "string " + Quote(text);
    case EntryType::kRect:
      need(16);
      return "rect " + std::to_string(static_cast<int32_t>(U32(&bytes[0]))) + "," +
             std::to_string(static_cast<int32_t>(U32(&bytes[4]))) + "," +
             std::to_string(static_cast<int32_t>(U32(&bytes[8]))) + "," +
             std::to_string(static_cast<int32_t>(U32(&bytes[12])));
    case EntryType::kSize:
      need(8);
      return "size " + std::to_string(static_cast<int32_t>(U32(&bytes[0]))) + "," +
             std::to_string(static_cast<int32_t>(U32(&bytes[4])));
    case EntryType::kBlob:
    case EntryType::kGuess:
      break;
  }
  return "blob " + std::to_string(length) + " bytes: " + Hex(bytes, length);
}

int32_t ParseInt(const std::string& text) {
  const int64_t value = ParseInt64(text);
  if (value < INT32_MIN || value > INT32_MAX) Fail(Exit::kUsage, "\"" + text + "\" does not fit an int");
  return static_cast<int32_t>(value);
}

int64_t ParseInt64(const std::string& text) {
  int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end) Fail(Exit::kUsage, "\"" + text + "\" is not a whole number");
  return value;
}

double ParseDouble(const std::string& text) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end) Fail(Exit::kUsage, "\"" + text + "\" is not a number");
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
  if (values.size() != count) Fail(Exit::kUsage, std::string("a ") + what + " is " + std::to_string(count) + " whole numbers separated by commas");
  return values;
}

}  // namespace aotool
