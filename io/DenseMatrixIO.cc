#include "io/DenseMatrixIO.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "io/DenseBinFileIOSupport.h"
#include "io/DenseCSVFileIOSupport.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/MatrixIOInternal.h"
#include "utils/error_messages.h"

namespace velmor::matrixio {
namespace {

enum class DenseFileKind { kCSV, kBinary, kNumpy, kUnknown };

DenseFileKind KindOf(const std::string& file_name) {
  const std::string extension = internal::FileExtension(file_name);
  if (extension == ".csv" || extension == ".CSV") return DenseFileKind::kCSV;
  if (extension == ".bin" || extension == ".BIN") return DenseFileKind::kBinary;
  if (extension == ".npy" || extension == ".NPY") return DenseFileKind::kNumpy;
  return DenseFileKind::kUnknown;
}

// One random entry, uniform in [0, 1]: Eigen's uniform draw in [-1, 1] from
// rand(), shifted and halved.
template <typename T>
T RandomEntry(int32_t /*modulus*/) {
  const int r = std::rand();
  if constexpr (std::is_same_v<T, float>) {
    const float draw = 2.0f * static_cast<float>(r) * 4.656613e-10f - 1.0f;
    return (draw + 1.0f) * 0.5f;
  } else {
    const double draw = 2.0 * static_cast<double>(r) / 2147483647.0 - 1.0;
    return (draw + 1.0) * 0.5;
  }
}

template <>
int32_t RandomEntry<int32_t>(int32_t modulus) {
  const int64_t r = std::rand();
  const int64_t centered = r - 1073741824;
  return static_cast<int32_t>((centered < 0 ? -centered : centered) % modulus);
}

template <typename T>
DenseMatrix<T> CopyOrMakeRandom(const T* ram, int rows, int cols, int32_t modulus) {
  DenseMatrix<T> matrix(rows, cols);
  if (ram != nullptr) {
    std::memcpy(matrix.data(), ram, static_cast<std::size_t>(matrix.size()) * sizeof(T));
  } else {
    T* out = matrix.data();
    for (Eigen::Index i = 0; i < matrix.size(); ++i) out[i] = RandomEntry<T>(modulus);
  }
  return matrix;
}

const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

// Both forms of the loader, under the name their messages carry.
template <typename T>
DenseMatrix<T> LoadDenseMatrixFromFileOrRamOrMakeRandom(const char* file_name, const T* ram,
                                                        bool create_random, int rows, int cols,
                                                        int32_t modulus) {
  const int sources = (file_name != nullptr) + (ram != nullptr) + (create_random ? 1 : 0);
  if (sources != 1) {
    VELMOR_THROW(
        std::invalid_argument,
        "Must specify one and only one type of input to produce matrix, but got %d: name = "
        "(%s), is_ram_ptr_p=%d, and create_random_matrix_p=%d.",
        sources, OrEmpty(file_name), ram != nullptr ? 1 : 0, create_random ? 1 : 0);
  }
  if (file_name != nullptr) {
    const DenseFileKind kind = KindOf(file_name);
    if (kind == DenseFileKind::kBinary && (rows < 1 || cols < 1)) {
      VELMOR_THROW(std::invalid_argument, "Rows (=%d) and Columns (=%d) must both be positive.",
                   rows, cols);
    }
    try {
      switch (kind) {
        case DenseFileKind::kCSV:
          return ReadMatrixFromCSVFile<T>(std::string(file_name), false);
        case DenseFileKind::kNumpy:
          return ReadMatrixFromNumpyFile<T>(std::string(file_name));
        case DenseFileKind::kBinary:
          return ReadMatrixFromBinaryFile<T>(std::string(file_name), rows, cols);
        case DenseFileKind::kUnknown:
          VELMOR_THROW(std::runtime_error, "Unknown file type '%s'.", file_name);
      }
    } catch (...) {
      VELMOR_THROW_NESTED(std::runtime_error, "Problems opening file '%s'.", file_name);
    }
  }
  if (rows < 1 || cols < 1) {
    VELMOR_THROW(std::invalid_argument, "Rows (=%d) and Columns (=%d) must both be positive.", rows,
                 cols);
  }
  return CopyOrMakeRandom(ram, rows, cols, modulus);
}

template <typename T>
DenseMatrix<T> LoadDenseMatrixFromFileOrRamOrMakeRandom(const char* csv_file_name,
                                                        const char* bin_file_name,
                                                        const char* npy_file_name, const T* ram,
                                                        bool create_random, int rows, int cols,
                                                        int32_t modulus) {
  const int sources = (csv_file_name != nullptr) + (bin_file_name != nullptr) +
                      (npy_file_name != nullptr) + (ram != nullptr) + (create_random ? 1 : 0);
  if (sources != 1) {
    VELMOR_THROW(
        std::invalid_argument,
        "Must specify one and only one type of matrix to produce with arguments given: (%s), "
        "(%s), (%s), %d and %d.",
        OrEmpty(csv_file_name), OrEmpty(bin_file_name), OrEmpty(npy_file_name),
        ram != nullptr ? 1 : 0, create_random ? 1 : 0);
  }
  if (csv_file_name != nullptr) {
    try {
      return ReadMatrixFromCSVFile<T>(std::string(csv_file_name), false);
    } catch (...) {
      VELMOR_THROW_NESTED(std::runtime_error, "Problems opening file '%s'.", csv_file_name);
    }
  }
  if (npy_file_name != nullptr) {
    try {
      return ReadMatrixFromNumpyFile<T>(std::string(npy_file_name));
    } catch (...) {
      VELMOR_THROW_NESTED(std::runtime_error, "Problems opening file '%s'.", npy_file_name);
    }
  }
  if (rows < 1 || cols < 1) {
    VELMOR_THROW(std::invalid_argument, "Rows (=%d) and Columns (=%d) must both be positive.", rows,
                 cols);
  }
  if (bin_file_name != nullptr) {
    try {
      return ReadMatrixFromBinaryFile<T>(std::string(bin_file_name), rows, cols);
    } catch (...) {
      VELMOR_THROW_NESTED(std::runtime_error, "Problems opening file '%s'.", bin_file_name);
    }
  }
  return CopyOrMakeRandom(ram, rows, cols, modulus);
}

}  // namespace

template <typename T>
requires std::floating_point<T> DenseMatrix<T> LoadDenseMatrixFromFileOrRamOrMakeRandom(
    const char* file_name, const T* ram, bool create_random, int rows, int cols) {
  return LoadDenseMatrixFromFileOrRamOrMakeRandom<T>(file_name, ram, create_random, rows, cols, 0);
}

DenseMatrix<int32_t> LoadDenseMatrixFromFileOrRamOrMakeRandom(const char* file_name,
                                                              const int32_t* ram,
                                                              bool create_random, int rows,
                                                              int cols, int32_t random_modulus) {
  return LoadDenseMatrixFromFileOrRamOrMakeRandom<int32_t>(file_name, ram, create_random, rows,
                                                           cols, random_modulus);
}

template <typename T>
requires std::floating_point<T> DenseMatrix<T> LoadDenseMatrixFromFileOrRamOrMakeRandom(
    const char* csv_file_name, const char* bin_file_name, const char* npy_file_name, const T* ram,
    bool create_random, int rows, int cols) {
  return LoadDenseMatrixFromFileOrRamOrMakeRandom<T>(csv_file_name, bin_file_name, npy_file_name,
                                                     ram, create_random, rows, cols, 0);
}

DenseMatrix<int32_t> LoadDenseMatrixFromFileOrRamOrMakeRandom(
    const char* csv_file_name, const char* bin_file_name, const char* npy_file_name,
    const int32_t* ram, bool create_random, int rows, int cols, int32_t random_modulus) {
  return LoadDenseMatrixFromFileOrRamOrMakeRandom<int32_t>(
      csv_file_name, bin_file_name, npy_file_name, ram, create_random, rows, cols, random_modulus);
}

template <typename T>
void WriteMatrixToFile(const DenseMatrix<T>& matrix, const std::string& file_name,
                       bool fortran_order) {
  const std::string extension = internal::FileExtension(file_name);
  if (extension == ".csv") {
    WriteMatrixToCSVFile<T>(file_name, matrix);
  } else if (extension == ".npy") {
    WriteMatrixToNumpyFile<T>(file_name, matrix, fortran_order);
  } else if (extension == ".bin") {
    WriteMatrixToBinaryFile<T>(file_name, matrix);
  } else {
    VELMOR_THROW(
        std::runtime_error,
        "Unable to write to file, unknown file type from unknonw extension in filename '%s'.",
        file_name.c_str());
  }
}

template <typename T>
void WriteDenseMatrixToFile(const DenseMatrix<T>& matrix, const char* file_name,
                            bool to_standard_output) {
  if ((file_name != nullptr) == to_standard_output) {
    VELMOR_THROW(std::invalid_argument,
                 "Must specify one and only one type of matrix to produce with arguments given: "
                 "(%s) and %d.",
                 OrEmpty(file_name), to_standard_output ? 1 : 0);
  }
  if (to_standard_output) {
    std::cout << matrix << std::endl;
    return;
  }
  switch (KindOf(file_name)) {
    case DenseFileKind::kCSV:
      WriteMatrixToCSVFile<T>(std::string(file_name), matrix);
      return;
    case DenseFileKind::kBinary:
      WriteMatrixToBinaryFile<T>(std::string(file_name), matrix);
      return;
    case DenseFileKind::kNumpy:
      WriteMatrixToNumpyFile<T>(std::string(file_name), matrix, false);
      return;
    case DenseFileKind::kUnknown:
      break;
  }
  VELMOR_THROW(std::runtime_error, "Unknown file type to save matrix '%s'", file_name);
}

template <typename T>
void WriteDenseMatrixToFile(const DenseMatrix<T>& matrix, const char* csv_file_name,
                            const char* bin_file_name, const char* npy_file_name,
                            bool to_standard_output) {
  const int targets = (csv_file_name != nullptr) + (bin_file_name != nullptr) +
                      (npy_file_name != nullptr) + (to_standard_output ? 1 : 0);
  if (targets != 1) {
    VELMOR_THROW(
        std::invalid_argument,
        "Must specify one and only one type of matrix to produce with arguments given: (%s), "
        "(%s), (%s), and %d.",
        OrEmpty(csv_file_name), OrEmpty(bin_file_name), OrEmpty(npy_file_name),
        to_standard_output ? 1 : 0);
  }
  if (csv_file_name != nullptr) {
    WriteMatrixToCSVFile<T>(std::string(csv_file_name), matrix);
  } else if (bin_file_name != nullptr) {
    WriteMatrixToBinaryFile<T>(std::string(bin_file_name), matrix);
  } else if (npy_file_name != nullptr) {
    WriteMatrixToNumpyFile<T>(std::string(npy_file_name), matrix, false);
  } else {
    std::cout << matrix << std::endl;
  }
}

template DenseMatrix<float> LoadDenseMatrixFromFileOrRamOrMakeRandom<float>(const char*,
                                                                            const float*, bool, int,
                                                                            int);
template DenseMatrix<double> LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(const char*,
                                                                              const double*, bool,
                                                                              int, int);
template DenseMatrix<float> LoadDenseMatrixFromFileOrRamOrMakeRandom<float>(
    const char*, const char*, const char*, const float*, bool, int, int);
template DenseMatrix<double> LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(
    const char*, const char*, const char*, const double*, bool, int, int);

#define VELMOR_INSTANTIATE_DENSE_WRITERS(T)                                                \
  template void WriteMatrixToFile<T>(const DenseMatrix<T>&, const std::string&, bool);     \
  template void WriteDenseMatrixToFile<T>(const DenseMatrix<T>&, const char*, bool);       \
  template void WriteDenseMatrixToFile<T>(const DenseMatrix<T>&, const char*, const char*, \
                                          const char*, bool);

VELMOR_INSTANTIATE_DENSE_WRITERS(int32_t)
VELMOR_INSTANTIATE_DENSE_WRITERS(float)
VELMOR_INSTANTIATE_DENSE_WRITERS(double)

#undef VELMOR_INSTANTIATE_DENSE_WRITERS

}  // namespace velmor::matrixio
