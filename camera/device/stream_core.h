#pragma once

/// What a stream channel and its loop share: the queue of blocks, the orders, and the baton.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "camera/base/mutex.h"
#include "camera/device/release_queue.h"
#include "camera/device/stream_channel.h"
#include "camera/device/stream_transmitter.h"
#include "camera/engine/stream/block_ids.h"
#include "camera/engine/stream/resend_queue.h"

namespace Tarn {

/// The functions are those of StreamChannel, which says what they do.
///
/// The baton: while `baton_held_`, the thread that set it, and no other, touches transmitter_ and gone_,
/// without a lock. Everybody else leaves orders under the mutex; the holder looks for them before each group
/// of packets and does not give the baton back while there are any.
///
/// Threads: any thread, except Run().
class StreamCore {
 public:
  explicit StreamCore(const StreamOptions& options) : depth_(options.resend_depth), transmitter_(options) {}

  /// Body of the stream loop; returns when the channel was closed and all owners have been told.
  void Run();

  void RequestClose();
  void Configure(const StreamConfig& config);
  void ChannelOpened();
  void FireTestPacket();
  void SetRunning(bool running);
  void EndRunning();
  void Resend(const ResendRequest& request);
  SendResult Send(ImageBlock&& block);

  const StreamTransmitter& Transmitter() const noexcept { return transmitter_; }

 private:
  /// How long a holder of the baton goes on.
  enum class Patience {
    UntilDone,  ///< until nothing is left
    UntilRoom,  ///< until another block may wait
    UntilLate,  ///< until it would have to wait for the pacer
  };

  struct Waiting {
    ImageBlock block;
    std::uint64_t id;
  };
  struct Test {
    Endpoint destination;
    std::size_t packet_size;
  };
  /// What the holder of the baton is to do next.
  struct Orders {
    std::vector<Waiting> dropped;
    bool drop_current = false;
    bool drop_kept = false;
    std::optional<StreamConfig> config;
    std::optional<Test> test;
    std::optional<Waiting> begin;
    std::optional<ResendRequest> resend;
  };

  std::optional<SendResult> Refusal(const ImageBlock& block) const TARN_REQUIRES(mutex_);
  bool HasOrders() const TARN_REQUIRES(mutex_);
  void DropAll() TARN_REQUIRES(mutex_);
  void DropUnsent() TARN_REQUIRES(mutex_);
  void DropWaiting(Waiting& waiting);
  void Wake() TARN_REQUIRES(mutex_);
  void WaitForChange(MutexLock& lock) TARN_REQUIRES(mutex_);
  void TakeBaton() TARN_REQUIRES(mutex_) { baton_held_ = true; }
  void GiveBaton() TARN_REQUIRES(mutex_);

  void Work(Patience patience, std::vector<ImageBlock>* own) TARN_EXCLUDES(mutex_);
  bool TakeOrders(Patience patience, Orders& orders, std::vector<ImageBlock>* own) TARN_EXCLUDES(mutex_);
  void Execute(Orders& orders);
  bool AwaitTurn(Patience patience) TARN_EXCLUDES(mutex_);
  void HandOver() TARN_REQUIRES(mutex_);
  void CollectGone(std::vector<ImageBlock>* own);
  void Finish() TARN_EXCLUDES(mutex_);

  const std::size_t depth_;

  mutable Mutex mutex_;
  std::condition_variable_any loop_wake_;     // orders, or work that a caller left
  std::condition_variable_any changed_;       // orders, the baton is free, a place for a waiting block
  int watchers_ TARN_GUARDED_BY(mutex_) = 0;  // threads that wait for changed_
  bool closing_ TARN_GUARDED_BY(mutex_) = false;
  bool running_ TARN_GUARDED_BY(mutex_) = false;
  bool baton_held_ TARN_GUARDED_BY(mutex_) = false;
  std::uint64_t send_calls_ TARN_GUARDED_BY(mutex_) = 0;
  BlockIds ids_ TARN_GUARDED_BY(mutex_);
  StreamConfig config_ TARN_GUARDED_BY(mutex_);
  std::deque<Waiting> waiting_ TARN_GUARDED_BY(mutex_);

  // Orders for the holder of the baton.
  bool config_changed_ TARN_GUARDED_BY(mutex_) = true;
  bool drop_current_ TARN_GUARDED_BY(mutex_) = false;
  std::size_t drop_waiting_ TARN_GUARDED_BY(mutex_) = 0;  // from the front
  bool drop_kept_ TARN_GUARDED_BY(mutex_) = false;
  std::deque<Test> tests_ TARN_GUARDED_BY(mutex_);
  ResendQueue requests_ TARN_GUARDED_BY(mutex_);

  /// Set with drop_current_, cleared when that order is taken; read between the system calls of sending.
  std::atomic<bool> stop_{false};

  // The holder of the baton only.
  StreamTransmitter transmitter_;
  std::vector<ImageBlock> gone_;

  ReleaseQueue releases_;
};

}  // namespace Tarn
