#pragma once

/// The lock across starting and stopping a server.

#include <condition_variable>

#include "camera/base/mutex.h"

namespace Tarn::GevServer::Private {

/// Lets one start or stop through at a time, and nobody wait for a stop who could keep it from ending.
///
/// A stop waits for the library's threads, and those may be inside a callback that itself starts or stops the
/// server, or that waits for a lock which the starting thread holds. So a start is refused while a stop is
/// under way, and a stop from inside a callback leaves it to the one under way.
/// Threads: any thread.
class StartStopLock {
 public:
  /// Waits for another start.
  /// Throws: std::runtime_error while a stop is under way.
  void EnterStart();
  /// Waits for a start or stop. False: called inside a callback while a stop is under way; there is nothing
  /// to do.
  [[nodiscard]] bool EnterStop();
  void Leave() noexcept;

 private:
  enum class Holder { None, Start, Stop };

  Mutex mutex_;
  std::condition_variable_any left_;
  Holder holder_ TARN_GUARDED_BY(mutex_) = Holder::None;
};

/// Leaves the lock at the end of a scope that has entered it.
class StartStopScope {
 public:
  explicit StartStopScope(StartStopLock& lock) noexcept : lock_(lock) {}
  ~StartStopScope() { lock_.Leave(); }
  StartStopScope(const StartStopScope&) = delete;
  StartStopScope& operator=(const StartStopScope&) = delete;

 private:
  StartStopLock& lock_;
};

}  // namespace Tarn::GevServer::Private
