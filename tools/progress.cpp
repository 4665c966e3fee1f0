#include "progress.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "aostore/maintenance.h"
#include "text.h"

namespace aotool {
namespace {
constexpr auto kRedrawEvery = std::chrono::milliseconds(100);

// Nothing is drawn for work that ends this quickly: 300 ms, or the
// milliseconds AOSTORE_PROGRESS_DELAY gives.
std::chrono::milliseconds QuietStart() {
  const char* text = std::getenv("AOSTORE_PROGRESS_DELAY");
  int milliseconds = 300;
  if (text != nullptr) std::from_chars(text, text + std::strlen(text), milliseconds);
  return std::chrono::milliseconds(std::max(milliseconds, 0));
}
}  // namespace

Progress::Progress(std::string label, int64_t total, Unit unit)
    : label_(std::move(label)),
      total_(total),
      unit_(unit),
      enabled_(Enabled()),
      quietStart_(QuietStart()),
      start_(std::chrono::steady_clock::now()),
      lastDraw_(start_ - kRedrawEvery) {}

Progress::~Progress() { Finish(); }

bool Progress::Enabled() { return ao::StandardErrorIsTerminal(); }

void Progress::Update(int64_t done) {
  done_ = done;
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now - start_ < quietStart_ || now - lastDraw_ < kRedrawEvery) return;
  lastDraw_ = now;
  Draw(now);
}

void Progress::Draw(std::chrono::steady_clock::time_point now) {
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double rate = seconds > 0 ? static_cast<double>(done_) / seconds : 0;
  const auto amount = [this](int64_t value) {
    return unit_ == Unit::kBytes ? FormatBytes(value) : std::to_string(value);
  };
  std::string tail = amount(static_cast<int64_t>(rate)) + "/s";
  std::string bar;
  const int columns = std::max(40, ao::StandardErrorColumns());
  if (total_ > 0) {
    const double fraction = std::clamp(static_cast<double>(done_) / static_cast<double>(total_), 0.0, 1.0);
    if (rate > 0) {
      tail += "  ";
      tail += FormatDuration(static_cast<double>(total_ - done_) / rate);
      tail += " left";
    }
    const int width = std::max(10, columns - static_cast<int>(label_.size() + tail.size()) - 12);
    const int filled = static_cast<int>(fraction * width);
    bar.reserve(static_cast<size_t>(width) + 8);
    bar += '[';
    bar.append(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(width - filled), ' ');
    bar += "] ";
    bar += std::to_string(static_cast<int>(fraction * 100));
    bar += '%';
  } else {
    bar = amount(done_);
  }
  std::string line = label_;
  line += ' ';
  line += bar;
  line += "  ";
  line += tail;
  if (static_cast<int>(line.size()) >= columns) line.resize(static_cast<size_t>(columns - 1));
  std::fprintf(stderr, "\r%s\033[K", line.c_str());
  std::fflush(stderr);
  drawn_ = true;
}

void Progress::Finish() {
  if (!drawn_) return;
  std::fprintf(stderr, "\r\033[K");
  std::fflush(stderr);
  drawn_ = false;
}

}  // namespace aotool
