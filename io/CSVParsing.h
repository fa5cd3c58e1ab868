#ifndef VELMOR_IO_CSVPARSING_H_
#define VELMOR_IO_CSVPARSING_H_

// Line reading and cell conversion shared by the dense and sparse CSV readers;
// not part of the library's interface.
//
// A line is the text between two newline characters (the last line needs
// none); a line is split at every comma, so it has one cell more than it has
// commas, and an empty line has one empty cell. There is no quoting.

#include <cstddef>
#include <cstdint>
#include <istream>
#include <stdexcept>
#include <vector>

#include "utils/error_messages.h"

namespace velmor::matrixio::internal {

// Reads a stream in large blocks and hands out one line at a time, as a
// writable, NUL-terminated range inside its own buffer (valid until the next
// call). Memory is bounded by the longest line plus the block size, and by
// the stream's size when the stream can tell it.
class CSVLineReader {
 public:
  explicit CSVLineReader(std::istream& stream);

  // The next line without its newline; false at the end of the stream or
  // when the stream failed (see StreamFailed).
  bool NextLine(char*& begin, char*& end);

  // True when reading stopped because the stream's bad bit was set.
  bool StreamFailed() const { return stream_failed_; }

 private:
  bool Refill();

  std::istream& stream_;
  std::vector<char> buffer_;  // one byte beyond the text for a terminator
  std::size_t begin_ = 0;     // start of the unread text
  std::size_t end_ = 0;       // end of the text read so far
  bool at_end_ = false;
  bool stream_failed_ = false;
};

// Cuts the next cell off the front of [cursor, end): returns its begin, writes
// a NUL over the comma that ends it and moves `cursor` past that comma. After
// the last cell `cursor` is set beyond `end`. Requires *end == '\0'.
inline char* NextCell(char*& cursor, char* end, char*& cell_end) {
  char* cell = cursor;
  char* p = cell;
  while (p < end && *p != ',') ++p;
  cell_end = p;
  *p = '\0';
  cursor = p + 1;
  return cell;
}

enum class CellStatus { kOk, kOutOfRange, kInvalid, kTrailingText, kNaN, kInf };

// Converts the NUL-terminated cell [begin, end) as the standard conversions
// std::stoi / std::stof / std::stod would (leading white space skipped, a
// sign, decimal digits; for floating types also exponents, hexadecimal,
// "inf" and "nan"), then requires only white space after the number, then,
// for floating types, applies the process-wide NaN and Inf switches. The
// errno of a failed conversion is left for the message.
template <typename T>
CellStatus ConvertCSVCell(char* begin, char* end, T& value);

// "an integer number (32 bits)", "a floating point number (single
// precision)" or "a floating point number (double precision)".
template <typename T>
const char* CSVTypeDescription();

// Throws the failure for `status` (not kOk) with the given location; the NaN
// and Inf failures carry no location. Row and column are 0-based.
template <typename T>
[[noreturn]] void ThrowCSVCellError(CellStatus status, const char* file, const char* function,
                                    unsigned line, const char* cell, int64_t row, int64_t col);

}  // namespace velmor::matrixio::internal

// Every line of a CSV matrix has the first line's number of cells: sets
// `cols` from the first line (while it is still negative), then throws
// std::runtime_error "Stream has incorrect format at line ..." at the calling
// place for a line of `count` cells that differs. `line` is 0-based.
#define VELMOR_CHECK_CSV_COLUMNS(cols, count, line)                                           \
  do {                                                                                        \
    if ((cols) < 0) {                                                                         \
      (cols) = (count);                                                                       \
    } else if ((count) != (cols)) {                                                           \
      VELMOR_THROW(std::runtime_error,                                                        \
                   "Stream has incorrect format at line %d. Expected %d columns, but got %d " \
                   "columns instead.",                                                        \
                   static_cast<int>(line), static_cast<int>(cols), static_cast<int>(count));  \
    }                                                                                         \
  } while (false)

#endif  // VELMOR_IO_CSVPARSING_H_
