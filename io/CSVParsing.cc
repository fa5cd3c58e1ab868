#include "io/CSVParsing.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>

#include "io/MatrixIOCommon.h"
#include "io/MatrixIOInternal.h"
#include "utils/error_messages.h"

namespace velmor::matrixio::internal {
namespace {

constexpr std::size_t kBlockSize = std::size_t{1} << 20;
constexpr std::size_t kSmallest = 64;

bool OnlySpaceFrom(const char* p, const char* end) {
  for (; p < end; ++p) {
    if (!std::isspace(static_cast<unsigned char>(*p))) return false;
  }
  return true;
}

// The C library's conversion, with the rules of std::stoi / stof / stod.
template <typename T>
CellStatus ConvertWithCLibrary(char* begin, char* end, T& value) {
  char* stop = begin;
  errno = 0;
  if constexpr (std::is_same_v<T, int32_t>) {
    const long parsed = std::strtol(begin, &stop, 10);
    if (stop == begin) {
      errno = EINVAL;
      return CellStatus::kInvalid;
    }
    if (errno == ERANGE || parsed < INT32_MIN || parsed > INT32_MAX) {
      errno = ERANGE;
      return CellStatus::kOutOfRange;
    }
    value = static_cast<int32_t>(parsed);
  } else {
    const T parsed = std::is_same_v<T, float> ? static_cast<T>(std::strtof(begin, &stop))
                                              : static_cast<T>(std::strtod(begin, &stop));
    if (stop == begin) {
      errno = EINVAL;
      return CellStatus::kInvalid;
    }
    if (errno == ERANGE) return CellStatus::kOutOfRange;
    value = parsed;
  }
  if (!OnlySpaceFrom(stop, end)) return CellStatus::kTrailingText;
  return CellStatus::kOk;
}

}  // namespace

CSVLineReader::CSVLineReader(std::istream& stream) : stream_(stream) {
  // A stream shorter than a block gets a buffer of its own size (reading a
  // small file costs no large allocation); a long or unknown one a block.
  const std::optional<uint64_t> remaining = RemainingStreamBytes(stream);
  const std::size_t size = remaining ? static_cast<std::size_t>(std::min<uint64_t>(
                                           kBlockSize, std::max<uint64_t>(*remaining, kSmallest)))
                                     : kBlockSize;
  buffer_.resize(size + 1);
}

bool CSVLineReader::Refill() {
  if (at_end_) return false;
  // Keep the unfinished line at the front; grow when it fills the buffer.
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ + 1 >= buffer_.size()) buffer_.resize(buffer_.size() * 2);
  const std::size_t room = buffer_.size() - 1 - end_;
  stream_.read(buffer_.data() + end_, static_cast<std::streamsize>(room));
  const std::size_t got = static_cast<std::size_t>(stream_.gcount());
  end_ += got;
  if (got < room) {
    at_end_ = true;
    stream_failed_ = stream_.bad();
  }
  return got > 0;
}

bool CSVLineReader::NextLine(char*& begin, char*& end) {
  std::size_t scanned = begin_;
  for (;;) {
    char* data = buffer_.data();
    if (void* newline = std::memchr(data + scanned, '\n', end_ - scanned)) {
      begin = data + begin_;
      end = static_cast<char*>(newline);
      *end = '\0';
      begin_ = static_cast<std::size_t>(end - data) + 1;
      return true;
    }
    const std::size_t unread_before = end_ - begin_;
    if (!Refill()) {
      if (stream_failed_ || begin_ == end_) return false;
      // The last line, without a newline.
      data = buffer_.data();
      begin = data + begin_;
      end = data + end_;
      *end = '\0';
      begin_ = end_;
      return true;
    }
    scanned = begin_ + unread_before;
  }
}

