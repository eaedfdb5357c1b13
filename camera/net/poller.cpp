#include "camera/net/poller.h"

#include <sys/eventfd.h>
#include <system_error>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace Tarn {

std::size_t Poller::Add(int fd, short events) {
  fds_.push_back({fd, events, 0});
  return fds_.size() - 1;
}

void Poller::Wait(std::optional<Instant> deadline) {
  for (;;) {
    timespec left{};
    if (deadline) {
      const Nanoseconds wait = std::max(Nanoseconds{0}, *deadline - Now());
      const auto seconds = std::chrono::floor<std::chrono::seconds>(wait);
      left.tv_sec = seconds.count();
      left.tv_nsec = (wait - seconds).count();
    }
    if (::ppoll(fds_.data(), fds_.size(), deadline ? &left : nullptr, nullptr) >= 0) return;
    // After a signal the time that is left has to be counted anew.
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot wait for sockets");
  }
}

Wakeup::Wakeup() : fd_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (!fd_) throw std::system_error(errno, std::generic_category(), "cannot create an event descriptor");
}

void Wakeup::Wake() noexcept {
  // Fails only when the counter is at its end, and then it is readable already.
  [[maybe_unused]] const int result = ::eventfd_write(fd_.Get(), 1);
}

void Wakeup::Clear() noexcept {
  eventfd_t count = 0;
  [[maybe_unused]] const int result = ::eventfd_read(fd_.Get(), &count);
}

}  // namespace Tarn
