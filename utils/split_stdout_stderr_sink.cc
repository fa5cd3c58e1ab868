#include "utils/split_stdout_stderr_sink.h"

namespace velmor::logging {

split_stdout_stderr_sink::split_stdout_stderr_sink(spdlog::color_mode mode)
    : spdlog::sinks::ansicolor_stdout_sink_mt(mode), error_stream_(mode) {}

void split_stdout_stderr_sink::log(const spdlog::details::log_msg& msg) {
  // Each half takes the console mutex, formats, colours, writes and flushes.
  if (msg.level > spdlog::level::warn) {
    error_stream_.log(msg);
  } else {
    spdlog::sinks::ansicolor_stdout_sink_mt::log(msg);
  }
}

void split_stdout_stderr_sink::flush() {
  spdlog::sinks::ansicolor_stdout_sink_mt::flush();
  error_stream_.flush();
}

void split_stdout_stderr_sink::set_formatter(std::unique_ptr<spdlog::formatter> sink_formatter) {
  error_stream_.set_formatter(sink_formatter->clone());
  spdlog::sinks::ansicolor_stdout_sink_mt::set_formatter(std::move(sink_formatter));
}

}  // namespace velmor::logging
