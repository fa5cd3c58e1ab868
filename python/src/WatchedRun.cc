#include "WatchedRun.h"

#include <chrono>
#include <exception>
#include <future>
#include <thread>

namespace velmor::python {
namespace py = pybind11;

void RunWatched(const std::function<void()>& work, RunSignals& signals,
                const py::object& progress) {
  std::packaged_task<void()> task(work);
  std::future<void> done = task.get_future();
  std::thread worker(std::move(task));
  bool interrupted = false;
  for (;;) {
    bool finished;
    {
      py::gil_scoped_release unlocked;
      finished = done.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
    }
    if (finished) break;
    if (PyErr_CheckSignals() != 0) {
      interrupted = true;
      break;
    }
    if (!progress.is_none()) {
      try {
        progress(signals.added.load(std::memory_order_relaxed));
      } catch (...) {
        signals.stop.store(true, std::memory_order_relaxed);
        py::gil_scoped_release unlocked;
        worker.join();
        throw;
      }
    }
  }
  if (interrupted) signals.stop.store(true, std::memory_order_relaxed);
  {
    py::gil_scoped_release unlocked;
    worker.join();
  }
  if (interrupted) throw py::error_already_set();
  done.get();
}

}  // namespace velmor::python
