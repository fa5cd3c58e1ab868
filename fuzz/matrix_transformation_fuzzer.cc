// Matrix transformation pipelines on small dense or sparse matrices: a
// pipeline is applied or refused with an exception, and what it leaves is a
// matrix in the form asked for. SAVE() writes into a scratch folder of this
// harness (its working folder, emptied after each input); pipelines with a
// '/' are left out so that nothing is written anywhere else.
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "matrixvector/MatrixTransformations.h"
#include "utils/logging.h"

namespace velmor::fuzz {
namespace {

// The folder SAVE() writes into: the working folder from the first input on.
const std::string& WorkInSaveFolderWithQuietLogs() {
  static const std::string folder = [] {
    const std::string path = ScratchSubfolder("saved");
    if (chdir(path.c_str()) != 0) {
      std::perror("chdir");
      std::abort();
    }
    logging::SetUpLogging("off", "off", false, true, nullptr, nullptr);
    return path;
  }();
  return folder;
}

template <typename T>
void CheckTransformation(InputBytes& input, const std::string& save_folder) {
  const int rows = static_cast<int>(input.Byte() % 9);
  const int cols = static_cast<int>(input.Byte() % 9);
  const uint8_t form = input.Byte();
  TransformableMatrix<T> matrix;
  matrix.dense.resize(rows, cols);
  // Values from -8 to 7.5 in steps of 1/2, many of them 0.
  for (int64_t i = 0; i < matrix.dense.size(); ++i) {
    matrix.dense.data()[i] = static_cast<T>(static_cast<int8_t>(input.Byte()) % 16) / T(2);
  }
  if (form & 1) {
    matrix.sparse = matrix.dense.sparseView();
    matrix.dense.resize(0, 0);
    matrix.is_sparse = true;
  }
  const bool want_sparse = (form & 2) != 0;
  const std::string pipeline = input.Rest();
  if (pipeline.find('/') != std::string::npos) return;

  bool applied = false;
  try {
    ApplyMatrixTransformation(pipeline, matrix, want_sparse);
    applied = true;
  } catch (const std::exception&) {
    // The driver reports any of them. (The pipeline's errors are documented
    // as std::invalid_argument; an ambiguous keyword such as "C" still leaves
    // the keyword matcher's std::runtime_error.)
  }
  ClearFolder(save_folder);
  if (!applied) return;
  VELMOR_FUZZ_CHECK(!want_sparse || matrix.is_sparse, "not in the sparse form asked for");
  if (matrix.is_sparse) {
    VELMOR_FUZZ_CHECK(matrix.sparse.rows() >= 0 && matrix.sparse.cols() >= 0, "shape");
  }
}

}  // namespace

int FuzzMatrixTransformation(const uint8_t* data, std::size_t size) {
  const std::string& save_folder = WorkInSaveFolderWithQuietLogs();
  InputBytes input(data, size);
  if (input.Byte() & 1) {
    CheckTransformation<double>(input, save_folder);
  } else {
    CheckTransformation<float>(input, save_folder);
  }
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzMatrixTransformation)
