#pragma once

/// The rate of the stream within its limit: as slow as the frames allow, and slower for a client that loses many packets.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "camera/base/clock.h"

namespace Tarn {

/// A frame is spread over most of the time until the next, as cameras do whose sensor is read out meanwhile: receive
/// buffers and switches then see the mean rate and no bursts. Requests for many packets of the frames at hand mean that
/// the client cannot take the rate: it goes down at once and comes back slowly, and never so low that frames would be
/// late.
/// Threads: one at a time.
class RateControl {
 public:
  /// Of the time until the next frame.
  static constexpr double kSpread = 0.8;
  static constexpr double kLongestSpread = 0.95;
  /// Frames that come less often, and those that a trigger asks for, are not spread over more than this.
  static constexpr Nanoseconds kLongestFrame{33'000'000};
  /// Additive increase with each frame without losses, multiplicative decrease, at most once in a window.
  static constexpr double kIncrease = 0.02;
  static constexpr double kDecrease = 0.75;
  static constexpr double kLeast = 0.125;
  static constexpr Nanoseconds kWindow{10'000'000};
  /// Of a frame: the packets that any network loses now and then come again in time, and slower ones are lost as well.
  static constexpr double kTolerated = 0.02;

  /// \param bytes_per_second  0: no limit, and then nothing is controlled
  /// \param adaptive          false: the limit is the rate
  void SetLimit(std::uint64_t bytes_per_second, bool adaptive) noexcept;

  /// The program handed over a frame.
  /// \param wire_bytes  of the frame with all framing
  /// \param waited      for a place: the time since the last says nothing about the program then
  void FrameAccepted(Instant now, std::size_t wire_bytes, bool waited) noexcept;

  /// The client asked for packets of the present frame or the one before.
  /// \param bytes  of these packets; more than a frame has count as a frame
  void PacketsMissed(Instant now, std::uint64_t bytes) noexcept;

  /// Bytes per second; 0: no limit.
  std::uint64_t Rate() const noexcept { return rate_; }

  /// The channel was opened by somebody, who starts at the full rate.
  void Restart() noexcept;

 private:
  static constexpr Nanoseconds kUnknown = Nanoseconds::max();

  /// The shortest of the last times between frames that the program chose.
  Nanoseconds Interval() const noexcept { return *std::min_element(intervals_.begin(), intervals_.end()); }
  /// That spreads a frame over this part of an interval, within the limit.
  double RateOver(Nanoseconds interval, double spread) const noexcept;
  bool LosesMany() const noexcept {
    return static_cast<double>(missed_bytes_) > kTolerated * static_cast<double>(frame_bytes_);
  }
  void Decide() noexcept;

  std::uint64_t limit_ = 0;
  bool adaptive_ = false;
  std::array<Nanoseconds, 4> intervals_{kUnknown, kUnknown, kUnknown, kUnknown};
  std::size_t next_interval_ = 0;
  Instant last_frame_{};
  Instant last_decrease_{};
  std::uint64_t missed_bytes_ = 0;  // since the last frame
  std::size_t frame_bytes_ = 0;
  double share_ = 1;  // of what would be without losses
  std::uint64_t rate_ = 0;
};

}  // namespace Tarn
