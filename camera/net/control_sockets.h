#pragma once

/// The sockets on which a device hears commands.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "camera/base/bytes.h"
#include "camera/base/clock.h"
#include "camera/base/endpoint.h"
#include "camera/net/owned_fd.h"

namespace Tarn {

/// Up to three UDP sockets, because the kernel delivers by the address that a socket is bound to:
///
///   | socket | bound to            | hears                | others may bind too |
///   |--------+---------------------+----------------------+---------------------|
///   | 0      | the device address  | unicast              | no: one device each |
///   | 1      | directed broadcast  | the subnet's clients | yes                 |
///   | 2      | 255.255.255.255     | everybody on the link | yes                |
///
/// The broadcast sockets serve discovery only: where one cannot be had, the device is still opened by
/// address.
/// Threads: Send any thread; Receive one at a time for each socket.
class ControlSockets {
 public:
  /// \param port  0 lets the system choose
  /// Throws: std::system_error naming address, port and the system's reason when the unicast socket cannot be
  /// had.
  ControlSockets(std::uint32_t address, std::uint16_t port);

  /// Address and port of the unicast socket.
  Endpoint Local() const noexcept { return local_; }

  /// All sockets in the order of the table, for polling; -1 for an absent one.
  std::array<int, 3> Fds() const noexcept {
    return {sockets_[0].Get(), sockets_[1].Get(), sockets_[2].Get()};
  }

  struct Received {
    ByteView bytes;  ///< in the caller's buffer
    Endpoint source;
    bool broadcast = false;
    Instant arrival;  ///< in the system; the program may have been held up since
  };

  /// The next datagram that waits in one of Fds() and came in through the device's interface; empty when
  /// there is none at present. A datagram that is larger than the buffer arrives cut.
  std::optional<Received> Receive(int fd, MutableByteView buffer) noexcept;

  /// Sends from the device address; to 255.255.255.255 through its interface. What goes wrong is not told: datagrams may get lost at any time, and the
  /// clients know how to repeat.
  void Send(ByteView bytes, Endpoint to) noexcept;

 private:
  Endpoint local_;
  unsigned interface_ = 0;  // the system's number of the device's interface; 0 when unknown
  std::array<OwnedFd, 3> sockets_;
};

}  // namespace Tarn
