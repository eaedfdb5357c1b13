#pragma once

/// Says when the next packets may leave, so that a channel keeps its rate in bounded bursts.

#include <cstddef>
#include <cstdint>

#include "camera/base/clock.h"

namespace Tarn {

/// Each packet takes up the line for the packet delay or for its share of the rate, whichever is longer.
/// Packets go in groups, since a wake-up per packet would cost more than the packet; a late wake-up is made
/// up for by one group at most, so that never more than two groups leave back to back.
/// Threads: one at a time.
class Pacer {
 public:
  /// The most that leaves back to back, headers included. A receive buffer of Linux' default size (212,992
  /// bytes) is charged more than the bytes of a packet: it takes about 90 packets of 1500, so this fills a
  /// third of it and leaves the reader time.
  static constexpr std::size_t kBurstBytes = std::size_t{48} * 1024;
  /// A packet delay is kept in groups of about this duration.
  static constexpr Nanoseconds kDelayGroup{100'000};

  /// \param packet_delay      from the start of a packet to the start of the next; 0: none
  /// \param bytes_per_second  0: no limit
  void Configure(Nanoseconds packet_delay, std::uint64_t bytes_per_second) noexcept;

  bool Unlimited() const noexcept { return delay_.count() == 0 && rate_ == 0; }

  /// Packets of `packet_size` bytes that may leave together; at least 1.
  /// Requires: not Unlimited().
  std::size_t GroupPackets(std::size_t packet_size) const noexcept;

  /// The next group may leave then.
  /// Requires: not Unlimited().
  Instant Due() const noexcept { return due_; }

  /// A group left at `now`.
  /// \param bytes  with headers
  void Sent(Instant now, std::size_t packets, std::size_t bytes) noexcept;

 private:
  Nanoseconds Duration(std::size_t packets, std::size_t bytes) const noexcept;

  Nanoseconds delay_{0};
  std::uint64_t rate_ = 0;
  Instant due_{};
};

}  // namespace Tarn
