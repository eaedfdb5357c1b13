#pragma once

/// The UDP socket that events leave from and their acknowledges come back to.

#include <cstdint>
#include <optional>

#include "camera/base/bytes.h"
#include "camera/base/endpoint.h"
#include "camera/net/owned_fd.h"

namespace Tarn {

/// Threads: any thread.
class MessageSocket {
 public:
  /// Bound to the address and a port of the system's choice.
  /// Throws: std::system_error that names the address.
  explicit MessageSocket(std::uint32_t local_address);

  int Fd() const noexcept { return fd_.Get(); }
  std::uint16_t LocalPort() const noexcept { return local_port_; }

  /// Sends at once or not at all. What goes wrong is not told: datagrams may get lost at any time.
  void Send(ByteView bytes, Endpoint to) noexcept;

  struct Received {
    ByteView bytes;  ///< in the caller's buffer
    Endpoint source;
  };
  /// The next datagram that waits; empty when there is none. One that is larger than the buffer arrives cut.
  std::optional<Received> Receive(MutableByteView buffer) noexcept;

 private:
  OwnedFd fd_;
  std::uint16_t local_port_ = 0;
};

}  // namespace Tarn
