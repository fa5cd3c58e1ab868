#include "command-line-utils/common-command-line-routines.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <Eigen/Core>
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

#include "io/DenseCSVFileIOSupport.h"
#include "io/DenseMatrixIO.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/SparseMatrixIO.h"
#include "io/SparseNumpyFileIOSupport.h"
#include "matrixvector/MatrixTransformations.h"
#include "matrixvector/OneHotExpansion.h"
#include "utils/AtomicOutputFile.h"
#include "utils/ProgressIndicator.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {

namespace {

// The plot script's text, appended printf-style.
struct ScriptText {
  std::string text;

  void operator()(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    const std::size_t end = text.size();
    text.resize(end + static_cast<std::size_t>(std::max(length, 0)) + 1);
    std::vsnprintf(text.data() + end, text.size() - end, format, arguments);
    va_end(arguments);
    text.pop_back();
  }
};

}  // namespace

void WriteGainsPlotScript(const char* path, bool unnormalized_gains, bool log_scale_curvature,
                          const std::vector<int32_t>& elements_in_order,
                          const std::vector<float>& gains,
                          const std::vector<double>& conditional_curvature) {
  if (path == nullptr) return;
  std::optional<AtomicOutputFile> file;
  try {
    file.emplace(path);
  } catch (const std::system_error&) {
    std::printf("Can't open file '%s' for writing to output\n", path);
    std::fflush(stdout);
    return;
  }
  ScriptText out;

  // Line style of every plot call.
  const char* style = "linestyle='--', linewidth=1, marker='.', markersize=2";

  out("import matplotlib.pyplot as plt\nimport numpy as np\nimport sys\n");
  out("gains = np.array([");
  for (float gain : gains) out("%.16g,", static_cast<double>(gain));
  out("])\n");
  out("elements_in_order = np.array([");
  for (int32_t element : elements_in_order) out("%d,", element);
  out("])\n");

  const bool with_curvature = conditional_curvature.size() == elements_in_order.size();
  if (with_curvature) {
    out("conditional_curvature = np.array([");
    for (double value : conditional_curvature) out("%.16g,", value);
    out("])\n");
    out("fig, axes = plt.subplots(5, 1, sharex='col')\n");
  } else {
    out("fig, axes = plt.subplots(4, 1, sharex='col')\n");
  }

  out("axes[0].set_title(sys.argv[0])\n");
  if (unnormalized_gains) {
    out("axes[0].semilogy(gains,%s, color='b')\n", style);
    out("axes[0].set_ylabel('gains (log)',fontsize=6)\n");
    out("dgains = -np.diff(gains,prepend=[np.nan])\n");
    out("axes[1].semilogy(dgains,%s,color='m')\n", style);
    out("axes[1].set_ylabel('diff gains (log)',fontsize=6)\n");
    out("axes[2].plot(gains,%s,color='r')\n", style);
    out("axes[2].set_ylabel('gains',fontsize=6)\n");
    out("cgains = np.cumsum(gains)\n");
    out("axes[3].plot(cgains,%s, color='g')\n", style);
    out("axes[3].set_ylabel('cumulative gains',fontsize=6)\n");
  } else {
    out("axes[0].semilogy(gains/np.sum(gains),%s, color='b')\n", style);
    out("axes[0].set_ylabel('normalized gains (log)',fontsize=6)\n");
    out("dgains = -np.diff(gains)\n");
    out("axes[1].semilogy(np.insert(dgains/np.sum(dgains),0,np.nan),%s,color='m')\n", style);
    out("axes[1].set_ylabel('normalized diff gains (log)',fontsize=6)\n");
    out("axes[2].plot(gains/np.sum(gains),%s,color='r')\n", style);
    out("axes[2].set_ylabel('normalized gains',fontsize=6)\n");
    out("cgains = np.cumsum(gains)\n");
    out("axes[3].plot(cgains/np.max(cgains),%s, color='g')\n", style);
    out("axes[3].set_ylabel('normalized cumulative gains',fontsize=6)\n");
  }
  if (with_curvature) {
    if (log_scale_curvature) {
      out("axes[4].semilogy(conditional_curvature,%s,color='k')\n", style);
      out("axes[4].set_ylabel('conditional curvature (log)',fontsize=6)\n");
    } else {
      out("axes[4].plot(conditional_curvature,%s,color='k')\n", style);
      out("axes[4].set_ylabel('conditional curvature',fontsize=6)\n");
    }
  }
  out("plt.xlabel('rank order')\n");
  out("plt.show()\n");
  try {
    file->Stream() << out.text;
    file->Commit();
  } catch (const std::system_error& error) {
    std::printf("Can't write file '%s' for output: %s\n", path, error.what());
    std::fflush(stdout);
  }
}

