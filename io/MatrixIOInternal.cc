#include "io/MatrixIOInternal.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace velmor::matrixio::internal {
namespace {

// Largest piece handed to one stream read; keeps each read() well inside what
// the kernel moves in one call.
constexpr std::size_t kMaxReadPiece = std::size_t{1} << 30;

}  // namespace

std::string SystemErrorText() {
  char buffer[256];
  // GNU strerror_r returns the text, which may or may not be in `buffer`.
  return std::string(strerror_r(errno, buffer, sizeof(buffer)));
}

std::string FileExtension(const std::string& file_name) {
  return std::filesystem::path(file_name).extension().string();
}

std::optional<uint64_t> RemainingStreamBytes(std::istream& stream) {
  if (!stream.good()) return std::nullopt;
  const std::istream::pos_type here = stream.tellg();
  if (here == std::istream::pos_type(-1)) {
    stream.clear();
    return std::nullopt;
  }
  stream.seekg(0, std::ios_base::end);
  const std::istream::pos_type end = stream.tellg();
  stream.clear();
  stream.seekg(here);
  if (end == std::istream::pos_type(-1) || !stream.good()) {
    stream.clear();
    stream.seekg(here);
    return std::nullopt;
  }
  const std::streamoff remaining = std::streamoff(end) - std::streamoff(here);
  return remaining > 0 ? static_cast<uint64_t>(remaining) : uint64_t{0};
}

bool ReadFully(std::istream& stream, char* destination, std::size_t size) {
  while (size > 0) {
    const std::size_t piece = std::min(size, kMaxReadPiece);
    stream.read(destination, static_cast<std::streamsize>(piece));
    if (static_cast<std::size_t>(stream.gcount()) != piece || !stream) return false;
    destination += piece;
    size -= piece;
  }
  return true;
}

bool SkipBytes(std::istream& stream, uint64_t size) {
  if (size == 0) return static_cast<bool>(stream);
  if (const std::optional<uint64_t> remaining = RemainingStreamBytes(stream)) {
    if (*remaining < size) return false;
    stream.seekg(static_cast<std::streamoff>(size), std::ios_base::cur);
    return static_cast<bool>(stream);
  }
  char scratch[4096];
  while (size > 0) {
    const std::size_t piece = static_cast<std::size_t>(std::min<uint64_t>(size, sizeof(scratch)));
    if (!ReadFully(stream, scratch, piece)) return false;
    size -= piece;
  }
  return true;
}

void ThrowIEEENaN() { throw std::runtime_error("Encountered IEEE NaN during read"); }
void ThrowIEEEInf() { throw std::runtime_error("Encountered IEEE Inf during read"); }

template <typename T>
std::size_t FindFirstIEEESpecial(const T* values, std::size_t n, bool nan_check, bool inf_check) {
  if constexpr (std::is_integral_v<T>) {
    (void)values;
    (void)nan_check;
    (void)inf_check;
    return n;
  } else {
    if (!nan_check && !inf_check) return n;
    using Bits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
    constexpr Bits kExponentMask =
        static_cast<Bits>(sizeof(T) == 4 ? 0x7f800000ull : 0x7ff0000000000000ull);
    constexpr std::size_t kChunk = 1024;
    for (std::size_t start = 0; start < n; start += kChunk) {
      const std::size_t stop = std::min(n, start + kChunk);
      // Branch-free pass over the chunk (vectorizes): any all-ones exponent?
      Bits special = 0;
      for (std::size_t i = start; i < stop; ++i) {
        Bits bits;
        std::memcpy(&bits, values + i, sizeof(bits));
        special |= static_cast<Bits>((bits & kExponentMask) == kExponentMask);
      }
      if (special == 0) continue;
      for (std::size_t i = start; i < stop; ++i) {
        if ((nan_check && std::isnan(values[i])) || (inf_check && std::isinf(values[i]))) return i;
      }
    }
    return n;
  }
}

template std::size_t FindFirstIEEESpecial<int32_t>(const int32_t*, std::size_t, bool, bool);
template std::size_t FindFirstIEEESpecial<float>(const float*, std::size_t, bool, bool);
template std::size_t FindFirstIEEESpecial<double>(const double*, std::size_t, bool, bool);

MemoryStreamBuf::MemoryStreamBuf(const char* data, std::size_t size) {
  char* begin = const_cast<char*>(data);
  setg(begin, begin, begin + size);
}

MemoryStreamBuf::pos_type MemoryStreamBuf::seekoff(off_type offset,
                                                   std::ios_base::seekdir direction,
                                                   std::ios_base::openmode which) {
  if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
  off_type base = 0;
  if (direction == std::ios_base::cur) base = gptr() - eback();
  if (direction == std::ios_base::end) base = egptr() - eback();
  const off_type target = base + offset;
  if (target < 0 || target > egptr() - eback()) return pos_type(off_type(-1));
  setg(eback(), eback() + target, egptr());
  return pos_type(target);
}

MemoryStreamBuf::pos_type MemoryStreamBuf::seekpos(pos_type position,
                                                   std::ios_base::openmode which) {
  return seekoff(off_type(position), std::ios_base::beg, which);
}

}  // namespace velmor::matrixio::internal
