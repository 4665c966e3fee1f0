// Numbers as people read them: sizes, durations and percentages.
#ifndef AOSTORE_TOOLS_TEXT_H
#define AOSTORE_TOOLS_TEXT_H

#include <cstdint>
#include <string>

namespace aotool {

// "512 B", "1.5 KiB", "12.0 MiB".
std::string FormatBytes(int64_t bytes);
// "0:07", "12:30", "1:02:03".
std::string FormatDuration(double seconds);
// "0.42 s" or "120 ms": how long a step took.
std::string FormatElapsed(double seconds);
// The shortest text that reads back as the same double: "0.75", "1e+100".
std::string FormatNumber(double value);
// "97.5%" of part in whole ("-" when whole is 0).
std::string FormatPercent(int64_t part, int64_t whole);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_TEXT_H
