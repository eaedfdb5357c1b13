#pragma once

/// Work that follows from a change under the tree lock, but must be done without it, in the order of the
/// changes.

#include <deque>
#include <functional>

#include "camera/base/mutex.h"

namespace Tarn {

/// Threads: any thread. One thread at a time works; others leave their actions to it, so that none overtakes
/// another. An action may post and drain again.
class ActionQueue {
 public:
  /// Adds an action; cheap enough to be called with the tree lock held.
  void Post(std::function<void()> action) {
    const MutexLock lock(mutex_);
    actions_.push_back(std::move(action));
  }

  /// Runs what was posted, unless another thread is doing so. No lock is held meanwhile.
  void Drain() {
    MutexLock lock(mutex_);
    if (draining_) return;
    draining_ = true;
    while (!actions_.empty()) {
      const std::function<void()> action = std::move(actions_.front());
      actions_.pop_front();
      lock.unlock();
      action();
      lock.lock();
    }
    draining_ = false;
  }

  /// Drops what was posted and has not begun.
  void Clear() {
    const MutexLock lock(mutex_);
    actions_.clear();
  }

 private:
  Mutex mutex_;
  std::deque<std::function<void()>> actions_ TARN_GUARDED_BY(mutex_);
  bool draining_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace Tarn
