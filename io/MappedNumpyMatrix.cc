#include "io/MappedNumpyMatrix.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <istream>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "io/MatrixIOInternal.h"
#include "io/NumpyArrayReading.h"
#include "utils/ParallelParts.h"
#include "utils/error_messages.h"
#include "utils/signal_handling.h"
#include "utils/top_level_error_report.h"

namespace velmor::matrixio {
namespace {

// Fewer values than this are checked on one thread.
constexpr std::size_t kValuesPerPart = std::size_t{1} << 16;

// Files with fewer rows get no column maxima from their check.
constexpr uint64_t kRowsForColumnMaxima = 64;

template <typename T>
constexpr NumpyDataType OwnType() {
  return std::is_same_v<T, float> ? NumpyDataType::kFloat32 : NumpyDataType::kFloat64;
}

// Closes a file descriptor on every way out.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// ----- Files that shrink under a mapping ---------------------------------
//
// Reading a mapped page that lies beyond the end of its file (the file was
// truncated after it was mapped) raises SIGBUS. For the address ranges of
// the live mappings, the handler below writes the report of a failed load
// and ends the process with status 1; faults elsewhere keep the disposition
// that was in place before. Nothing is copied and reads cost nothing extra:
// the price is one registration per mapping. The registry is a fixed table
// of atomics, so the handler takes no lock and allocates nothing.

struct GuardedRange {
  std::atomic<bool> taken{false};
  std::atomic<uintptr_t> begin{0};  // 0: not in force
  std::atomic<uintptr_t> end{0};
  std::atomic<const char*> report{nullptr};
};

constexpr int kGuardedRanges = 64;
GuardedRange guarded_ranges[kGuardedRanges];
struct sigaction previous_bus_action;
static_assert(std::atomic<uintptr_t>::is_always_lock_free, "read by a signal handler");

void HandleBusError(int signal_number, siginfo_t* info, void* context) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(info->si_addr);
  for (GuardedRange& range : guarded_ranges) {
    const uintptr_t begin = range.begin.load(std::memory_order_acquire);
    if (begin != 0 && address >= begin && address < range.end.load(std::memory_order_acquire)) {
      WriteToStandardErrorFromHandler(range.report.load(std::memory_order_acquire));
      ::_exit(1);
    }
  }
  // Not a mapping of ours.
  if ((previous_bus_action.sa_flags & SA_SIGINFO) != 0) {
    if (previous_bus_action.sa_sigaction != nullptr) {
      previous_bus_action.sa_sigaction(signal_number, info, context);
      return;
    }
  } else if (previous_bus_action.sa_handler == SIG_IGN) {
    return;
  } else if (previous_bus_action.sa_handler != SIG_DFL) {
    previous_bus_action.sa_handler(signal_number);
    return;
  }
  // The default action, for a fault (raised again on return) and for a sent
  // signal alike.
  ::signal(SIGBUS, SIG_DFL);
  ::raise(SIGBUS);
}

bool InstallBusErrorHandler() {
  struct sigaction action;
  std::memset(&action, 0, sizeof(action));
  action.sa_sigaction = &HandleBusError;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  return ::sigaction(SIGBUS, &action, &previous_bus_action) == 0;
}

// The report a failed load of `file_name` gives, as the handler writes it.
std::string TruncatedFileReport(const std::string& file_name) {
  std::exception_ptr failure;
  try {
    try {
      VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: '%s'.",
                   "the file was truncated while it was mapped");
    } catch (...) {
      VELMOR_THROW_NESTED(std::runtime_error, "Problems opening file '%s'.", file_name.c_str());
    }
  } catch (...) {
    failure = std::current_exception();
  }
  return exception::TopLevelErrorReportText(failure) + "End of Backtrace.\n";
}

