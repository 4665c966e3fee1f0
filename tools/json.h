// Just enough JSON for the tool's machine-readable reports.
#ifndef AOSTORE_TOOLS_JSON_H
#define AOSTORE_TOOLS_JSON_H

#include <string>

#include "aostore/check.h"

namespace aotool {

// text as a JSON string literal, quotes included. Well-formed UTF-8 is kept;
// other bytes that are not printable ASCII are escaped as \u00XX.
std::string JsonString(const std::string& text);

// The facts of a check report as a JSON object.
std::string FactsJson(const ao::ContainerFacts& facts);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_JSON_H
