#include "text.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace aotool {

std::string FormatBytes(int64_t bytes) {
  static const char* const kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes) / 1024;
  int unit = 0;
  while (value >= 1024 && unit < 3) {
    value /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string FormatDuration(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0) seconds = 0;
  const auto whole = static_cast<int64_t>(seconds + 0.5);
  char text[32];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(whole / 3600),
                  static_cast<long long>(whole / 60 % 60), static_cast<long long>(whole % 60));
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(whole / 60),
                  static_cast<long long>(whole % 60));
  }
  return text;
}

std::string FormatElapsed(double seconds) {
  char text[32];
  if (seconds < 1) {
    std::snprintf(text, sizeof text, "%.0f ms", seconds * 1000);
  } else {
    std::snprintf(text, sizeof text, "%.2f s", seconds);
  }
  return text;
}

std::string FormatNumber(double value) {
  char text[40];
  const auto result = std::to_chars(text, text + sizeof text, value);
  return std::string(text, result.ptr);
}

std::string FormatPercent(int64_t part, int64_t whole) {
  if (whole <= 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f%%", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
  return text;
}

}  // namespace aotool
