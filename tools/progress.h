// A progress bar for long work, drawn on standard error with the rate and
// the time left, only when standard error is a terminal; silent otherwise,
// so that scripts and logs see nothing of it. It appears once the work has
// lasted 300 ms, or the milliseconds the environment variable
// AOSTORE_PROGRESS_DELAY gives.
#ifndef AOSTORE_TOOLS_PROGRESS_H
#define AOSTORE_TOOLS_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace aotool {

class Progress {
 public:
  enum class Unit { kBytes, kItems };
  // total: the amount of work (0 when unknown), in bytes or in items.
  Progress(std::string label, int64_t total, Unit unit = Unit::kBytes);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Update(int64_t done);
  void Advance(int64_t more) { Update(done_ + more); }
  void SetTotal(int64_t total) { total_ = total; }
  // Clears the bar's line.
  void Finish();

  // Whether bars are drawn at all in this process.
  static bool Enabled();

 private:
  void Draw(std::chrono::steady_clock::time_point now);

  std::string label_;
  int64_t total_;
  Unit unit_;
  int64_t done_ = 0;
  bool enabled_;
  std::chrono::milliseconds quietStart_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point lastDraw_;
};

}  // namespace aotool

#endif  // AOSTORE_TOOLS_PROGRESS_H
