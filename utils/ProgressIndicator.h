#ifndef VELMOR_UTILS_PROGRESSINDICATOR_H_
#define VELMOR_UTILS_PROGRESSINDICATOR_H_

// A one-line progress indicator for long work, meant for a person watching a
// terminal: what is being done, how far it is, the time elapsed and an
// estimate of the time remaining, e.g.
//
//     FL matrix, similarities: 1200/5050 tiles (23.8%), 2.1 s elapsed, about 6.8 s left
//
// The line is redrawn in place (carriage return, erase to the end of the
// line) at most every `min_interval` seconds, and erased by Finish() or the
// destructor, so nothing of it is left on the screen and nothing of it ever
// reaches a log. Made with Terminal(), it draws only when standard error is a
// terminal and is otherwise silent: redirected output stays as it was.
//
// Update() may be called from several threads at once and is cheap when no
// redraw is due (an atomic load, a clock read and a failed try-lock at most).

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace velmor {

class ProgressIndicator {
 public:
  // Receives each text to show: a redrawn line, or the erasure.
  using Sink = std::function<void(std::string_view)>;
  using Clock = std::chrono::steady_clock;

  // Draws through `sink`, or never when `sink` is empty.
  explicit ProgressIndicator(Sink sink, double min_interval = 0.25);
  // On standard error when it is a terminal; silent otherwise.
  static ProgressIndicator Terminal();

  ProgressIndicator(ProgressIndicator&& other) noexcept;
  ProgressIndicator(const ProgressIndicator&) = delete;
  ProgressIndicator& operator=(const ProgressIndicator&) = delete;
  ProgressIndicator& operator=(ProgressIndicator&&) = delete;
  ~ProgressIndicator();

  bool enabled() const { return static_cast<bool>(sink_); }

  // `done` of `total` units of the stage `what` are complete. A new `what`
  // restarts the elapsed time. The line is redrawn when the last drawing is
  // at least min_interval old (the first update of a stage only starts its
  // clock). `unit` names the units ("tiles", "steps").
  void Update(std::string_view what, std::int64_t done, std::int64_t total,
              std::string_view unit = "");

  // Erases the line if one is shown. Later updates draw again.
  void Finish();

  // The line for `done` of `total` after `elapsed` seconds, without the
  // control characters. The remaining time is elapsed * (total - done) / done,
  // shown once done > 0.
  static std::string Line(std::string_view what, std::int64_t done, std::int64_t total,
                          std::string_view unit, double elapsed);

 private:
  Sink sink_;
  Clock::duration min_interval_;
  std::mutex mutex_;  // guards everything below; Update only try-locks
  std::string stage_;
  Clock::time_point stage_start_{};
  Clock::time_point last_drawn_{};
  bool shown_ = false;
};

}  // namespace velmor

#endif  // VELMOR_UTILS_PROGRESSINDICATOR_H_
