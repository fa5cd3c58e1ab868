// .npz archives: the stream reader and the file reader must agree, a matrix
// read must be well formed (every stored entry inside it), and it must come
// back unchanged through the sparse CSV writer and reader.
#include <sstream>
#include <string>

#include "fuzz/expectations.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "io/SparseCSVFileIOSupport.h"
#include "io/SparseMatrixIO.h"
#include "io/SparseNumpyFileIOSupport.h"

namespace velmor::fuzz {
namespace {

using matrixio::SparseMatrix;

// Round trips through text are kept to matrices of this many cells.
constexpr int64_t kLargestRoundTrip = int64_t{1} << 16;

template <typename T>
void CheckScipyNPZ(const std::string& bytes, const std::string& path) {
  std::istringstream in(bytes);
  SparseMatrix<T> m;
  const bool read = Succeeds([&] { m = matrixio::ReadSparseMatrixFromScipyNPZFile<T>(in); });

  SparseMatrix<T> from_file;
  const bool file_read =
      Succeeds([&] { from_file = matrixio::ReadSparseMatrixFromFile<T>(path.c_str()); });
  VELMOR_FUZZ_CHECK(file_read == read, "the file reader disagrees on acceptance");
  if (!read) return;

  VELMOR_FUZZ_CHECK(m.rows() >= 0 && m.cols() >= 0, "negative shape");
  const SparseEntries<T> entries = StoredEntries(m);
  VELMOR_FUZZ_CHECK(from_file.rows() == m.rows() && from_file.cols() == m.cols() &&
                        SameEntries(StoredEntries(from_file), entries),
                    "the file reader's matrix");

  if (m.rows() == 0 || m.cols() == 0 || m.rows() * m.cols() > kLargestRoundTrip) return;
  CheckSparseCSVRoundTrip(m, entries);
}

}  // namespace

int FuzzScipyNPZ(const uint8_t* data, std::size_t size) {
  const std::string bytes = InputText(data, size);
  const std::string path = WriteScratchFile("matrix.npz", bytes);
  ForEachElementType([&](auto type) { CheckScipyNPZ<decltype(type)>(bytes, path); });
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzScipyNPZ)