// Puts [begin, begin + length) under the handler; false when the table is
// full or the handler cannot be installed.
bool GuardRange(const void* begin, std::size_t length, const std::string& file_name) {
  static const bool installed = InstallBusErrorHandler();
  if (!installed) return false;
  for (GuardedRange& range : guarded_ranges) {
    bool expected = false;
    if (!range.taken.compare_exchange_strong(expected, true)) continue;
    const std::string report = TruncatedFileReport(file_name);
    char* text = new char[report.size() + 1];
    std::memcpy(text, report.c_str(), report.size() + 1);
    range.report.store(text, std::memory_order_release);
    range.end.store(reinterpret_cast<uintptr_t>(begin) + length, std::memory_order_release);
    range.begin.store(reinterpret_cast<uintptr_t>(begin), std::memory_order_release);
    return true;
  }
  return false;
}

void UnguardRange(const void* begin) {
  for (GuardedRange& range : guarded_ranges) {
    if (range.begin.load(std::memory_order_acquire) != reinterpret_cast<uintptr_t>(begin)) continue;
    range.begin.store(0, std::memory_order_release);
    delete[] range.report.exchange(nullptr, std::memory_order_acq_rel);
    range.taken.store(false, std::memory_order_release);
    return;
  }
}

// Unmaps a mapping on every way out unless released.
class MappingGuard {
 public:
  MappingGuard(void* base, std::size_t length) : base_(base), length_(length) {}
  ~MappingGuard() {
    if (base_ == nullptr) return;
    UnguardRange(base_);
    munmap(base_, length_);
  }
  MappingGuard(const MappingGuard&) = delete;
  MappingGuard& operator=(const MappingGuard&) = delete;
  void* get() const { return base_; }
  void* release() { return std::exchange(base_, nullptr); }

 private:
  void* base_;
  std::size_t length_;
};

// Fills the mapping's page tables for reading in one call, rather than one
// fault per page on first touch, without copying anything (the pages stay
// the page cache's own; a write still copies just its page). On kernels
// without MADV_POPULATE_READ, only asks for the file to be read ahead.
void Prefault(void* base, std::size_t length) {
#ifdef MADV_POPULATE_READ
  if (madvise(base, length, MADV_POPULATE_READ) == 0) return;
#endif
  (void)madvise(base, length, MADV_WILLNEED);
}

// internal::FindFirstIEEESpecial over `parts` contiguous ranges at once: the
// first index of the first range that has one, so the same index.
template <typename T>
std::size_t FindFirstSpecialInParts(const T* values, std::size_t n, bool nan_check, bool inf_check,
                                    int threads) {
  const int parts = static_cast<int>(std::clamp<std::size_t>(
      n / kValuesPerPart, 1, static_cast<std::size_t>(std::max(1, threads))));
  std::vector<std::size_t> first(static_cast<std::size_t>(parts), n);
  RunInParts(parts, [&](int part) {
    const auto begin =
        static_cast<std::size_t>(PartBegin(static_cast<std::int64_t>(n), parts, part));
    const auto end =
        static_cast<std::size_t>(PartBegin(static_cast<std::int64_t>(n), parts, part + 1));
    const std::size_t found =
        internal::FindFirstIEEESpecial<T>(values + begin, end - begin, nan_check, inf_check);
    if (found != end - begin) first[static_cast<std::size_t>(part)] = begin + found;
  });
  return *std::min_element(first.begin(), first.end());
}

