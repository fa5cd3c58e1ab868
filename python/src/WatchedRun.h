#ifndef VELMOR_PYTHON_WATCHEDRUN_H_
#define VELMOR_PYTHON_WATCHEDRUN_H_

// Long work run off the interpreter's lock, still answering Ctrl-C.

#include <pybind11/pybind11.h>

#include <functional>

#include "CancellableFunction.h"

namespace velmor::python {

// Runs `work` on a thread of its own while the calling thread waits without
// the GIL, so other Python threads run meanwhile. Every 50 ms the caller takes
// the GIL back briefly: it lets Python run its signal handlers and, when
// `progress` is not None, calls progress(signals.added). When a handler
// raises (KeyboardInterrupt on Ctrl-C), signals.stop is set, the work is
// waited for (it stops at its next gain) and the handler's exception is
// raised. Otherwise an exception thrown by `work` is rethrown here.
//
// REQUIRES: the GIL is held; `work` touches no Python object.
void RunWatched(const std::function<void()>& work, RunSignals& signals,
                const pybind11::object& progress);

}  // namespace velmor::python

#endif  // VELMOR_PYTHON_WATCHEDRUN_H_
