#include "core/run_stop.h"

#include <atomic>

namespace dossync {
namespace {
std::atomic<bool> gStop{false};
static_assert(std::atomic<bool>::is_always_lock_free);
}  // namespace

void requestRunStop() {
  gStop.store(true, std::memory_order_relaxed);
}

bool runStopRequested() {
  return gStop.load(std::memory_order_relaxed);
}

}  // namespace dossync
