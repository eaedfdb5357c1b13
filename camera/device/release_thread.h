#pragma once

/// Tells owners that the memory of their images is free.

#include <condition_variable>
#include <deque>

#include "camera/base/clock.h"
#include "camera/base/mutex.h"
#include "camera/engine/stream/image_block.h"

namespace Tarn {

/// Tells the owners in the order of Push, each once, never two at the same time, and with no lock held. An owner may take
/// long, and wait for the interpreter: so it is a thread of its own that tells them, and whoever hands over images.
/// Threads: any thread, except Run().
class ReleaseThread {
 public:
  /// To be followed by Wake() or TellAll().
  void Push(BlockOwner&& owner) noexcept TARN_EXCLUDES(mutex_);

  /// Has the thread tell the owners that wait.
  void Wake() TARN_EXCLUDES(mutex_);

  /// Tells the owners that wait, unless another thread (or a caller further up on this thread's stack) is telling one:
  /// what is left is the thread's affair.
  void TellAll() TARN_EXCLUDES(mutex_);

  /// Body of the thread; returns when the end was asked for and all owners have been told.
  void Run() TARN_EXCLUDES(mutex_);

  /// No owner comes any more.
  void End() TARN_EXCLUDES(mutex_);

  /// Tells one owner, past the queue.
  static void Tell(BlockOwner& owner) noexcept;

  /// True when called from an owner's function, on this thread.
  static bool IsTelling() noexcept;

 private:
  bool TellNext() TARN_EXCLUDES(mutex_);

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<BlockOwner> waiting_ TARN_GUARDED_BY(mutex_);
  Instant sender_seen_ TARN_GUARDED_BY(mutex_){};  ///< the last TellAll
  bool telling_ TARN_GUARDED_BY(mutex_) = false;
  bool ending_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace Tarn
