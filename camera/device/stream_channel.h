#pragma once

/// The stream channel: takes images, sends them as stream packets, keeps them for resends.
///
/// Two threads: the pump sends, the release thread tells owners. A caller of Send() sends its own image itself when the
/// pump has nothing to do and the image is done in a moment; so no change of threads delays it. Nothing that sends ever
/// waits for an owner.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "camera/base/mutex.h"
#include "camera/base/thread_control.h"
#include "camera/device/release_thread.h"
#include "camera/device/stream_options.h"
#include "camera/device/stream_transmitter.h"
#include "camera/engine/stream/block_ids.h"
#include "camera/engine/stream/rate_control.h"
#include "camera/engine/stream/resend_requests.h"

namespace Tarn {

/// `transmitter_` and `gone_` belong to whoever set `held_`, without a lock: the pump, or a caller for its own image.
/// Everybody else leaves orders under the mutex. The pump looks for them before each group of packets.
///
/// Threads: any thread. No lock is held while an owner is told; owners may call anything here.
class StreamChannel {
 public:
  /// Images without resend store that wait while another is sent. They are copies, and so is what is left of one whose
  /// sender does not wait for it.
  static constexpr std::size_t kStagingPlaces = 2;
  /// Bytes in copies; an image that is larger finds its place when no other waits.
  static constexpr std::size_t kMaxStagedBytes = std::size_t{256} << 20;
  /// So long a sender waits for a place, with the interpreter lock and all that depends on it.
  static constexpr std::chrono::milliseconds kPatience{3};

  /// Binds a UDP socket to the address, with a port of the system's choice, and starts the threads. When the last
  /// reference goes, the channel closes without waiting: its threads tell the owners that are left, and end.
  /// Throws: std::system_error when the socket or a thread cannot be had.
  static std::shared_ptr<StreamChannel> Open(const StreamOptions& options);
  ~StreamChannel();
  StreamChannel(const StreamChannel&) = delete;
  StreamChannel& operator=(const StreamChannel&) = delete;

  /// Refuses further images, drops what is not sent, tells all owners, and waits for that; does not wait when called from
  /// an owner's callback. Idempotent. Must not be called while holding a lock that an owner's callback needs.
  void Close();

  std::uint16_t SourcePort() const noexcept { return transmitter_.LocalPort(); }
  /// Socket or Filter: what is in use now.
  StreamDriver Driver() const noexcept { return transmitter_.Driver(); }
  StreamCounters Counters() const;
  /// Bytes per second on the wire that the stream keeps to now; 0: no limit.
  std::uint64_t Rate() const;

  /// New settings: the pace for the next group of packets, the others for the blocks after the current one. Without a
  /// complete destination what is not sent is dropped. Kept blocks of another packet size or header form are no longer
  /// resent.
  void Configure(const StreamConfig& config);

  /// The client opened the channel (again): block ids start at 1, whatever was in flight or kept is dropped.
  void ChannelOpened();

  /// One datagram of exactly the configured packet size with the don't-fragment bit. No error is reported: a packet that
  /// does not arrive is the answer. Does nothing without a complete destination.
  void FireTestPacket();

  /// How the pump is scheduled. False when the system refuses; then it is as usual.
  /// Requires: the channel is open.
  bool SetSchedule(const ThreadSchedule& schedule);

  /// The network changed: the way to the destination is looked at anew.
  void RouteChanged();
  StreamState State() const noexcept { return transmitter_.State(); }

  /// Acquisition on. Memory for copies of so large images is made ready: the first of a page costs more than the copy.
  void BeginRunning(std::size_t payload_bytes);

  /// Acquisition off: what is not sent is dropped; kept blocks can still be resent.
  void StopRunning();

  /// Acquisition off because all its blocks were accepted: those go out, new ones are refused.
  void EndRunning();

  /// Queues the request. Strangers' are ignored; what finds no place is counted.
  void Resend(const ResendRequest& request);

  /// Memory for a copy of an image, at least so large; comes back with the block that is sent from it.
  std::vector<std::uint8_t> Buffer(std::size_t bytes);

  /// Whether Send() would take an image now. A program that asks in vain is faster than the stream.
  bool HasPlace();

  /// Takes the block and sends it, or has it sent. Without resend depth the owner has been told on return: what is not on
  /// the wire then is a copy. With it, the owner is told when the block leaves the store, in the order of sending.
  /// On any result but Accepted the block is untouched and its owner is not told.
  /// Throws: std::bad_alloc without memory for a copy; the block is untouched then too.
  SendResult Send(ImageBlock&& block);

 private:
  struct Waiting {
    ImageBlock block;
    std::uint64_t id;
  };
  struct Test {
    Endpoint destination;
    std::size_t packet_size;
  };
  /// What the pump is to do next.
  struct Orders {
    std::vector<Waiting> dropped;
    bool drop_current = false;
    std::size_t forgotten = 0;  ///< of the dropped, from the front: from before the channel was opened
    bool forget = false;        ///< what was sent before
    std::size_t kept = 0;       ///< at most
    bool find_route = false;
    std::size_t prepare = 0;  ///< bytes of the copies to come
    Pace pace;
    std::optional<StreamConfig> config;
    std::optional<Test> test;
    std::optional<Waiting> begin;
    std::vector<ResendRequest> requests;
  };
  /// What a block takes up.
  struct Extent {
    std::size_t packets = 0;
    std::size_t wire_bytes = 0;
  };
  /// How an image goes.
  enum class Way {
    Itself,  ///< the caller sends it
    Copy,    ///< the pump sends a copy
    Queue,   ///< the pump sends it
  };
  /// What a caller needs to know that sends its image itself.
  struct Start {
    std::uint64_t id = 0;
    Pace pace;
    std::size_t kept = 0;  ///< blocks that stay in the store at most
  };

