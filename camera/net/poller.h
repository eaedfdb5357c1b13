#pragma once

/// Waiting: for descriptors, for a point in time, for another thread.

#include <poll.h>

#include <cstddef>
#include <optional>
#include <vector>

#include "camera/base/clock.h"
#include "camera/net/owned_fd.h"

namespace Tarn {

/// Waits for a fixed set of descriptors that its caller keeps open.
/// Threads: one at a time.
class Poller {
 public:
  /// \param fd      -1 stands for a descriptor that is never ready
  /// \param events  as poll(2) takes them, POLLIN or POLLOUT
  /// \return the number to ask Ready with
  std::size_t Add(int fd, short events = POLLIN);

  /// Returns when a descriptor is ready or in error, or at `deadline`; without one it waits for ever.
  /// Precise to the resolution of the system's timers, well below a millisecond.
  /// Throws: std::system_error, only when the system has no memory left.
  void Wait(std::optional<Instant> deadline);

  /// Whether the last Wait found it ready, or in error, which the next call on it will tell.
  bool Ready(std::size_t number) const noexcept { return fds_[number].revents != 0; }

 private:
  std::vector<pollfd> fds_;
};

/// Ends another thread's wait.
/// Threads: any thread.
class Wakeup {
 public:
  /// Throws: std::system_error when no descriptor is left.
  Wakeup();

  /// Becomes readable with Wake() and stays so until Clear().
  int Fd() const noexcept { return fd_.Get(); }
  void Wake() noexcept;
  void Clear() noexcept;

 private:
  OwnedFd fd_;
};

}  // namespace Tarn