namespace {

bool HasExtension(const std::string& file_name, const char* lower, const char* upper) {
  const std::string extension = std::filesystem::path(file_name).extension().string();
  return extension == lower || extension == upper;
}

}  // namespace

int SummarySizeFromOption(int32_t sumsize, int64_t n, bool constraint_given) {
  const char* invalid =
      "Must give valid summary size k, either non-negative k>=0, or negative k<0 yielding actual "
      "size=(|V|+1+k).";
  if (sumsize == std::numeric_limits<int32_t>::max()) {
    if (constraint_given) return static_cast<int>(n);
    throw exception::CommandLineError(invalid);
  }
  if (sumsize >= 0) {
    if (sumsize > n) throw exception::CommandLineError(invalid);
    return sumsize;
  }
  const long long size = n + 1 + sumsize;
  if (size < 0) {
    throw exception::CommandLineError(exception::MakeCommandMessage(
        "Must give valid summary size k, either non-negative k>=0, or negative k<0 yielding actual "
        "non-negative size, but got (|V|+1+k)=%d.",
        static_cast<int>(size)));
  }
  return static_cast<int>(size);
}

void SetLibraryThreads(int32_t threads, spdlog::logger& ctrl) {
  if (threads == 0) {
    ctrl.info("Eigen library query to nbThreads() = {}.", Eigen::nbThreads());
  } else if (threads > 0) {
    ctrl.info("Setting Eigen library nbThreads() to {}.", threads);
    Eigen::setNbThreads(threads);
    ctrl.info("Now, Eigen library query to nbThreads() = {}.", Eigen::nbThreads());
  }
}

template <typename T>
void WriteSummaryVector(const char* path, const std::vector<T>& values) {
  // Element numbers stay integers, so that numpy can index with them.
  using Element = std::conditional_t<std::is_integral_v<T>, int32_t, double>;
  matrixio::DenseMatrix<Element> column(static_cast<Eigen::Index>(values.size()), 1);
  for (std::size_t i = 0; i < values.size(); ++i) {
    column(static_cast<Eigen::Index>(i), 0) = static_cast<Element>(values[i]);
  }
  if (HasExtension(path, ".npy", ".NPY")) {
    matrixio::WriteMatrixToNumpyFile(std::string(path), column, false);
  } else {
    matrixio::WriteMatrixToCSVFile(std::string(path), column);
  }
}

template void WriteSummaryVector(const char*, const std::vector<int>&);
template void WriteSummaryVector(const char*, const std::vector<float>&);

std::optional<std::string> OutputFileProblem(const char* path) {
  if (path == nullptr) return std::nullopt;
  return AtomicOutputFile::Problem(path);
}

void WriteAsciiResultsFile(const char* path, const std::vector<int>& order,
                           const std::vector<float>& gains) {
  try {
    WriteWholeFile(path, [&](std::ostream& out) {
      for (std::size_t i = 0; i < order.size(); ++i) out << (i ? "," : "") << order[i];
      out << '\n';
      for (std::size_t i = 0; i < gains.size(); ++i) {
        out << (i ? "," : "") << fmt::format("{:.10g}", gains[i]);
      }
      out << '\n';
    });
  } catch (...) {
    VELMOR_THROW_NESTED(exception::InputDataError, "%s",
                        fmt::format("Can't open file '{}' for writing to output.", path).c_str());
  }
}

namespace {

// A group's transformation progress shown on `progress` (a line on a
// terminal, nothing otherwise).
TransformationProgress GroupTransformationProgress(const char* group, ProgressIndicator& progress) {
  if (!progress.enabled()) return {};
  return [&progress, group](const char* pass, std::int64_t done, std::int64_t total) {
    progress.Update(fmt::format("{} matrix, {}", group, pass), done, total, "tiles");
  };
}

}  // namespace

