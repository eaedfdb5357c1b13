#pragma once

/// The device's clock: nanoseconds since it was made or last reset.

#include <atomic>
#include <cstdint>

#include "camera/base/clock.h"

namespace Tarn {

/// Threads: any thread.
class DeviceClock {
 public:
  std::uint64_t Ticks() const noexcept {
    // Before the time is taken: with a reset in between the difference would be less than 0.
    const std::int64_t zero = zero_;
    return static_cast<std::uint64_t>(Now().time_since_epoch().count() - zero);
  }
  /// When the clock shows, or showed, `ticks` as long as nobody resets it; the end of time for never.
  Instant At(std::uint64_t ticks) const noexcept {
    const std::int64_t zero = zero_;
    if (ticks > static_cast<std::uint64_t>(INT64_MAX - zero)) return Instant::max();
    return Instant(Nanoseconds(zero + static_cast<std::int64_t>(ticks)));
  }
  void Reset() noexcept { zero_ = Now().time_since_epoch().count(); }

 private:
  std::atomic<std::int64_t> zero_ = Now().time_since_epoch().count();  // written by Reset, read by others
};

}  // namespace Tarn
