#include "camera/net/link_watch.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace Tarn {

LinkWatch::LinkWatch() : kernel_(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_TC) {}

bool LinkWatch::Drain() noexcept {
  bool changed = false;
  std::array<std::uint8_t, 1> start;  // of a message, whose rest goes with it
  // Bounded, so that changes without end can't hold the caller; the rest stays readable.
  for (int tries = 0; tries < 1000; ++tries) {
    const ssize_t size = ::recv(Fd(), start.data(), start.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EBADF)) break;
    changed = true;  // also where so much changed that some of it found no room
  }
  return changed;
}

}  // namespace Tarn
