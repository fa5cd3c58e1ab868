// Matrix file reading speed, each against a baseline measured in the same run:
//   PlainRead                the .npy file read() in 1 MiB pieces into an already-touched buffer;
//   NpyLoadFresh             ReadMatrixFromNumpyFile into a new matrix (C order);
//   NpyLoadIntoExisting      the same into a matrix whose storage is reused;
//   NpyFortranIntoExisting   a Fortran-ordered file, read straight into storage;
//   CSVRead                  dense CSV parsing throughput (bytes/s).
// The files are made in /tmp at start-up. With --measure-memory the program
// instead reports the peak resident memory growth of one fresh load.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "io/DenseCSVFileIOSupport.h"
#include "io/DenseNumpyFileIOSupport.h"

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
    for (Eigen::Index i = 0; i < m.size(); ++i) m.data()[i] = static_cast<float>(i % 65521) * 0.001f;
    velmor::matrixio::WriteMatrixToNumpyFile<float>(kCOrder, m, false);
    velmor::matrixio::WriteMatrixToNumpyFile<float>(kFortran, m, true);
  }
  if (!std::filesystem::exists(kCSV)) {
    DenseMatrix<double> m(kCSVRows, kCSVCols);
    for (Eigen::Index i = 0; i < m.size(); ++i) m.data()[i] = static_cast<double>(i % 9973) / 7.0 - 300.0;
    velmor::matrixio::WriteMatrixToCSVFile<double>(kCSV, m);
  }
}

void ReadWhole(const std::string& name, char* buffer, std::size_t size) {
  const int fd = open(name.c_str(), O_RDONLY);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = read(fd, buffer + done, std::min<std::size_t>(size - done, std::size_t{1} << 20));
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
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * std::filesystem::file_size(kCOrder)));
}

void LoadIntoExisting(benchmark::State& state, const std::string& name) {
  DenseMatrix<float> m = DenseMatrix<float>::Zero(kSide, kSide);
  for (auto _ : state) {
    velmor::matrixio::ReadMatrixFromNumpyFile<float>(name, m);
    benchmark::DoNotOptimize(m.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * std::filesystem::file_size(name)));
}
void NpyLoadIntoExisting(benchmark::State& state) { LoadIntoExisting(state, kCOrder); }
void NpyFortranIntoExisting(benchmark::State& state) { LoadIntoExisting(state, kFortran); }

void CSVRead(benchmark::State& state) {
  for (auto _ : state) {
    DenseMatrix<double> m = velmor::matrixio::ReadMatrixFromCSVFile<double>(kCSV, false);
    benchmark::DoNotOptimize(m.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * std::filesystem::file_size(kCSV)));
}

BENCHMARK(PlainRead)->Unit(benchmark::kMillisecond)->MinTime(2.0);
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

// Peak resident growth of one fresh load, in a process that has done nothing
// else (the files are made by a child process).
int MeasureMemory() {
  const pid_t child = fork();
  if (child == 0) {
    MakeFiles();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  const long before = PeakResidentKiB();
  DenseMatrix<float> m = velmor::matrixio::ReadMatrixFromNumpyFile<float>(kCOrder);
  const long after = PeakResidentKiB();
  const double matrix_kib = static_cast<double>(m.size()) * sizeof(float) / 1024.0;
  std::printf("peak RSS growth %ld KiB for a %.0f KiB matrix: ratio %.3f\n", after - before, matrix_kib,
              static_cast<double>(after - before) / matrix_kib);
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
