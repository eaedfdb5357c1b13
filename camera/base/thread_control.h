#pragma once

/// What threads ask of the system.

#include <cstdint>
#include <thread>

#include "camera/base/clock.h"

namespace Tarn {

namespace ThisThread {

/// Shown by the system's tools; 15 characters at most.
void Name(const char* name) noexcept;

/// Sleeps and waits of this thread end on time instead of up to 50 us later, and it need not wait for the end of another
/// thread's turn of milliseconds: it asks for short turns itself.
void WakeOnTime() noexcept;

/// Returns at `when` or a little later.
void SleepUntil(Instant when) noexcept;

}  // namespace ThisThread

/// Priority and processors of a thread.
struct ThreadSchedule {
  std::uint32_t fifo_priority = 0;  ///< of SCHED_FIFO, 1 to 99; 0: the system's usual scheduling
  std::uint64_t processors = 0;  ///< a bit for each of the first 64 that it may use; 0: those of its process

  /// Gives it to a thread of this process.
  /// \return false when the system refuses a part of it, as it does for want of the right, or without such a processor
  bool ApplyTo(std::thread& thread) const noexcept;

  friend bool operator==(const ThreadSchedule&, const ThreadSchedule&) = default;
};

}  // namespace Tarn
