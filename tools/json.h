// Just enough JSON for the tool's machine-readable reports.
#ifndef AOSTORE_TOOLS_JSON_H
#define AOSTORE_TOOLS_JSON_H

#include <string>

namespace aotool {

// text as a JSON string literal, quotes included; bytes that are not
// printable ASCII are escaped as \u00XX.
std::string JsonString(const std::string& text);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_JSON_H
