#include "utils/ProgressIndicator.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <utility>

namespace velmor {
namespace {

// "12.3 s", "4 min 05 s", "2 h 03 min".
std::string Duration(double seconds) {
  char text[32];
  if (seconds < 60) {
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  } else if (seconds < 3600) {
    const auto whole = static_cast<long>(seconds);
    std::snprintf(text, sizeof text, "%ld min %02ld s", whole / 60, whole % 60);
  } else {
    const auto minutes = static_cast<long>(seconds / 60);
    std::snprintf(text, sizeof text, "%ld h %02ld min", minutes / 60, minutes % 60);
  }
  return text;
}

void WriteToStandardError(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    if (written <= 0) return;  // a progress line is not worth an error
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

constexpr std::string_view kErase = "\r\033[K";

}  // namespace

ProgressIndicator::ProgressIndicator(Sink sink, double min_interval)
    : sink_(std::move(sink)),
      min_interval_(std::chrono::duration_cast<Clock::duration>(
          std::chrono::duration<double>(min_interval))) {}

ProgressIndicator ProgressIndicator::Terminal() {
  return ProgressIndicator(::isatty(STDERR_FILENO) == 1 ? Sink(WriteToStandardError) : Sink());
}

ProgressIndicator::ProgressIndicator(ProgressIndicator&& other) noexcept
    : sink_(std::move(other.sink_)), min_interval_(other.min_interval_) {
  other.sink_ = nullptr;
}

ProgressIndicator::~ProgressIndicator() { Finish(); }

void ProgressIndicator::Update(std::string_view what, std::int64_t done, std::int64_t total,
                               std::string_view unit) {
  if (!sink_) return;
  const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
  if (!lock.owns_lock()) return;  // another thread is drawing
  const Clock::time_point now = Clock::now();
  if (what != stage_) {
    stage_ = what;
    stage_start_ = now;
    last_drawn_ = now;
    return;
  }
  if (now - last_drawn_ < min_interval_) return;
  last_drawn_ = now;
  const double elapsed = std::chrono::duration<double>(now - stage_start_).count();
  std::string text(kErase);
  text += Line(what, done, total, unit, elapsed);
  sink_(text);
  shown_ = true;
}

void ProgressIndicator::Finish() {
  if (!sink_) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (shown_) sink_(kErase);
  shown_ = false;
  stage_.clear();
}

std::string ProgressIndicator::Line(std::string_view what, std::int64_t done, std::int64_t total,
                                    std::string_view unit, double elapsed) {
  std::string line(what);
  char numbers[96];
  const double percent = total > 0 ? 100.0 * static_cast<double>(done) / total : 0.0;
  std::snprintf(numbers, sizeof numbers, ": %" PRId64 "/%" PRId64, done, total);
  line += numbers;
  if (!unit.empty()) (line += ' ') += unit;
  std::snprintf(numbers, sizeof numbers, " (%.1f%%), ", percent);
  line += numbers;
  line += Duration(elapsed) + " elapsed";
  if (done > 0 && done <= total) {
    const double remaining =
        elapsed * static_cast<double>(total - done) / static_cast<double>(done);
    line += ", about " + Duration(remaining) + " left";
  }
  return line;
}

}  // namespace velmor