// The full check (NaN and infinity) of `rows` rows of `cols` values, with the
// largest value of each column found in the same pass: rows split into
// `threads` contiguous ranges, each checked a block of rows at a time and its
// maxima raised while the block is in the cache. Returns the index of the
// first special value in file order (the same for every thread count), or
// rows * cols with the maxima in `column_maxima`.
template <typename T>
std::size_t CheckAndFindColumnMaxima(const T* values, std::size_t rows, std::size_t cols,
                                     int threads, std::vector<T>* column_maxima) {
  const std::size_t count = rows * cols;
  const int parts = static_cast<int>(std::clamp<std::size_t>(
      std::min(rows, count / kValuesPerPart), 1, static_cast<std::size_t>(std::max(1, threads))));
  const std::size_t block_rows = std::max<std::size_t>(1, (std::size_t{16} << 10) / cols);
  std::vector<std::size_t> first(static_cast<std::size_t>(parts), count);
  std::vector<std::vector<T>> maxima(static_cast<std::size_t>(parts),
                                     std::vector<T>(cols, std::numeric_limits<T>::lowest()));
  RunInParts(parts, [&](int part) {
    const auto begin =
        static_cast<std::size_t>(PartBegin(static_cast<std::int64_t>(rows), parts, part));
    const auto end =
        static_cast<std::size_t>(PartBegin(static_cast<std::int64_t>(rows), parts, part + 1));
    T* part_maxima = maxima[static_cast<std::size_t>(part)].data();
    for (std::size_t row = begin; row < end; row += block_rows) {
      const std::size_t block_end = std::min(end, row + block_rows);
      const T* block = values + row * cols;
      const std::size_t size = (block_end - row) * cols;
      const std::size_t found = internal::FindFirstIEEESpecial<T>(block, size, true, true);
      if (found != size) {
        first[static_cast<std::size_t>(part)] = row * cols + found;
        return;
      }
      for (const T* x = block; x < block + size; x += cols) {
        for (std::size_t j = 0; j < cols; ++j) {
          part_maxima[j] = x[j] > part_maxima[j] ? x[j] : part_maxima[j];
        }
      }
    }
  });
  const std::size_t bad = *std::min_element(first.begin(), first.end());
  if (bad != count) return bad;
  for (int part = 1; part < parts; ++part) {
    const std::vector<T>& other = maxima[static_cast<std::size_t>(part)];
    for (std::size_t j = 0; j < cols; ++j) {
      maxima[0][j] = other[j] > maxima[0][j] ? other[j] : maxima[0][j];
    }
  }
  *column_maxima = std::move(maxima[0]);
  return count;
}

}  // namespace

template <typename T>
bool MappedNumpyMatrix<T>::CanMapInPlace(const NumpyHeader& header, uint64_t data_offset) {
  const bool memory_order_is_c_order =
      !header.fortran_order || header.rows == 1 || header.cols == 1;
  return header.type == OwnType<T>() && !header.swap_bytes && memory_order_is_c_order &&
         header.rows > 0 && header.cols > 0 && data_offset % alignof(T) == 0;
}

template <typename T>
std::optional<MappedNumpyMatrix<T>> MappedNumpyMatrix<T>::Map(const std::string& file_name,
                                                              int threads) {
  // Non-blocking, so that opening a FIFO with no writer does not wait; it is
  // refused below anyway, before anything has been read from it.
  errno = 0;
  FileDescriptor file(open(file_name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (file.get() < 0) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: %s.", error.c_str());
  }
  struct stat status;
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const std::size_t length = static_cast<std::size_t>(status.st_size);

  // An empty file cannot be mapped; its header is parsed from no bytes at
  // all, which fails as a short read.
  void* base = nullptr;
  if (length > 0) {
    base = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE, file.get(), 0);
    if (base == MAP_FAILED) return std::nullopt;
    if (!GuardRange(base, length, file_name)) {
      munmap(base, length);
      return std::nullopt;
    }
  }
  MappingGuard mapping(base, length);

  internal::MemoryStreamBuf memory(static_cast<const char*>(base), length);
  std::istream stream(&memory);
  uint64_t data_offset = 0;
  const NumpyHeader header = ReadNumpyFileHeader(stream, &data_offset);
  if (!CanMapInPlace(header, data_offset)) return std::nullopt;

  // The sizes, checked without overflow against the bytes present.
  const uint64_t rows = static_cast<uint64_t>(header.rows);
  const uint64_t cols = static_cast<uint64_t>(header.cols);
  const uint64_t count = rows * cols;
  const bool overflow = count / cols != rows || count > (uint64_t{1} << 62) / sizeof(T);
  if (overflow || length - data_offset < count * sizeof(T)) {
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: '%s'.",
                 "unexpected end of file");
  }
  T* data = reinterpret_cast<T*>(static_cast<char*>(base) + data_offset);
  Prefault(base, length);

  const bool nan_check = CheckForIEEENaNOnRead();
  const bool inf_check = CheckForIEEEInfOnRead();
  std::vector<T> column_maxima;
  if (nan_check || inf_check) {
    const std::size_t n = static_cast<std::size_t>(count);
    // The maxima only where they are small next to the matrix: a row's worth
    // per thread, against at least 64 rows.
    const bool with_maxima = nan_check && inf_check && rows >= kRowsForColumnMaxima;
    const std::size_t bad =
        with_maxima
            ? CheckAndFindColumnMaxima<T>(data, static_cast<std::size_t>(rows),
                                          static_cast<std::size_t>(cols), threads, &column_maxima)
            : FindFirstSpecialInParts<T>(data, n, nan_check, inf_check, threads);
    if (bad != n) {
      internal::ThrowNumpyValueFailureAt<T>(reinterpret_cast<const char*>(data + bad), header.type,
                                            false, static_cast<int64_t>(bad / cols),
                                            static_cast<int64_t>(bad % cols), VELMOR_SOURCE_FILE,
                                            __func__, __LINE__);
    }
  }
  MappedNumpyMatrix mapped(mapping.release(), length, data, header.rows, header.cols);
  mapped.checked_column_maxima_ = std::move(column_maxima);
  return mapped;
}