  explicit StreamChannel(const StreamOptions& options);

  Extent ExtentOf(const ImageBlock& block) const TARN_REQUIRES(mutex_);
  std::optional<SendResult> Refusal(const ImageBlock& block) const TARN_REQUIRES(mutex_);
  std::optional<SendResult> AwaitPlace(MutexLock& lock, const ImageBlock& block) TARN_REQUIRES(mutex_);
  std::size_t Places() const { return std::max<std::size_t>(depth_, kStagingPlaces); }
  std::size_t Unsent() const TARN_REQUIRES(mutex_) {
    return waiting_.size() + reserved_ + (sending_ ? 1 : 0);
  }
  std::size_t Kept() const TARN_REQUIRES(mutex_);
  bool HasPlaceFor(std::size_t bytes) const TARN_REQUIRES(mutex_);
  Pace PaceNow() const TARN_REQUIRES(mutex_) { return {config_.pace.packet_delay, rate_.Rate()}; }
  Way WayOf(const ImageBlock& block, const Extent& extent) TARN_REQUIRES(mutex_);
  std::uint64_t Number(const Extent& extent) TARN_REQUIRES(mutex_);
  void Enqueue(ImageBlock&& block, const Extent& extent) TARN_REQUIRES(mutex_);

  void SendItself(ImageBlock&& block, const Start& start) TARN_EXCLUDES(mutex_);
  void SendCopy(ImageBlock&& block, const Extent& extent) TARN_EXCLUDES(mutex_);
  BlockOwner CopyRest() TARN_EXCLUDES(mutex_);

  bool HasOrders() const TARN_REQUIRES(mutex_);
  bool HasWork() const TARN_REQUIRES(mutex_);
  void DropUnsent() TARN_REQUIRES(mutex_);

  void Pump() TARN_EXCLUDES(mutex_);
  void Work(Orders& orders) TARN_EXCLUDES(mutex_);
  bool TakeOrders(Orders& orders) TARN_EXCLUDES(mutex_);
  void NoteProgress() TARN_REQUIRES(mutex_);
  void Recycle(std::vector<std::uint8_t>&& buffer) TARN_REQUIRES(mutex_);
  void Execute(Orders& orders);
  void DropUnbegun(std::span<Waiting> dropped);
  void Prepare(std::size_t bytes) TARN_EXCLUDES(mutex_);
  bool Await(Instant due) TARN_EXCLUDES(mutex_);
  bool LetGo() noexcept TARN_EXCLUDES(mutex_);
  void Finish() TARN_EXCLUDES(mutex_);
  void RequestClose() noexcept;
  void Abandon() noexcept;

  const std::size_t depth_;

  mutable Mutex mutex_;
  std::condition_variable_any wake_;        // the pump: orders, or work
  std::condition_variable_any place_free_;  // callers that wait for a place
  bool closing_ TARN_GUARDED_BY(mutex_) = false;
  bool running_ TARN_GUARDED_BY(mutex_) = false;
  bool held_ TARN_GUARDED_BY(mutex_) = false;     ///< the transmitter
  bool sending_ TARN_GUARDED_BY(mutex_) = false;  ///< it has a block
  BlockIds ids_ TARN_GUARDED_BY(mutex_);
  std::uint64_t newest_id_ TARN_GUARDED_BY(mutex_) = 0;
  StreamConfig config_ TARN_GUARDED_BY(mutex_);
  RateControl rate_ TARN_GUARDED_BY(mutex_);
  std::deque<Waiting> waiting_ TARN_GUARDED_BY(mutex_);
  std::size_t reserved_ TARN_GUARDED_BY(mutex_) = 0;  ///< places of images that are being copied
  std::vector<std::vector<std::uint8_t>> spare_ TARN_GUARDED_BY(mutex_);  ///< buffers for copies
  bool waited_ TARN_GUARDED_BY(mutex_) = false;  ///< the program, for a place, since the last image
  std::size_t staged_bytes_ TARN_GUARDED_BY(mutex_) = 0;
  std::uint64_t refused_images_ TARN_GUARDED_BY(mutex_) = 0;
  std::uint64_t dropped_requests_ TARN_GUARDED_BY(mutex_) = 0;

  // Orders for the pump.
  bool config_changed_ TARN_GUARDED_BY(mutex_) = true;
  bool drop_current_ TARN_GUARDED_BY(mutex_) = false;
  std::size_t drop_waiting_ TARN_GUARDED_BY(mutex_) = 0;  // from the front
  bool forget_ TARN_GUARDED_BY(mutex_) = false;           ///< what was sent
  std::size_t forget_waiting_ TARN_GUARDED_BY(mutex_) =
      0;  ///< of those to be dropped, from before that order
  bool find_route_ TARN_GUARDED_BY(mutex_) = false;
  std::size_t prepare_ TARN_GUARDED_BY(mutex_) = 0;  ///< bytes
  std::deque<Test> tests_ TARN_GUARDED_BY(mutex_);
  ResendRequests requests_ TARN_GUARDED_BY(mutex_);

  /// Set with drop_current_, cleared when that order is taken; read between the system calls of sending.
  std::atomic<bool> stop_{false};

  // Whoever holds the transmitter.
  StreamTransmitter transmitter_;
  std::vector<ImageBlock> gone_;

  ReleaseThread releases_;

  Mutex joining_;                                      ///< one thread joins
  ThreadSchedule schedule_ TARN_GUARDED_BY(joining_);  ///< of the pump
  std::thread pump_;
  std::thread releaser_;
};

}  // namespace Tarn
