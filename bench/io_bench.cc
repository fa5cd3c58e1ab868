// Matrix file reading speed, each against a baseline measured in the same run:
//   PlainRead                the .npy file read() in 1 MiB pieces into an already-touched buffer;
//   NpyLoadFresh             ReadMatrixFromNumpyFile into a new matrix (C order);
//   NpyLoadIntoExisting      the same into a matrix whose storage is reused;
//   NpyFortranIntoExisting   a Fortran-ordered file, read straight into storage;
//   CSVRead                  dense CSV parsing throughput (bytes/s);
//   NpyMapAndTouch           the C-order file mapped in place (values checked
//                            for NaN and Inf, as a read does) plus one pass
//                            touching every page, then unmapped;
//   NpyMapIntoFacilityLocation  the mapping handed to a facility-location
//                            function, with its matrix check and normalization;
//   NpyReadIntoFacilityLocation the same function from a fresh read of the
//                            file (n x k matrix copied into element-major order).
// The files are made in /tmp at start-up. With --measure-memory the program
// instead reports the peak resident memory growth of one fresh load, of one
// mapped load and of each way of building the facility-location function.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "functions/FacilityLocationFunction.h"
#include "io/DenseCSVFileIOSupport.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/MappedNumpyMatrix.h"

namespace {

using velmor::matrixio::DenseMatrix;

constexpr int kSide = 10000;
constexpr int kCSVRows = 2000;
constexpr int kCSVCols = 1000;
const std::string kFolder = "/tmp/velmor_io_bench";
const std::string kCOrder = kFolder + "/c_order.npy";
const std::string kFortran = kFolder + "/fortran.npy";
const std::string kCSV = kFolder + "/matrix.csv";

void MakeFiles() {
  std::filesystem::create_directories(kFolder);
  if (!std::filesystem::exists(kCOrder) || !std::filesystem::exists(kFortran)) {
    DenseMatrix<float> m(kSide, kSide);
    for (Eigen::Index i = 0; i < m.size(); ++i)
      m.data()[i] = static_cast<float>(i % 65521) * 0.001f;
    velmor::matrixio::WriteMatrixToNumpyFile<float>(kCOrder, m, false);
    velmor::matrixio::WriteMatrixToNumpyFile<float>(kFortran, m, true);
  }
  if (!std::filesystem::exists(kCSV)) {
    DenseMatrix<double> m(kCSVRows, kCSVCols);
    for (Eigen::Index i = 0; i < m.size(); ++i)
      m.data()[i] = static_cast<double>(i % 9973) / 7.0 - 300.0;
    velmor::matrixio::WriteMatrixToCSVFile<double>(kCSV, m);
  }
}

void ReadWhole(const std::string& name, char* buffer, std::size_t size) {
  const int fd = open(name.c_str(), O_RDONLY);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got =
        read(fd, buffer + done, std::min<std::size_t>(size - done, std::size_t{1} << 20));
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  close(fd);
}

void PlainRead(benchmark::State& state) {
  const std::size_t size = std::filesystem::file_size(kCOrder);
  std::vector<char> buffer(size, 1);  // touched once, before timing
  for (auto _ : state) {
    ReadWhole(kCOrder, buffer.data(), size);
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void NpyLoadFresh(benchmark::State& state) {
  for (auto _ : state) {
    DenseMatrix<float> m = velmor::matrixio::ReadMatrixFromNumpyFile<float>(kCOrder);
    benchmark::DoNotOptimize(m.data());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * std::filesystem::file_size(kCOrder)));
}

void LoadIntoExisting(benchmark::State& state, const std::string& name) {
  DenseMatrix<float> m = DenseMatrix<float>::Zero(kSide, kSide);
  for (auto _ : state) {
    velmor::matrixio::ReadMatrixFromNumpyFile<float>(name, m);
    benchmark::DoNotOptimize(m.data());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * std::filesystem::file_size(name)));
}
void NpyLoadIntoExisting(benchmark::State& state) { LoadIntoExisting(state, kCOrder); }
void NpyFortranIntoExisting(benchmark::State& state) { LoadIntoExisting(state, kFortran); }

void CSVRead(benchmark::State& state) {
  for (auto _ : state) {
    DenseMatrix<double> m = velmor::matrixio::ReadMatrixFromCSVFile<double>(kCSV, false);
    benchmark::DoNotOptimize(m.data());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * std::filesystem::file_size(kCSV)));
}

