#pragma once

/// The UDP socket that stream packets leave from.

#include <cstdint>

#include "camera/base/endpoint.h"
#include "camera/net/datagram_output.h"
#include "camera/net/owned_fd.h"

namespace Tarn {

/// Threads: one at a time, except LocalPort().
class StreamSocket final : public DatagramOutput {
 public:
  /// Bound to the address and a port of the system's choice.
  /// Throws: std::system_error.
  explicit StreamSocket(std::uint32_t local_address);

  std::uint16_t LocalPort() const noexcept { return local_port_; }

  /// Where datagrams without a destination of their own go. False when there is no route at present:
  /// datagrams then need a destination of their own.
  [[nodiscard]] bool SetPeer(const Endpoint& peer) noexcept;

  /// On: packets carry the don't-fragment bit, and those beyond the interface's MTU are refused. Off: packets
  /// carry no such bit, longer ones are fragmented.
  void SetDontFragment(bool on) noexcept;

  int SendMessages(mmsghdr* messages, unsigned count) noexcept override;
  void WaitWritable(std::chrono::milliseconds timeout) noexcept override;

 private:
  OwnedFd fd_;
  std::uint16_t local_port_ = 0;
};

/// Tries whether a train sent from this address arrives as single datagrams. Touches nobody else's traffic.
/// Returns false also when there are no sockets for the trial.
bool SegmentationWorks(std::uint32_t local_address) noexcept;

}  // namespace Tarn