template <typename T>
MappedNumpyMatrix<T>::MappedNumpyMatrix(void* base, std::size_t length, T* data, int64_t rows,
                                        int64_t cols)
    : base_(base), length_(length), data_(data), rows_(rows), cols_(cols) {}

template <typename T>
MappedNumpyMatrix<T>::MappedNumpyMatrix(MappedNumpyMatrix&& other) noexcept
    : base_(std::exchange(other.base_, nullptr)),
      length_(std::exchange(other.length_, 0)),
      data_(std::exchange(other.data_, nullptr)),
      rows_(std::exchange(other.rows_, 0)),
      cols_(std::exchange(other.cols_, 0)),
      checked_column_maxima_(std::move(other.checked_column_maxima_)) {}

template <typename T>
MappedNumpyMatrix<T>& MappedNumpyMatrix<T>::operator=(MappedNumpyMatrix&& other) noexcept {
  if (this != &other) {
    Release();
    base_ = std::exchange(other.base_, nullptr);
    length_ = std::exchange(other.length_, 0);
    data_ = std::exchange(other.data_, nullptr);
    rows_ = std::exchange(other.rows_, 0);
    cols_ = std::exchange(other.cols_, 0);
    checked_column_maxima_ = std::move(other.checked_column_maxima_);
  }
  return *this;
}

template <typename T>
MappedNumpyMatrix<T>::~MappedNumpyMatrix() {
  Release();
}

template <typename T>
void MappedNumpyMatrix<T>::Release() noexcept {
  if (base_ != nullptr) {
    UnguardRange(base_);
    munmap(base_, length_);
  }
  base_ = nullptr;
  length_ = 0;
  data_ = nullptr;
  rows_ = 0;
  cols_ = 0;
  checked_column_maxima_.clear();
}

template <typename T>
Eigen::Map<const DenseMatrix<T>> MappedNumpyMatrix<T>::ElementMajor() const {
  return Eigen::Map<const DenseMatrix<T>>(data_, cols_, rows_);
}

template <typename T>
Eigen::Map<DenseMatrix<T>> MappedNumpyMatrix<T>::MutableElementMajor() {
  return Eigen::Map<DenseMatrix<T>>(data_, cols_, rows_);
}

template <typename T>
std::shared_ptr<T> MappedNumpyMatrix<T>::Share() && {
  auto owner = std::make_shared<MappedNumpyMatrix>(std::move(*this));
  T* data = owner->data_;
  return std::shared_ptr<T>(std::move(owner), data);
}

template class MappedNumpyMatrix<float>;
template class MappedNumpyMatrix<double>;

}  // namespace velmor::matrixio
