#pragma once

/// Sends one block after the other, group of packets by group of packets, and packets again in between.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "camera/device/frame_observer.h"
#include "camera/device/stream_options.h"
#include "camera/engine/stream/pacing.h"
#include "camera/engine/stream/packetiser.h"
#include "camera/engine/stream/resend_answer.h"
#include "camera/engine/stream/resend_store.h"
#include "camera/engine/stream/stream_config.h"
#include "camera/net/datagram_batch.h"
#include "camera/net/stream_route.h"
#include "camera/net/stream_socket.h"

namespace Tarn {

/// Blocks that are needed no more go to the caller's `gone`; nobody is told here.
/// Threads: one at a time, except LocalPort(), Driver(), State() and Counters(), which any thread may ask.
class StreamTransmitter {
 public:
  using Blocks = std::vector<ImageBlock>;
  /// Packets that are sent again with one sendmmsg, and requests that are at work: a live image waits no longer for them.
  static constexpr std::size_t kMaxResends = 64;

  /// Throws: std::system_error when the socket cannot be made or bound.
  explicit StreamTransmitter(const StreamOptions& options);

  std::uint16_t LocalPort() const noexcept { return socket_.LocalPort(); }
  StreamDriver Driver() const noexcept { return driver_.load(); }
  StreamCounters Counters() const noexcept;

  /// True when a block of this layout can be sent with these settings.
  static bool CanSend(const PayloadLayout& payload, const StreamConfig& config) noexcept;

  /// Settings for the next blocks. Kept blocks that were cut differently go.
  /// Requires: not Sending().
  void Apply(const StreamConfig& config, Blocks& gone);

  /// The way to the destination may have changed: looks at it anew, and tries trains again.
  void FindRoute() noexcept;
  StreamState State() const noexcept { return state_.load(); }

  /// From the next group of packets on.
  void SetPace(const Pace& pace) noexcept;

  /// Starts a block; what cannot be sent goes at once.
  /// Requires: not Sending().
  void Begin(ImageBlock&& block, std::uint64_t block_id, Blocks& gone);
  bool Sending() const noexcept { return current_.has_value(); }
  /// The block that is being sent.
  /// Requires: Sending().
  ImageBlock& Current() noexcept { return current_->block; }
  /// Bytes at the start of the current block's payload that are needed for resends only.
  std::size_t PayloadSent() const noexcept;

  /// Takes a request; empty when nothing is to be sent for it.
  void Serve(const ResendRequest& request);
  bool Serving() const noexcept { return !serving_.empty(); }
  /// Requests that one step may answer, with as many packets as a step has.
  std::size_t RoomForRequests() const noexcept;
  /// Requests that were answered to their end, since the last call.
  std::size_t TakeFinished() noexcept { return std::exchange(finished_, 0); }

  /// When the next Step may be made; may have passed.
  Instant Due() const noexcept { return ResendsFirst() ? pacing_->Due() - kResendsAhead : pacing_->Due(); }
  /// There was nothing to send until now.
  void Start(Instant now) noexcept { pacing_->Start(now); }

  /// Sends the next group of packets. Those that are asked for again go first, as many as one group of the block has.
  /// Requires: Sending() or Serving().
  /// \param stop  set by others: return soon
  void Step(const std::atomic<bool>& stop, Blocks& gone);

  /// Gives up the current block, if any.
  void DropCurrent(Blocks& gone);
  /// Forgets kept blocks, oldest first, until at most `count` are left.
  void KeepAtMost(std::size_t count, Blocks& gone);
  /// Forgets all kept blocks and what was sent before: ids begin anew.
  void Forget(Blocks& gone);

  /// One datagram of test data, `packet_size` bytes with its IP and UDP headers, not to be fragmented. Errors of the
  /// network are swallowed.
  void SendTestPacket(const Endpoint& destination, std::size_t packet_size);

 private:
  /// Packets of one sendmmsg at most; with trains of 1500-byte packets that is half a megabyte. Twice 176, so that full
  /// trains of 44 are cut; 176 cost a hundredth more, 500 no less (measured, bench/stream_send).
  static constexpr std::size_t kMaxGroup = 352;
  /// Leaders, trailers and refusals of one sendmmsg.
  static constexpr std::size_t kMaxEnds = 64;
  /// Packets that are sent again need not wait for the pace, which is kept in the mean: clients wait for them.
  static constexpr Nanoseconds kResendsAhead{1'000'000};

