#pragma once

/// The UDP socket that stream packets leave from, and nothing comes in.

#include <cstdint>

#include "camera/base/endpoint.h"
#include "camera/net/datagram_output.h"
#include "camera/net/owned_fd.h"
#include "camera/net/stream_route.h"

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

  /// Bytes that may wait in the host's queues; less where the system allows no more. What a slow link takes long to
  /// send stands before everything that comes after it.
  void SetBuffer(std::size_t bytes) noexcept;

  /// The rate at which the queues below send what the socket gave them, where these pace (StreamRoute).
  /// \param bytes_per_second  with Ethernet, IP and UDP headers; ~0 for none
  void SetPacingRate(std::uint64_t bytes_per_second) noexcept;

  int SendMessages(mmsghdr* messages, unsigned count) noexcept override;
  void WaitWritable(std::chrono::microseconds timeout) noexcept override;
  void Pause(std::chrono::microseconds time) noexcept override;
  bool DrainErrors(NetworkReports& reports) noexcept override;

 private:
  OwnedFd fd_;
  std::uint16_t local_port_ = 0;
};

/// Whether trains arrive as single datagrams at the end of a route.
///
/// Not where a queue on the way loses parts of them (StreamRoute::cuts_trains). Within this machine a train is
/// sent and received, on sockets of its own. To others nothing is sent: the kernel has to know trains, and the
/// interface of the route to complete checksums, without which many kernels refuse trains. What tunnels and
/// encryption on the way think of them shows with the first train (BatchResult::train_refused).
/// Returns false also when there is no socket for the trial.
bool SegmentationWorks(const StreamRoute& route) noexcept;

}  // namespace Tarn
