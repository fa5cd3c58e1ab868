#include "distributed/MpiWorld.h"

#include <mpi.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "utils/top_level_error_report.h"

namespace velmor {

MpiWorld::MpiWorld(int* argc, char*** argv) {
  int initialized = 0;
  MPI_Initialized(&initialized);
  if (!initialized && MPI_Init(argc, argv) != MPI_SUCCESS) {
    throw std::runtime_error("Unable to initialize MPI.");
  }
  MPI_Comm_rank(MPI_COMM_WORLD, &rank_);
  MPI_Comm_size(MPI_COMM_WORLD, &ranks_);
}

MpiWorld::~MpiWorld() {
  int finalized = 0;
  MPI_Finalized(&finalized);
  if (!finalized) MPI_Finalize();
}

void MpiWorld::SumInPlace(double* values, int count) const {
  MPI_Allreduce(MPI_IN_PLACE, values, count, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
}

void MpiWorld::MaxInPlace(double* values, int count) const {
  MPI_Allreduce(MPI_IN_PLACE, values, count, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
}

std::vector<std::vector<char>> MpiWorld::AllGather(const std::vector<char>& mine) const {
  int size = static_cast<int>(mine.size());
  std::vector<int> sizes(static_cast<std::size_t>(ranks_));
  MPI_Allgather(&size, 1, MPI_INT, sizes.data(), 1, MPI_INT, MPI_COMM_WORLD);
  std::vector<int> offsets(static_cast<std::size_t>(ranks_), 0);
  for (int r = 1; r < ranks_; ++r) {
    offsets[static_cast<std::size_t>(r)] =
        offsets[static_cast<std::size_t>(r - 1)] + sizes[static_cast<std::size_t>(r - 1)];
  }
  std::vector<char> all(static_cast<std::size_t>(offsets.back() + sizes.back()));
  MPI_Allgatherv(mine.data(), size, MPI_CHAR, all.data(), sizes.data(), offsets.data(), MPI_CHAR,
                 MPI_COMM_WORLD);
  std::vector<std::vector<char>> result;
  for (int r = 0; r < ranks_; ++r) {
    const auto begin = all.begin() + offsets[static_cast<std::size_t>(r)];
    result.emplace_back(begin, begin + sizes[static_cast<std::size_t>(r)]);
  }
  return result;
}

int MpiWorld::RootValue(int value) const {
  MPI_Bcast(&value, 1, MPI_INT, 0, MPI_COMM_WORLD);
  return value;
}

std::string MpiWorld::AgreeOnFailure(std::exception_ptr failure) const {
  std::string text = failure ? exception::TopLevelErrorReportText(failure) : std::string();
  int first_failing = failure ? rank_ : ranks_;
  MPI_Allreduce(MPI_IN_PLACE, &first_failing, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
  if (first_failing == ranks_) return std::string();
  // The failing rank's text goes to everyone, its length first.
  std::int64_t length = static_cast<std::int64_t>(text.size());
  MPI_Bcast(&length, 1, MPI_INT64_T, first_failing, MPI_COMM_WORLD);
  std::vector<char> buffer(text.begin(), text.end());
  buffer.resize(static_cast<std::size_t>(length));
  MPI_Bcast(buffer.data(), static_cast<int>(length), MPI_CHAR, first_failing, MPI_COMM_WORLD);
  return std::string(buffer.begin(), buffer.end());
}

void MpiWorld::AbortJob() {
  MPI_Abort(MPI_COMM_WORLD, 1);
  std::abort();
}

}  // namespace velmor
