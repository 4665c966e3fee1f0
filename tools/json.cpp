#include "json.h"

#include <cstdio>

namespace aotool {
namespace {

// The length of the well-formed UTF-8 sequence at text[at], 0 when there is none.
size_t Utf8Length(const std::string& text, size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 && lead < 0xE0 ? 2 : 0;
  if (length == 0 || at + length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i)
    if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80) return 0;
  return length;
}

}  // namespace

std::string JsonString(const std::string& text) {
  std::string quoted = "\"";
  for (size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (byte >= 0x80 && Utf8Length(text, at) > 0) {
      const size_t length = Utf8Length(text, at);
      quoted.append(text, at, length);
      at += length - 1;
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

std::string FactsJson(const ao::ContainerFacts& f) {
  return "{\"version\": " + JsonString(std::string(f.version == 0 ? 0 : 1, f.version)) +
         ", \"legacy\": " + (f.legacy ? "true" : "false") + ", \"offsetBits\": " + (f.offsets64 ? "64" : "32") +
         ", \"fileSize\": " + std::to_string(f.fileSize) + ", \"tables\": " + std::to_string(f.tables) +
         ", \"rootStreams\": " + std::to_string(f.rootStreams) + ", \"folders\": " + std::to_string(f.folders) +
         ", \"streams\": " + std::to_string(f.streams) + ", \"blocks\": " + std::to_string(f.blocks) +
         ", \"dataBytes\": " + std::to_string(f.dataBytes) +
         ", \"allocatedBytes\": " + std::to_string(f.allocatedBytes) +
         ", \"structureBytes\": " + std::to_string(f.structureBytes) +
         ", \"unreferencedBytes\": " + std::to_string(f.unreferencedBytes) +
         ", \"freeRecordBytes\": " + std::to_string(f.freeRecordBytes) +
         ", \"reclaimableBytes\": " + std::to_string(f.reclaimableBytes) + "}";
}

}  // namespace aotool
