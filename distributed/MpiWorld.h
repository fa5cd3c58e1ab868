#ifndef VELMOR_DISTRIBUTED_MPIWORLD_H_
#define VELMOR_DISTRIBUTED_MPIWORLD_H_

// The processes of one MPI job, as the distributed driver sees them: who this
// rank is, sums across ranks, and the agreement on failures that lets a job
// end with one report and status 1 however many ranks failed.

#include <exception>
#include <string>
#include <vector>

namespace velmor {

class MpiWorld {
 public:
  // Initializes MPI (once per process) and finalizes it on destruction.
  // Throws std::runtime_error when MPI cannot be initialized.
  MpiWorld(int* argc, char*** argv);
  ~MpiWorld();
  MpiWorld(const MpiWorld&) = delete;
  MpiWorld& operator=(const MpiWorld&) = delete;

  int Rank() const { return rank_; }
  int Ranks() const { return ranks_; }
  bool IsRoot() const { return rank_ == 0; }

  // Collective: values[0 .. count) becomes the element-wise sum over the
  // ranks. The order in which the ranks' terms are added is MPI's, the same
  // for every element and on every rank.
  void SumInPlace(double* values, int count) const;

  // Collective: values[0 .. count) becomes the element-wise maximum over
  // the ranks (exact, whatever the order).
  void MaxInPlace(double* values, int count) const;

  // Collective: every rank's bytes, in rank order, on every rank.
  std::vector<std::vector<char>> AllGather(const std::vector<char>& mine) const;

  // Collective: rank 0's `value`, on every rank.
  int RootValue(int value) const;

  // Collective: every rank passes its failure (null when its part went
  // well). Returns the report text (TopLevelErrorReportText) of the lowest
  // failing rank on every rank, or an empty text when no rank failed.
  std::string AgreeOnFailure(std::exception_ptr failure) const;

  // Ends the whole job at once with status 1: for failures after which the
  // ranks can no longer meet at an agreement.
  [[noreturn]] static void AbortJob();

 private:
  int rank_ = 0;
  int ranks_ = 1;
};

}  // namespace velmor

#endif  // VELMOR_DISTRIBUTED_MPIWORLD_H_
