#ifndef VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_
#define VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_

// Hand-made .npy bytes and matrices of distinct values for the io tests,
// folders of files written once by python, and whether the address sanitizer
// (which reserves much address space) is built in.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "io/MatrixIOCommon.h"
#include "support/temp_files.h"

namespace velmor::matrixio {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

// A version 1.0 .npy file: magic, header length, `dictionary` padded with
// blanks and a newline to a multiple of 16 bytes, then `data`.
inline std::string NpyBytes(const std::string& dictionary, const std::string& data) {
  std::string text = dictionary;
  while ((10 + text.size() + 1) % 16 != 0) text += ' ';
  text += '\n';
  std::string bytes("\x93NUMPY\x01\x00", 8);
  bytes += static_cast<char>(text.size() & 0xff);
  bytes += static_cast<char>(text.size() >> 8);
  return bytes + text + data;
}

// A rows x cols matrix whose values all differ, fractions and negatives among them.
template <typename T>
DenseMatrix<T> Pattern(int rows, int cols) {
  DenseMatrix<T> m(rows, cols);
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < cols; ++j) m(i, j) = static_cast<T>(i * 1000 + j) / T(7) - T(3);
  }
  return m;
}

// A folder holding the files `script` wrote when first asked for, removed
// once all tests are done (and not by the exit of a forked child).
inline const testing::TempDir& FilesWrittenOnce(const char* script) {
  struct Folders : ::testing::Environment {
    std::map<const char*, std::unique_ptr<testing::TempDir>> written;
    void TearDown() override { written.clear(); }
  };
  static Folders* const folders =
      static_cast<Folders*>(::testing::AddGlobalTestEnvironment(new Folders));
  std::unique_ptr<testing::TempDir>& folder = folders->written[script];
  if (!folder) {
    folder = std::make_unique<testing::TempDir>();
    testing::RunPython(*folder, script);
  }
  return *folder;
}

// numpy's and scipy's files for the io tests, each matrix with its values as
// raw column-major float64 ("<name>.expect"), read independently. Dense files
// are <type><layout>_<r>x<c>.npy: type f4, f8, i4 or i8; layout c (C order),
// f (Fortran order), b (big-endian C order) or bf (big-endian Fortran order).
// Also vectors (f4_vector, f8_vector), a 3-d array (cube) and archives.
inline constexpr const char* kNumpyFiles = R"PY(
import numpy as np, scipy.sparse as sp, sys, os
d = os.getcwd()
rng = np.random.default_rng(7)
def expect(name, m):
    m2 = m.reshape(-1, 1) if m.ndim == 1 else m
    np.asarray(m2, dtype='<f8').ravel(order='F').tofile(os.path.join(d, name + '.expect'))
for (r, c) in [(1, 1), (3, 5), (17, 33), (40, 1), (1, 40)]:
    m = rng.standard_normal((r, c))
    f32 = m.astype(np.float32)
    i = rng.integers(-1000000, 1000000, size=(r, c))
    for kind, x in [('f4c', f32), ('f4f', np.asfortranarray(f32)), ('f8c', m),
                    ('f8f', np.asfortranarray(m)), ('f8b', m.astype('>f8')),
                    ('f4bf', np.asfortranarray(f32.astype('>f4'))), ('i4c', i.astype(np.int32)),
                    ('i8c', i.astype(np.int64)), ('i4b', i.astype('>i4'))]:
        name = '%s_%dx%d' % (kind, r, c)
        np.save(os.path.join(d, name + '.npy'), x); expect(name, x)
v = rng.standard_normal(23)
np.save(os.path.join(d, 'f8_vector.npy'), v); expect('f8_vector', v)
np.save(os.path.join(d, 'f4_vector.npy'), v.astype(np.float32))
np.save(os.path.join(d, 'cube.npy'), rng.random((2, 3, 4)).astype('f4'))
np.save(os.path.join(d, 'big_i8.npy'), np.array([[1, 2**40]], dtype=np.int64))
# Sparse archives.
a = sp.random(13, 9, density=0.3, format='csr', random_state=3, dtype=np.float64)
a.indices = a.indices.astype(np.int32); a.indptr = a.indptr.astype(np.int32)
sp.save_npz(os.path.join(d, 'csr.npz'), a, compressed=False); expect('csr', a.toarray())
b = a.tocoo(); b.row = b.row.astype(np.int32); b.col = b.col.astype(np.int32)
sp.save_npz(os.path.join(d, 'coo.npz'), b, compressed=False); expect('coo', b.toarray())
sp.save_npz(os.path.join(d, 'compressed.npz'), a, compressed=True)
w = a.copy(); w.indices = w.indices.astype(np.int64); w.indptr = w.indptr.astype(np.int64)
sp.save_npz(os.path.join(d, 'csr64.npz'), w, compressed=False)
w = b.copy(); w.row = w.row.astype(np.int64); w.col = w.col.astype(np.int64)
sp.save_npz(os.path.join(d, 'coo64.npz'), w, compressed=False)
e = sp.csr_matrix((5, 4), dtype=np.float32)
sp.save_npz(os.path.join(d, 'empty.npz'), e, compressed=False)
)PY";

}  // namespace velmor::matrixio

#endif  // VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_
