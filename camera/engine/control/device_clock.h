#pragma once

/// The device's clock: nanoseconds since it was made or last reset.

#include <atomic>
#include <cstdint>

#include "camera/base/clock.h"

namespace Tarn {

/// Threads: any thread.
class DeviceClock {
 public:
  explicit DeviceClock(Instant zero) : zero_(zero.time_since_epoch().count()) {}

  /// What the clock shows, or showed, at an instant; 0 for one before its last reset.
  std::uint64_t TicksAt(Instant when) const noexcept {
    const std::int64_t since = when.time_since_epoch().count() - zero_;
    return since < 0 ? 0 : static_cast<std::uint64_t>(since);
  }
  /// When the clock shows, or showed, `ticks` as long as nobody resets it; Instant::max() for never.
  Instant At(std::uint64_t ticks) const noexcept {
    const std::int64_t zero = zero_;
    if (ticks > static_cast<std::uint64_t>(INT64_MAX - zero)) return Instant::max();
    return Instant(Nanoseconds(zero + static_cast<std::int64_t>(ticks)));
  }
  void Reset(Instant now) noexcept { zero_ = now.time_since_epoch().count(); }

 private:
  std::atomic<std::int64_t> zero_;  // written by Reset, read by others
};

}  // namespace Tarn
