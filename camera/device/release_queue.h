#pragma once

/// Blocks whose owners are to be told that the memory is free.

#include <condition_variable>
#include <deque>

#include "camera/base/mutex.h"
#include "camera/engine/stream/image_block.h"

namespace Tarn {

/// Tells the owners in the order of Push, each once, never two at the same time, and with no lock held.
/// Threads: any thread.
class ReleaseQueue {
 public:
  void Push(ImageBlock&& block) TARN_EXCLUDES(mutex_);
  bool Empty() const TARN_EXCLUDES(mutex_);

  /// Tells the owner that is next. False when there is none, or when another thread (or a caller further up
  /// on this thread's stack) is telling one: what is left is that thread's affair.
  bool TellNext() TARN_EXCLUDES(mutex_);

  /// Tells all owners that are left, and waits for the one who is being told on another thread.
  void Finish() TARN_EXCLUDES(mutex_);

  /// Tells one owner, past the queue.
  static void Tell(ImageBlock& block) noexcept;

  /// True when called from an owner's function, on this thread.
  static bool IsTelling() noexcept;

 private:
  mutable Mutex mutex_;
  std::condition_variable_any told_;
  std::deque<ImageBlock> blocks_ TARN_GUARDED_BY(mutex_);
  bool telling_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace Tarn