template <typename T>
CellStatus ConvertCSVCell(char* begin, char* end, T& value) {
  // Fast path: std::from_chars on plain decimal text. Anything unusual (a
  // plus sign, hexadecimal, an out-of-range or subnormal value, specials,
  // trailing text) is decided by the C library, whose rules are the ones kept.
  const char* p = begin;
  while (p < end && std::isspace(static_cast<unsigned char>(*p))) ++p;
  T parsed{};
  const std::from_chars_result result = std::from_chars(p, end, parsed);
  if (result.ec == std::errc() && result.ptr != p && OnlySpaceFrom(result.ptr, end)) {
    if constexpr (std::is_same_v<T, int32_t>) {
      value = parsed;
      return CellStatus::kOk;
    } else {
      // Zero may be an underflow, which the C library reports as a range
      // error; a leading "0x" stops from_chars at the 'x' and is not here.
      if (std::isnormal(parsed)) {
        value = parsed;
        return CellStatus::kOk;
      }
    }
  }
  const CellStatus status = ConvertWithCLibrary(begin, end, value);
  if (status != CellStatus::kOk) return status;
  if constexpr (!std::is_same_v<T, int32_t>) {
    if (CheckForIEEEInfOnRead() && std::isinf(value)) return CellStatus::kInf;
    if (CheckForIEEENaNOnRead() && std::isnan(value)) return CellStatus::kNaN;
  }
  return CellStatus::kOk;
}

template <>
const char* CSVTypeDescription<int32_t>() {
  return "an integer number (32 bits)";
}
template <>
const char* CSVTypeDescription<float>() {
  return "a floating point number (single precision)";
}
template <>
const char* CSVTypeDescription<double>() {
  return "a floating point number (double precision)";
}

template <typename T>
void ThrowCSVCellError(CellStatus status, const char* file, const char* function, unsigned line,
                       const char* cell, int64_t row, int64_t col) {
  using exception::MakeSourceMessage;
  const int row_number = static_cast<int>(row);
  const int col_number = static_cast<int>(col);
  switch (status) {
    case CellStatus::kOutOfRange: {
      const std::string error = SystemErrorText();
      throw std::runtime_error(MakeSourceMessage(
          file, function, line,
          "Cell '%s' is out of range to be converted to '%s' at row %d, col %d: '%s'.", cell,
          CSVTypeDescription<T>(), row_number, col_number, error.c_str()));
    }
    case CellStatus::kInvalid: {
      const std::string error = SystemErrorText();
      throw std::runtime_error(MakeSourceMessage(
          file, function, line, "Error converting cell '%s' to '%s' at row %d, col %d: '%s'.", cell,
          CSVTypeDescription<T>(), row_number, col_number, error.c_str()));
    }
    case CellStatus::kTrailingText:
      if constexpr (std::is_same_v<T, int32_t>) {
        throw std::runtime_error(MakeSourceMessage(
            file, function, line, "Cell '%s' contains more than a single integer value", cell));
      } else {
        throw std::runtime_error(
            MakeSourceMessage(file, function, line,
                              "Cell '%s' contains more than a single floating point value", cell));
      }
    case CellStatus::kNaN:
      ThrowIEEENaN();
    case CellStatus::kInf:
      ThrowIEEEInf();
    case CellStatus::kOk:
      break;
  }
  throw std::logic_error("ThrowCSVCellError called without an error");
}

template CellStatus ConvertCSVCell<int32_t>(char*, char*, int32_t&);
template CellStatus ConvertCSVCell<float>(char*, char*, float&);
template CellStatus ConvertCSVCell<double>(char*, char*, double&);
template void ThrowCSVCellError<int32_t>(CellStatus, const char*, const char*, unsigned,
                                         const char*, int64_t, int64_t);
template void ThrowCSVCellError<float>(CellStatus, const char*, const char*, unsigned, const char*,
                                       int64_t, int64_t);
template void ThrowCSVCellError<double>(CellStatus, const char*, const char*, unsigned, const char*,
                                        int64_t, int64_t);

}  // namespace velmor::matrixio::internal
