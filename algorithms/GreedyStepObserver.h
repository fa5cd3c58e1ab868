#ifndef VELMOR_ALGORITHMS_GREEDYSTEPOBSERVER_H_
#define VELMOR_ALGORITHMS_GREEDYSTEPOBSERVER_H_

// What a caller may watch, and stop, in a running greedy: a callable told
// after every chosen element how far the run is, and a flag the run polls
// once per step. Both are optional; an empty observer costs one branch per
// step. The observer is given by value in the run's options, so two runs may
// be watched differently at the same time.

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>

namespace velmor {

struct GreedyStepObserver {
  // Called on the thread running the greedy once before the first step
  // (chosen 0) and after each chosen element, with the number chosen so far
  // in this run and the most the run may choose (the smallest of its limits
  // and the number of candidates). A caller that
  // runs several greedy runs may call it once more with chosen == most to
  // mark the end of its work. May be empty; may throw, which ends the run.
  std::function<void(int chosen, int most)> on_step{};
  // Polled once at the start of every step; true stops the run by throwing
  // GreedyStopped. May be null; it may be set from any thread.
  const std::atomic<bool>* stop = nullptr;

  // Called by the greedy loops, once per step.
  void Step(int chosen, int most) const {
    if (on_step) on_step(chosen, most);
  }
  // Throws GreedyStopped when a stop was requested.
  void ThrowIfStopRequested(int chosen) const;
};

// Thrown by a greedy run whose observer's stop flag was set. The run's
// `order` and `gains` outputs then hold the steps made before the stop; its
// solution and value are not written.
class GreedyStopped : public std::runtime_error {
 public:
  explicit GreedyStopped(int chosen);
  // The number of elements the run had chosen when it stopped.
  int chosen() const { return chosen_; }

 private:
  int chosen_;
};

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_GREEDYSTEPOBSERVER_H_
