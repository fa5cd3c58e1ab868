#ifndef VELMOR_FUZZ_FUZZ_TARGETS_H_
#define VELMOR_FUZZ_FUZZ_TARGETS_H_

// The fuzz harnesses, one per input surface. Each takes any bytes, hands them
// to the parsers of its surface and checks what comes back: a parser may
// return a result or throw a std::exception, nothing else, and a result must
// agree with the harness's own expectation (an independent restatement of the
// format's rules, a second reader of the same bytes, or a write and read
// back). A failed check aborts. Each returns 0.
//
// The libFuzzer executables of this folder run them under coverage guidance;
// the regression test of the normal suite replays the seed corpora and every
// input that once made one of them fail.

#include <cstddef>
#include <cstdint>

namespace velmor::fuzz {

// Dense CSV text, read as int32, float and double matrices, with and without
// a header line.
int FuzzDenseCSV(const uint8_t* data, std::size_t size);

// Sparse CSV text, read as above.
int FuzzSparseCSV(const uint8_t* data, std::size_t size);

// A whole .npy file, read as int32, float and double matrices through the
// stream reader, the in-memory reader and the in-place mapping.
int FuzzNumpy(const uint8_t* data, std::size_t size);

// A whole .npz archive, read as int32, float and double sparse matrices.
int FuzzScipyNPZ(const uint8_t* data, std::size_t size);

// Raw binary values. First five bytes: rows and cols (2 bytes each, less
// 1000) and the element type; the rest is the file.
int FuzzDenseBinary(const uint8_t* data, std::size_t size);

// JSON text of a partition matroid or an intersection of matroids.
int FuzzMatroidJSON(const uint8_t* data, std::size_t size);

// An argument file, read against the program's option table.
int FuzzArgumentFile(const uint8_t* data, std::size_t size);

// A set specification string. First two bytes: the ground-set size; then the
// string up to a NUL; the rest is the content of the file it names, if any.
int FuzzSetSpecification(const uint8_t* data, std::size_t size);

// A matrix transformation pipeline. First bytes: the matrix's shape, form and
// values; then the pipeline text.
int FuzzMatrixTransformation(const uint8_t* data, std::size_t size);

// A command line (arguments separated by NUL bytes) walked by the program's
// argument parser against its option table, then, when it parses, the
// driver's logging set-up and option checks up to the first matrix load.
int FuzzCommandLine(const uint8_t* data, std::size_t size);

}  // namespace velmor::fuzz

#endif  // VELMOR_FUZZ_FUZZ_TARGETS_H_