  struct Resend {
    ResendRequest request;
    ResendAnswer answer;
  };

  struct Range {
    std::uint32_t first = 0;
    std::uint32_t end = 0;  // not included
    std::uint16_t status = StreamStatus::kSuccess;
    std::uint16_t flags = 0;
  };

  static void Add(std::atomic<std::uint64_t>& counter, std::uint64_t count) noexcept {
    // Written by one thread at a time; the atomic is for Counters().
    counter.store(counter.load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
  }

  void StepBlock(const std::atomic<bool>& stop, Blocks& gone);
  void KeepCurrent(Blocks& gone);
  void StepResends(const std::atomic<bool>& stop);
  std::size_t GatherResend(const Resend& resend, std::size_t most);
  void CountResent(std::size_t done) noexcept;
  std::optional<Endpoint> DestinationOf(const ResendRequest& request) const noexcept;
  CutBlock* FindSent(std::uint64_t block_id) noexcept;
  std::uint32_t SentCount(const CutBlock& block) const noexcept;

  bool ResendsFirst() const noexcept { return Serving() && (!Sending() || resent_ < GroupLimit()); }
  std::size_t ResendRoom() const noexcept;
  Pacing& PacingFor(const Pace& pace) noexcept;
  bool UsesTrains() const noexcept;
  BatchResult SendNothing() const noexcept;
  void NoteState(const BatchResult& result) noexcept;
  void StartBatch(const std::optional<Endpoint>& destination) noexcept;
  std::size_t GroupLimit() const noexcept;
  std::size_t Gather(const CutBlock& block, const Range& range, std::size_t most) noexcept;
  bool GatherEnd(const CutBlock& block, std::uint32_t id, const Range& range) noexcept;
  bool GatherRefusal(const Resend& resend) noexcept;
  BatchResult SendGathered(const std::atomic<bool>& stop) noexcept;

  StreamSocket socket_;
  const std::uint32_t local_address_;
  const StreamDriver requested_driver_;
  std::atomic<StreamDriver> driver_;
  std::atomic<StreamState> state_ = StreamState::Closed;
  std::optional<StreamRoute> route_;               // to the destination
  const std::shared_ptr<FrameObserver> observer_;  // may be null
  bool queue_full_ = false;                        // in the last group; the next goes packet by packet
  bool train_refused_ = false;  // in the last group; the next is a packet alone and decides

  StreamConfig config_{};
  PacketForm form_;
  std::optional<Endpoint> explicit_peer_;  // set when the socket could not be connected to the destination

  Pace pace_;
  NoPacing no_pacing_;
  ClockPacing clock_pacing_;
  KernelPacing kernel_pacing_;
  Pacing* pacing_ = &no_pacing_;  // one of these

  std::optional<CutBlock> current_;
  std::uint32_t next_packet_ = 0;   // of the current block
  bool start_told_ = false;         // its start, to the observer
  bool lost_some_ = false;          // of its packets
  std::uint64_t newest_block_ = 0;  // id of the block begun last
  bool after_drop_ = false;         // the block before was not sent to its end
  std::vector<Resend> serving_;
  std::size_t finished_ = 0;
  std::size_t resent_ = 0;  // packets since the block's last group
  ResendStore store_;

  DatagramBatch batch_;
  std::array<std::uint8_t, kMaxGroup * StreamHeader::kExtendedSize> headers_;
  std::array<std::array<std::uint8_t, Packetiser::kMaxEndSize>, kMaxEnds> ends_;
  std::size_t headers_used_ = 0;  // bytes
  std::size_t ends_used_ = 0;

  std::atomic<std::uint64_t> frames_{0};
  std::atomic<std::uint64_t> packets_{0};
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<std::uint64_t> resent_packets_{0};
  std::atomic<std::uint64_t> failed_sends_{0};
  std::atomic<std::uint64_t> dropped_blocks_{0};
  std::atomic<std::uint64_t> unreachable_{0};
  std::atomic<std::uint64_t> queue_full_times_{0};
};

}  // namespace Tarn
