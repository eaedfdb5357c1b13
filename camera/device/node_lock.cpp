#include "camera/device/node_lock.h"

#include <vector>

#include "camera/base/process_mutex.h"

namespace Tarn {
namespace {

/// Locks that no device uses at present.
/// Never destroyed, as the locks are not: threads may still end after the process began to exit.
struct FreeLocks {
  ProcessMutex mutex;
  std::vector<ProcessMutex*> locks TARN_GUARDED_BY(mutex);
};

FreeLocks& TheFreeLocks() {
  static FreeLocks& locks = *new FreeLocks;
  return locks;
}

Mutex& TakeLock() {
  BuildLock();  // made before all others, as it is taken before them
  const MutexLock lock(TheFreeLocks().mutex);
  auto& locks = TheFreeLocks().locks;
  if (locks.empty()) return *new ProcessMutex;
  Mutex& taken = *locks.back();
  locks.pop_back();
  return taken;
}

}  // namespace

Mutex& BuildLock() {
  static Mutex& lock = *new ProcessMutex;
  return lock;
}

DeviceMutex::DeviceMutex() : mutex_(TakeLock()) {}

DeviceMutex::~DeviceMutex() {
  const MutexLock lock(TheFreeLocks().mutex);
  TheFreeLocks().locks.push_back(static_cast<ProcessMutex*>(&mutex_));
}

// Which locks these take is known at run time only.

NodeLock::NodeLock(const std::atomic<Mutex*>& guard) TARN_NO_THREAD_SAFETY_ANALYSIS {
  // A guard changes while the old and the new lock are held.
  for (;;) {
    Mutex* const device = guard.load();
    first_ = device ? device : &BuildLock();
    first_->lock();
    if (guard.load() == device) return;
    first_->unlock();
  }
}

NodeLock::NodeLock(const Node& node, const Node& related) TARN_NO_THREAD_SAFETY_ANALYSIS
    : NodeLock(node.guard) {
  if (first_ != &BuildLock()) return;
  second_ = related.guard.load();  // cannot change as long as the first one is held
  if (second_) second_->lock();
}

NodeLock::~NodeLock() TARN_NO_THREAD_SAFETY_ANALYSIS {
  if (second_) second_->unlock();
  first_->unlock();
}

}  // namespace Tarn