template <typename T>
matrixio::DenseMatrix<T> LoadAndTransformMatrix(const char* group, const char* file_name, int rows,
                                                int cols, const char* transformation,
                                                bool one_hot_expand, int threads, bool* symmetric) {
  TransformableMatrix<T> matrix;
  try {
    matrix.dense = matrixio::LoadDenseMatrixFromFileOrRamOrMakeRandom<T>(file_name, nullptr, false,
                                                                         rows, cols);
  } catch (...) {
    VELMOR_THROW_NESTED(std::invalid_argument, "Problems loading %s matrix.", group);
  }
  if (one_hot_expand) {
    try {
      matrix.dense = ExpandOneHot(matrix.dense);
    } catch (const std::invalid_argument& e) {
      throw exception::CommandLineError(std::string(group) + " " + e.what());
    }
  }
  ProgressIndicator progress = ProgressIndicator::Terminal();
  try {
    ApplyMatrixTransformation(transformation != nullptr ? transformation : "", matrix,
                              TransformationOptions{.want_sparse = false, .threads = threads},
                              GroupTransformationProgress(group, progress));
  } catch (...) {
    VELMOR_THROW_NESTED(exception::CommandLineError,
                        "Problems with matrix transformation string '%s' for %s function.",
                        transformation, group);
  }
  if (symmetric != nullptr) *symmetric = matrix.symmetric;
  return std::move(matrix.dense);
}

template <typename T>
std::optional<matrixio::MappedNumpyMatrix<T>> MapNumpyMatrixInPlace(const char* group,
                                                                    const char* file_name,
                                                                    int threads) {
  if (file_name == nullptr || !HasExtension(file_name, ".npy", ".NPY")) return std::nullopt;
  if (threads == 0) threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  try {
    return matrixio::MappedNumpyMatrix<T>::Map(file_name, threads);
  } catch (...) {
    // The file is read the ordinary way instead, which reports the failure
    // with the same chain as any other file.
  }
  LoadAndTransformMatrix<T>(group, file_name, 0, 0, "");
  return std::nullopt;
}

template <typename T>
DenseMatrixInput<T> LoadDenseGroupMatrix(const char* group, const char* file_name, int rows,
                                         int cols, const char* transformation, bool one_hot_expand,
                                         bool may_share, spdlog::logger& ctrl, int threads) {
  DenseMatrixInput<T> input;
  std::optional<matrixio::MappedNumpyMatrix<T>> mapped;
  const bool untransformed =
      !one_hot_expand && (transformation == nullptr || *transformation == '\0');
  if (may_share && untransformed) mapped = MapNumpyMatrixInPlace<T>(group, file_name, threads);
  if (mapped) {
    ctrl.debug("{} matrix file '{}' mapped into memory.", group, file_name);
    input.items = mapped->rows();
    input.values_per_item = mapped->cols();
    input.checked_column_maxima = mapped->TakeCheckedColumnMaxima();
    input.element_major = std::move(*mapped).Share();
    return input;
  }
  bool symmetric = false;
  input.rows = LoadAndTransformMatrix<T>(group, file_name, rows, cols, transformation,
                                         one_hot_expand, threads, &symmetric);
  if (may_share && symmetric) {
    // Its column-major storage is already the element-major layout: handed
    // on as it is, with no transposing copy.
    auto owner = std::make_shared<matrixio::DenseMatrix<T>>(std::move(input.rows));
    input.items = owner->cols();
    input.values_per_item = owner->rows();
    input.element_major = std::shared_ptr<T>(owner, owner->data());
  }
  return input;
}