using velmor::FacilityLocationFunction;
using velmor::matrixio::MappedNumpyMatrix;

MappedNumpyMatrix<float> MapOrDie(const std::string& name, int threads = 1) {
  std::optional<MappedNumpyMatrix<float>> mapped = MappedNumpyMatrix<float>::Map(name, threads);
  if (!mapped) {
    std::fprintf(stderr, "%s cannot be mapped in place\n", name.c_str());
    std::exit(1);
  }
  return std::move(*mapped);
}

void NpyMapAndTouch(benchmark::State& state) {
  for (auto _ : state) {
    MappedNumpyMatrix<float> mapped = MapOrDie(kCOrder);
    const std::size_t count = static_cast<std::size_t>(mapped.rows() * mapped.cols());
    float sum = 0.0f;
    for (std::size_t i = 0; i < count; i += 4096 / sizeof(float)) sum += mapped.data()[i];
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * std::filesystem::file_size(kCOrder)));
}

// Mapped, checked and normalized on `threads` threads.
std::unique_ptr<FacilityLocationFunction<float>> MappedFacilityLocation(int threads) {
  MappedNumpyMatrix<float> mapped = MapOrDie(kCOrder, threads);
  const std::ptrdiff_t n = mapped.rows();
  const std::ptrdiff_t k = mapped.cols();
  auto f = std::make_unique<FacilityLocationFunction<float>>(
      FacilityLocationFunction<float>::ElementMajor{}, std::move(mapped).Share(), n, k);
  f->ComputeNormalizationConstant(false, threads);
  return f;
}

std::unique_ptr<FacilityLocationFunction<float>> ReadFacilityLocation() {
  auto f = std::make_unique<FacilityLocationFunction<float>>(
      velmor::matrixio::ReadMatrixFromNumpyFile<float>(kCOrder));
  f->ComputeNormalizationConstant(false);
  return f;
}

void NpyMapIntoFacilityLocation(benchmark::State& state) {
  for (auto _ : state) {
    auto f = MappedFacilityLocation(static_cast<int>(state.range(0)));
    benchmark::DoNotOptimize(f->NormalizationScale());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * std::filesystem::file_size(kCOrder)));
}

void NpyReadIntoFacilityLocation(benchmark::State& state) {
  for (auto _ : state) {
    auto f = ReadFacilityLocation();
    benchmark::DoNotOptimize(f->NormalizationScale());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * std::filesystem::file_size(kCOrder)));
}

BENCHMARK(PlainRead)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(NpyMapAndTouch)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(NpyMapIntoFacilityLocation)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(NpyReadIntoFacilityLocation)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(NpyLoadFresh)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(NpyLoadIntoExisting)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(NpyFortranIntoExisting)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(PlainRead)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(CSVRead)->Unit(benchmark::kMillisecond)->MinTime(2.0);

long PeakResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

// Peak resident growth of `load` in a fresh child process that has done
// nothing else, against the matrix's size. Mapped pages of the file count as
// resident, as /usr/bin/time counts them.
void MeasureInChild(const char* what, const std::function<void()>& load) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    const long before = PeakResidentKiB();
    load();
    const long after = PeakResidentKiB();
    const double matrix_kib = static_cast<double>(kSide) * kSide * sizeof(float) / 1024.0;
    std::printf("%-32s peak RSS growth %ld KiB for a %.0f KiB matrix: ratio %.3f\n", what,
                after - before, matrix_kib, static_cast<double>(after - before) / matrix_kib);
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
}

int MeasureMemory() {
  MeasureInChild("(making the files)", MakeFiles);
  MeasureInChild("fresh read", [] {
    DenseMatrix<float> m = velmor::matrixio::ReadMatrixFromNumpyFile<float>(kCOrder);
    benchmark::DoNotOptimize(m.data());
  });
  MeasureInChild("mapped, every page touched", [] {
    MappedNumpyMatrix<float> mapped = MapOrDie(kCOrder);
    benchmark::DoNotOptimize(mapped.data());
  });
  MeasureInChild("read into facility location", [] {
    auto f = ReadFacilityLocation();
    benchmark::DoNotOptimize(f->NormalizationScale());
  });
  MeasureInChild("mapped into facility location", [] {
    auto f = MappedFacilityLocation(1);
    benchmark::DoNotOptimize(f->NormalizationScale());
  });
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--measure-memory") == 0) return MeasureMemory();
  }
  MakeFiles();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
