#pragma once

/// A channel beside the control port, without a thread of its own.

#include <array>

#include "camera/base/clock.h"

namespace Tarn {

/// Threads: called from the thread that hears commands, which keeps the channel alive meanwhile.
class SideChannel {
 public:
  virtual ~SideChannel() = default;

  /// Descriptors whose readiness is answered with Serve(); the same ones always.
  virtual std::array<int, 2> Fds() const = 0;
  /// When Serve() must be called next; the end of time for never.
  virtual Instant Deadline() = 0;
  /// Must not wait.
  virtual void Serve() = 0;
};

}  // namespace Tarn