namespace {

// The element type stored in a .npy file, or in the data array of an .npz
// archive; std::nullopt when it cannot be read.
std::optional<matrixio::NumpyDataType> StoredElementType(const char* file_name) {
  std::ifstream in(file_name, std::ios::binary);
  if (!in) return std::nullopt;
  try {
    if (HasExtension(file_name, ".npy", ".NPY")) return matrixio::ReadNumpyFileHeader(in).type;
    if (!HasExtension(file_name, ".npz", ".NPZ")) return std::nullopt;
    for (;;) {
      const matrixio::NpzEntryHeader entry = matrixio::ReadNextNpzFileHeader(in);
      if (entry.end_of_entries) return std::nullopt;
      if (entry.variable_name == "data.npy") return matrixio::ReadNumpyFileHeader(in).type;
      in.seekg(static_cast<std::streamoff>(entry.data_size), std::ios::cur);
    }
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace

bool RunsInDouble(Precision precision, const char* file_name) {
  if (precision != Precision::kFollowTheFile) return precision == Precision::kDouble;
  return file_name != nullptr && StoredElementType(file_name) == matrixio::NumpyDataType::kFloat64;
}

SummaryPlan::DenseMatrices LoadDenseGroupMatrix(Precision precision, const char* group,
                                                const char* file_name, int rows, int cols,
                                                const char* transformation, int threads) {
  auto load = [&](auto input) -> SummaryPlan::DenseMatrices {
    using T = typename decltype(input.rows)::Scalar;
    input.rows =
        LoadAndTransformMatrix<T>(group, file_name, rows, cols, transformation, false, threads);
    return input;
  };
  if (RunsInDouble(precision, file_name)) return load(DenseMatrixInput<double>());
  return load(DenseMatrixInput<float>());
}

template <typename T>
matrixio::SparseMatrix<T> LoadAndTransformSparseMatrix(const char* group, const char* file_name,
                                                       int rows, int cols,
                                                       const char* transformation, int threads) {
  TransformableMatrix<T> matrix;
  try {
    if (file_name != nullptr &&
        (HasExtension(file_name, ".csv", ".CSV") || HasExtension(file_name, ".npz", ".NPZ"))) {
      matrix.sparse = matrixio::ReadSparseMatrixFromFile<T>(file_name);
      matrix.is_sparse = true;
    } else {
      matrix.dense = matrixio::LoadDenseMatrixFromFileOrRamOrMakeRandom<T>(file_name, nullptr,
                                                                           false, rows, cols);
    }
  } catch (...) {
    VELMOR_THROW_NESTED(std::invalid_argument, "Problems loading %s matrix.", group);
  }
  ProgressIndicator progress = ProgressIndicator::Terminal();
  try {
    ApplyMatrixTransformation(transformation != nullptr ? transformation : "", matrix,
                              TransformationOptions{.want_sparse = true, .threads = threads},
                              GroupTransformationProgress(group, progress));
  } catch (...) {
    VELMOR_THROW_NESTED(exception::CommandLineError,
                        "Problems with matrix transformation string '%s' for %s function.",
                        transformation, group);
  }
  return std::move(matrix.sparse);
}

template matrixio::DenseMatrix<float> LoadAndTransformMatrix<float>(const char*, const char*, int,
                                                                    int, const char*, bool, int,
                                                                    bool*);
template matrixio::DenseMatrix<double> LoadAndTransformMatrix<double>(const char*, const char*, int,
                                                                      int, const char*, bool, int,
                                                                      bool*);
template DenseMatrixInput<float> LoadDenseGroupMatrix<float>(const char*, const char*, int, int,
                                                             const char*, bool, bool,
                                                             spdlog::logger&, int);
template DenseMatrixInput<double> LoadDenseGroupMatrix<double>(const char*, const char*, int, int,
                                                               const char*, bool, bool,
                                                               spdlog::logger&, int);
template std::optional<matrixio::MappedNumpyMatrix<float>> MapNumpyMatrixInPlace<float>(const char*,
                                                                                        const char*,
                                                                                        int);
template std::optional<matrixio::MappedNumpyMatrix<double>> MapNumpyMatrixInPlace<double>(
    const char*, const char*, int);
SummaryPlan::SparseMatrices LoadSparseGroupMatrix(Precision precision, const char* group,
                                                  const char* file_name, int rows, int cols,
                                                  const char* transformation, int threads) {
  if (RunsInDouble(precision, file_name)) {
    return LoadAndTransformSparseMatrix<double>(group, file_name, rows, cols, transformation,
                                                threads);
  }
  return LoadAndTransformSparseMatrix<float>(group, file_name, rows, cols, transformation, threads);
}

template matrixio::SparseMatrix<float> LoadAndTransformSparseMatrix<float>(const char*, const char*,
                                                                           int, int, const char*,
                                                                           int);
template matrixio::SparseMatrix<double> LoadAndTransformSparseMatrix<double>(const char*,
                                                                             const char*, int, int,
                                                                             const char*, int);

}  // namespace velmor
