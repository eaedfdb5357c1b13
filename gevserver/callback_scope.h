#pragma once

/// Knowing whether the library is calling us on this thread.

namespace Tarn::GevServer::Private {

/// Lives while a callback of the library runs. Whoever would wait for the library's threads asks Active()
/// first: a callback that waits for its own thread waits forever.
class CallbackScope {
 public:
  CallbackScope() noexcept { ++depth_; }
  ~CallbackScope() { --depth_; }
  CallbackScope(const CallbackScope&) = delete;
  CallbackScope& operator=(const CallbackScope&) = delete;

  /// True inside a callback on this thread.
  static bool Active() noexcept { return depth_ > 0; }

 private:
  static inline thread_local int depth_ = 0;
};

}  // namespace Tarn::GevServer::Private
