#pragma once

/// Options that sockets are better off with, and work without.

#include <netinet/in.h>
#include <netinet/ip.h>
#include <sys/socket.h>

namespace Tarn {

/// Returns false where the system refuses.
template <class Value>
bool SetOption(int fd, int level, int name, const Value& value) noexcept {
  return ::setsockopt(fd, level, name, &value, sizeof value) == 0;
}

/// Lets what the socket sends pass the stream's packets in the host's own queue: an acknowledge that waits
/// behind an image is late. 6 is the highest priority that needs no right (interactive), which pfifo_fast and its
/// likes put into their first band; low delay is the type of service that Linux itself translates to it.
/// Switches treat it as ordinary traffic, and so keep the order in which packets left.
inline void SendBeforeStreams(int fd) noexcept {
  static_cast<void>(SetOption(fd, IPPROTO_IP, IP_TOS, int{IPTOS_LOWDELAY}));
  static_cast<void>(SetOption(fd, SOL_SOCKET, SO_PRIORITY, 6));  // second: the type of service sets it, too
}

}  // namespace Tarn
