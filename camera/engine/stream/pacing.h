#pragma once

/// When the next packets may leave, so that a stream keeps its rate without bursts that a receiver cannot take.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "camera/base/clock.h"

namespace Tarn {

/// Of each packet, the longer of the two holds.
struct Pace {
  Nanoseconds packet_delay{0};         ///< from the start of a packet to the start of the next; 0: none
  std::uint64_t bytes_per_second = 0;  ///< on the wire, Ethernet framing included; 0: no limit

  bool Limited() const noexcept { return packet_delay.count() > 0 || bytes_per_second != 0; }
  friend bool operator==(const Pace&, const Pace&) = default;
};

/// What a packet takes up on the wire besides its IP packet.
/// Source: IEEE 802.3, preamble 8, addresses and type 14, check sequence 4, gap 12.
inline constexpr std::size_t kFrameOverhead = 38;

/// Time that packets take up at a pace.
/// \param bytes  on the wire
Nanoseconds DurationAt(const Pace& pace, std::size_t packets, std::size_t bytes) noexcept;

/// Threads: one at a time.
class Pacing {
 public:
  virtual ~Pacing() = default;

  /// A new pace, from the next group on. The group before counts at it too: by the old one the next may be an hour away.
  virtual void Set(const Pace& pace) noexcept = 0;

  /// Packets of `wire_bytes` each that may leave back to back; at least 1.
  virtual std::size_t GroupPackets(std::size_t wire_bytes) const noexcept = 0;

  /// The next group may leave then.
  virtual Instant Due() const noexcept = 0;

  /// There was nothing to send until now: time that passed so is not made up for.
  virtual void Start(Instant now) noexcept = 0;

  /// A group left from `begin` on, or was refused by the system: what cannot be sent takes its time too.
  virtual void Sent(Instant begin, std::size_t packets, std::size_t bytes) noexcept = 0;
};

/// As fast as the system takes it.
class NoPacing final : public Pacing {
 public:
  static constexpr std::size_t kAll = 1 << 20;

  void Set(const Pace&) noexcept override {}
  std::size_t GroupPackets(std::size_t) const noexcept override { return kAll; }
  Instant Due() const noexcept override { return {}; }
  void Start(Instant) noexcept override {}
  void Sent(Instant, std::size_t, std::size_t) noexcept override {}
};

/// The sender waits before each group. Packets go in groups, since a wake-up per packet would cost more than the packet; a
/// group lasts so long that wake-ups cost little, and so short that the smallest receive buffer takes it.
class ClockPacing final : public Pacing {
 public:
  /// Source: measured. 50 kB at 1 Gbit/s; a receive buffer of Linux' default size (212,992 bytes) takes 90 packets of
  /// 1500 bytes, since it is charged more than their bytes.
  static constexpr Nanoseconds kGroup{400'000};
  /// A client asks for a packet delay when single packets are too fast for it.
  static constexpr Nanoseconds kDelayGroup{200'000};
  /// Of a stall this much is made up for, the rest is lost.
  static constexpr Nanoseconds kMadeUp{1'000'000};
  /// A usual wake-up comes no later.
  static constexpr Nanoseconds kLate{60'000};

  void Set(const Pace& pace) noexcept override;
  std::size_t GroupPackets(std::size_t wire_bytes) const noexcept override;
  Instant Due() const noexcept override { return due_; }
  void Start(Instant now) noexcept override;
  void Sent(Instant begin, std::size_t packets, std::size_t bytes) noexcept override;

 private:
  void Advance() noexcept;

  Pace pace_;
  Instant schedule_{};  ///< the pace has room again
  Instant due_{};       ///< not before the schedule; making up is done at 1.25 times the rate
  // The last group.
  Instant from_{};
  Instant meant_{};  ///< to leave
  std::size_t packets_ = 0;
  std::size_t bytes_ = 0;
};

/// The queueing discipline spreads the packets; the sender hands them over about a millisecond ahead.
class KernelPacing final : public Pacing {
 public:
  static constexpr Nanoseconds kAhead{1'000'000};

  /// \param tell  sets the socket's pacing rate, bytes per second; the largest number for none
  explicit KernelPacing(std::function<void(std::uint64_t)> tell) : tell_(std::move(tell)) {}

  void Set(const Pace& pace) noexcept override;
  std::size_t GroupPackets(std::size_t wire_bytes) const noexcept override;
  Instant Due() const noexcept override { return schedule_ - kAhead; }
  void Start(Instant now) noexcept override;
  void Sent(Instant begin, std::size_t packets, std::size_t bytes) noexcept override;

 private:
  const std::function<void(std::uint64_t)> tell_;
  Pace pace_;
  Instant schedule_{};  ///< what was handed over has left by then
};

}  // namespace Tarn
