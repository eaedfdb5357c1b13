#pragma once

/// The device's clock: nanoseconds since it was made or last reset.

#include <atomic>
#include <cstdint>

#include "base/clock.h"

namespace Tarn {

/// Threads: any thread.
class DeviceClock {
 public:
  std::uint64_t Ticks() const noexcept {
    return static_cast<std::uint64_t>(Now().time_since_epoch().count() - zero_.load());
  }
  void Reset() noexcept { zero_ = Now().time_since_epoch().count(); }

 private:
  std::atomic<std::int64_t> zero_ = Now().time_since_epoch().count();  // written by Reset, read by Ticks
};

}  // namespace Tarn
