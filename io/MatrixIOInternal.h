#ifndef VELMOR_IO_MATRIXIOINTERNAL_H_
#define VELMOR_IO_MATRIXIOINTERNAL_H_

// Helpers shared by the readers and writers of io/; not part of the library's
// interface.

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <streambuf>
#include <string>

namespace velmor::matrixio::internal {

// The C library's text for the current errno.
std::string SystemErrorText();

// The extension of the last component of `file_name` as a filesystem path,
// from its last dot ("" when there is none), e.g. ".csv".
std::string FileExtension(const std::string& file_name);

// Bytes between the stream's read position and its end, when the stream can
// tell (seekable and in a good state); the position is left unchanged.
std::optional<uint64_t> RemainingStreamBytes(std::istream& stream);

// Reads exactly `size` bytes in large pieces (so that file streams read
// straight into `destination`). Returns false when fewer were available or the
// stream failed.
bool ReadFully(std::istream& stream, char* destination, std::size_t size);

// Skips `size` bytes, seeking when the stream allows it. Returns false when
// fewer were available.
bool SkipBytes(std::istream& stream, uint64_t size);

// Throw std::runtime_error without location: "Encountered IEEE NaN during
// read" / "Encountered IEEE Inf during read".
[[noreturn]] void ThrowIEEENaN();
[[noreturn]] void ThrowIEEEInf();

// Index of the first NaN (nan_check) or infinity (inf_check) among values[0,
// n), or n when there is none. Integer types have none.
template <typename T>
std::size_t FindFirstIEEESpecial(const T* values, std::size_t n, bool nan_check, bool inf_check);

// Copies `block_rows` rows given row-major (row length `cols`) into the rows
// [first_row, first_row + block_rows) of the column-major `destination` of
// `destination_rows` rows. Cache-friendly for blocks of a few dozen rows.
template <typename T>
inline void CopyRowMajorRowsIntoColumnMajor(const T* source, int64_t block_rows, int64_t cols,
                                            T* destination, int64_t destination_rows,
                                            int64_t first_row) {
  for (int64_t j = 0; j < cols; ++j) {
    T* out = destination + j * destination_rows + first_row;
    const T* in = source + j;
    for (int64_t r = 0; r < block_rows; ++r) out[r] = in[r * cols];
  }
}

// Read-only, seekable stream buffer over memory owned by the caller.
class MemoryStreamBuf : public std::streambuf {
 public:
  MemoryStreamBuf(const char* data, std::size_t size);

 protected:
  pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
};

}  // namespace velmor::matrixio::internal

#endif  // VELMOR_IO_MATRIXIOINTERNAL_H_
