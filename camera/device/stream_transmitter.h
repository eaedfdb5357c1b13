#pragma once

/// Sends one block after the other, group of packets by group of packets, and serves resends in between.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "camera/device/stream_channel.h"
#include "camera/engine/stream/pacer.h"
#include "camera/engine/stream/packetiser.h"
#include "camera/engine/stream/resend_store.h"
#include "camera/engine/stream/stream_config.h"
#include "camera/net/datagram_batch.h"
#include "camera/net/stream_socket.h"

namespace Tarn {

/// Blocks that are needed no more go to the caller's `gone`; nobody is told here.
/// Threads: one at a time, except LocalPort(), Driver() and Counters(), which any thread may ask.
class StreamTransmitter {
 public:
  using Blocks = std::vector<ImageBlock>;

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

  /// Starts a block; what cannot be sent goes at once.
  /// Requires: not Sending().
  void Begin(ImageBlock&& block, std::uint64_t block_id, Blocks& gone);
  bool Sending() const noexcept { return current_.has_value(); }

  /// Starts to answer a request.
  /// Requires: not Serving().
  void Serve(const ResendRequest& request);
  bool Serving() const noexcept { return serving_.has_value(); }

  /// When the next Step may be made; empty: at once.
  std::optional<Instant> Due() const noexcept;

  /// Sends the next group of packets, of the block or of the resend in turn.
  /// Requires: Sending() or Serving().
  /// \param stop  set by others: return soon
  void Step(const std::atomic<bool>& stop, Blocks& gone);

  /// Gives up the current block, if any.
  void DropCurrent(Blocks& gone);
  /// Forgets all kept blocks, oldest first, and what was sent before: ids begin anew.
  void DropKept(Blocks& gone);

  /// One datagram of test data, `packet_size` bytes with its IP and UDP headers, not to be fragmented. Errors
  /// of the network are swallowed.
  void SendTestPacket(const Endpoint& destination, std::size_t packet_size);

 private:
  /// Packets of one sendmmsg at most; with trains of 1500-byte packets that is half a megabyte. Twice 176, so
  /// that full trains of 44 are cut; 176 cost a hundredth more, 500 no less (measured, bench/stream_send).
  static constexpr std::size_t kMaxGroup = 352;

  struct Resend {
    std::uint64_t block_id = 0;
    std::uint32_t next = 0;
    std::uint32_t end = 0;
    std::uint16_t flags = 0;
    std::optional<Endpoint> destination;  // empty: where the stream goes
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
  void StepResend(const std::atomic<bool>& stop);
  std::optional<Endpoint> ResendDestination(const ResendRequest& request) const noexcept;
  void Refuse(const ResendRequest& request, std::uint16_t status);
  std::uint16_t RefusalFor(const ResendRequest& request, const CutBlock* block) const noexcept;
  void ForgetKept(Blocks& gone);
  CutBlock* FindSent(std::uint64_t block_id) noexcept;
  std::uint32_t SentCount(const CutBlock& block) const noexcept;

  bool UsesTrains() const noexcept;
  void StartBatch(const std::optional<Endpoint>& destination) noexcept;
  std::size_t GroupLimit(const PacketForm& form) const noexcept;
  void Gather(const CutBlock& block, const Range& range) noexcept;
  void GatherEnd(const CutBlock& block, std::uint32_t id, const Range& range) noexcept;
  std::size_t SendGathered(const std::atomic<bool>& stop) noexcept;

  StreamSocket socket_;
  const std::size_t interface_mtu_;
  std::atomic<StreamDriver> driver_;
  const std::shared_ptr<FrameObserver> observer_;  // may be null
  bool train_refused_ = false;  // in the last group; the next is a packet alone and decides

  StreamConfig config_{};
  PacketForm form_;
  std::optional<Endpoint> explicit_peer_;  // set when the socket could not be connected to the destination
  Pacer pacer_;

  std::optional<CutBlock> current_;
  std::uint32_t next_packet_ = 0;   // of the current block
  bool start_told_ = false;         // its start, to the observer
  std::uint64_t newest_block_ = 0;  // id of the block begun last
  bool after_drop_ = false;         // the block before was not sent to its end
  std::optional<Resend> serving_;
  bool resend_turn_ = true;
  ResendStore store_;

  DatagramBatch batch_;
  std::array<std::uint8_t, kMaxGroup * StreamHeader::kExtendedSize> headers_;
  std::array<std::array<std::uint8_t, Packetiser::kMaxEndSize>, 2> ends_;  // leader, trailer

  std::atomic<std::uint64_t> frames_{0};
  std::atomic<std::uint64_t> packets_{0};
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<std::uint64_t> resent_packets_{0};
  std::atomic<std::uint64_t> failed_sends_{0};
  std::atomic<std::uint64_t> dropped_blocks_{0};
  std::atomic<std::uint64_t> unreachable_{0};
};

}  // namespace Tarn
