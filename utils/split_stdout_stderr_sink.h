#ifndef VELMOR_UTILS_SPLIT_STDOUT_STDERR_SINK_H_
#define VELMOR_UTILS_SPLIT_STDOUT_STDERR_SINK_H_

// Colour console sink that writes error and critical messages to the standard
// error stream and everything else to the standard output, colouring the level
// range as spdlog's colour console sink does. Both streams are guarded by
// spdlog's console mutex and flushed after every message, so the two streams
// interleave in the order the messages were logged.

#include <spdlog/sinks/ansicolor_sink.h>

#include <memory>

namespace velmor::logging {

class split_stdout_stderr_sink : public spdlog::sinks::ansicolor_stdout_sink_mt {
 public:
  explicit split_stdout_stderr_sink(spdlog::color_mode mode = spdlog::color_mode::automatic);

  void log(const spdlog::details::log_msg& msg) override;
  void flush() override;
  // The formatter applies to both streams. Loggers set their patterns through
  // this call; set the sink's own pattern through it too (set_pattern is
  // final in the base and reaches the standard output half only).
  void set_formatter(std::unique_ptr<spdlog::formatter> sink_formatter) override;

 private:
  spdlog::sinks::ansicolor_stderr_sink_mt error_stream_;
};

}  // namespace velmor::logging

#endif  // VELMOR_UTILS_SPLIT_STDOUT_STDERR_SINK_H_
