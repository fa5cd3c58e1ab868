#include "io/MatrixIOCommon.h"

#include <atomic>

namespace velmor::matrixio {
namespace {

std::atomic<bool> check_nan_on_read{true};
std::atomic<bool> check_inf_on_read{true};

}  // namespace

void SetCheckForIEEENaNOnRead(bool on) { check_nan_on_read.store(on, std::memory_order_relaxed); }
bool CheckForIEEENaNOnRead() { return check_nan_on_read.load(std::memory_order_relaxed); }
void SetCheckForIEEEInfOnRead(bool on) { check_inf_on_read.store(on, std::memory_order_relaxed); }
bool CheckForIEEEInfOnRead() { return check_inf_on_read.load(std::memory_order_relaxed); }

}  // namespace velmor::matrixio
