#pragma once

/// How a stream channel is opened, what it counts, and what it answers.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "camera/device/frame_observer.h"

namespace Tarn {

/// How packets leave. The numbers are those of the C interface; Auto is a request only.
enum class StreamDriver : std::int32_t {
  Auto = -1,
  Socket = 0,  ///< one datagram per packet
  Filter = 1,  ///< the kernel cuts trains of equal packets
};

/// What becomes of the packets.
enum class StreamState : std::uint32_t {
  Closed = 0,       ///< no client takes the stream
  Open = 1,         ///< the system takes them
  NoLink = 2,       ///< the interface is down or has no carrier
  NoRoute = 3,      ///< no way leads to the destination, or the own address is gone
  Refused = 4,      ///< a firewall of this host forbids it
  Unreachable = 5,  ///< the network reports that nobody takes them
  Failing = 6,      ///< the system does not take them, for another reason
};

/// Constant while a channel is open.
struct StreamOptions {
  std::uint32_t local_address = 0;  ///< packets leave from it
  StreamDriver driver = StreamDriver::Auto;
  std::size_t resend_depth = 0;  ///< sent blocks kept for resends; 0: none, and no resends
  std::shared_ptr<FrameObserver> observer = nullptr;
};

enum class SendResult {
  Accepted,       ///< the owner was told or will be, once
  NotRunning,     ///< acquisition is off
  NoDestination,  ///< no client opened the channel
  TooLarge,       ///< more packets than packet ids
  NoPlace,        ///< as many images as there are places for are still to be sent
  Closed,
};

/// Since the channel was opened. Frames count blocks all of whose packets the system took; packets and bytes (UDP payload)
/// include resends.
struct StreamCounters {
  std::uint64_t frames = 0;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  std::uint64_t resent_packets = 0;
  std::uint64_t failed_sends = 0;      ///< datagrams that the system refused
  std::uint64_t dropped_blocks = 0;    ///< accepted, but not sent whole
  std::uint64_t unreachable = 0;       ///< reports that nobody takes the packets
  std::uint64_t queue_full = 0;        ///< times that a queue of the host had no room
  std::uint64_t refused_images = 0;    ///< for want of a place
  std::uint64_t dropped_requests = 0;  ///< for packets, because too many waited
};

}  // namespace Tarn
