#pragma once

/// What a thread asks of the system for itself.

#include <cstdint>

#include "camera/base/clock.h"

namespace Tarn::ThisThread {

/// Shown by the system's tools; 15 characters at most.
void Name(const char* name) noexcept;

/// Sleeps and waits of this thread end on time instead of up to 50 us later.
void WakeOnTime() noexcept;

/// Returns at `when` or a little later.
void SleepUntil(Instant when) noexcept;

/// Processors and priority of a thread; both are the system's affair by default.
struct Schedule {
  std::uint32_t fifo_priority = 0;  ///< of SCHED_FIFO, 1 to 99; 0: no real-time scheduling
  std::uint64_t processors = 0;  ///< a bit for each processor that the thread may use, the first 64; 0: all
  friend bool operator==(const Schedule&, const Schedule&) = default;
};

/// Returns false when the system refused a part of it, as it does for want of the right.
bool Apply(const Schedule& schedule) noexcept;

}  // namespace Tarn::ThisThread
