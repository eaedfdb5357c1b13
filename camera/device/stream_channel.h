#pragma once

/// The stream channel: takes images, sends them as stream packets, keeps them for resends.
///
/// Whoever holds the baton sends. Mostly that is the caller of Send(), in its own thread; the stream loop
/// goes on with what would make a caller wait, and serves resends when nobody sends. The holder of the baton
/// never calls out, so waiting for it is always short, also for a caller that holds a lock which callbacks
/// need.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

#include "camera/base/mutex.h"
#include "camera/device/frame_observer.h"
#include "camera/engine/stream/image_block.h"
#include "camera/engine/stream/stream_config.h"

namespace Tarn {

class StreamCore;

/// How packets leave. The numbers are those of the C interface; Auto is a request only.
enum class StreamDriver : std::int32_t {
  Auto = -1,
  Socket = 0,  ///< one datagram per packet
  Filter = 1,  ///< the kernel cuts trains of equal packets
};

/// Constant while a channel is open.
struct StreamOptions {
  std::uint32_t local_address = 0;  ///< packets leave from it
  StreamDriver driver = StreamDriver::Auto;
  std::uint32_t interface_mtu = 1500;  ///< bytes, of the interface that has the address
  bool hardware_interface = false;     ///< neither loopback nor virtual
  std::size_t resend_depth = 0;        ///< sent blocks kept for resends; 0: none, and no resends
  std::shared_ptr<FrameObserver> observer = nullptr;
};

enum class SendResult {
  Accepted,       ///< the owner was told or will be, once
  NotRunning,     ///< acquisition is off
  NoDestination,  ///< no client opened the channel
  TooLarge,       ///< more packets than packet ids
  Closed,
};

/// Since the channel was opened. Frames count blocks sent to their trailer; packets and bytes (UDP payload)
/// include resends.
struct StreamCounters {
  std::uint64_t frames = 0;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  std::uint64_t resent_packets = 0;
  std::uint64_t failed_sends = 0;    ///< datagrams that the system refused
  std::uint64_t dropped_blocks = 0;  ///< accepted, but not sent to the end
  std::uint64_t unreachable = 0;     ///< reports that nobody takes the packets
};

/// Threads: any thread. No lock is held while an owner is told; owners may call anything here.
class StreamChannel {
 public:
  /// Binds a UDP socket to the address, with a port of the system's choice, and starts the stream loop.
  /// Throws: std::system_error when the socket cannot be made or bound.
  explicit StreamChannel(const StreamOptions& options);

  /// As Close(), but never waits: the loop ends by itself and tells the owners that are left.
  ~StreamChannel();
  StreamChannel(const StreamChannel&) = delete;
  StreamChannel& operator=(const StreamChannel&) = delete;

  /// Refuses further sends, drops what is being sent, tells all owners, and waits for that; does not wait
  /// when called on the stream loop or from an owner's callback. Idempotent. Must not be called while holding
  /// a lock that an owner's callback needs.
  void Close();

  std::uint16_t SourcePort() const noexcept;
  /// Socket or Filter: what is in use now. Filter turns into Socket for good when the system refuses a train.
  StreamDriver Driver() const noexcept;
  StreamCounters Counters() const noexcept;

  /// New settings for the blocks after the current one. Without a complete destination the current block and
  /// the waiting ones are dropped. Kept blocks of another packet size or header form are no longer resent.
  void Configure(const StreamConfig& config);

  /// The client opened the channel (again): block ids start at 1, whatever was in flight or kept is dropped.
  void ChannelOpened();

  /// One datagram of exactly the configured packet size with the don't-fragment bit. No error is reported: a
  /// packet that does not arrive is the answer. Does nothing without a complete destination.
  void FireTestPacket();

  /// Acquisition on or off. Off drops the current block and the waiting ones; kept blocks can still be
  /// resent.
  void SetRunning(bool running);

  /// Acquisition off because all its blocks were accepted: those go out, new ones are refused.
  void EndRunning();

  /// Queues the request; too many, repeats within milliseconds and strangers' are dropped silently.
  void Resend(const ResendRequest& request);

  /// Takes the block and sends it. Without resend depth everything is on the wire and the owner has been told
  /// on return. With it, the owner is told when the block leaves the store, in the order of sending, from any
  /// thread in Send() or from the stream loop. On any result but Accepted the block is untouched and its
  /// owner is not told.
  SendResult Send(ImageBlock&& block);

 private:
  std::shared_ptr<StreamCore> core_;  // shared with the stream loop, which may outlive the channel
  Mutex closing_;                     // one thread joins
  std::thread loop_;
};

}  // namespace Tarn
