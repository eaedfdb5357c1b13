#pragma once

/// What the client's registers say about the stream, and what it asks to have sent again.

#include <cstdint>

#include "camera/base/endpoint.h"
#include "camera/base/thread_control.h"
#include "camera/engine/stream/pacing.h"

namespace Tarn {

/// Settings of one stream channel. A block is sent with one of these from leader to trailer, its pace excepted.
struct StreamConfig {
  Endpoint destination;              ///< SCDA and SCP; incomplete (address or port 0): nothing is sent
  std::uint16_t packet_size = 1500;  ///< bytes on the wire with IP, UDP and stream headers
  bool dont_fragment = false;        ///< the IP don't-fragment bit on every packet
  bool extended_ids = false;         ///< 64-bit block ids and the long header
  bool extended_status = false;      ///< resends and refusals carry the newer status codes
  bool resend_to_requester = false;  ///< resends go where the request came from, not to `destination`
  std::uint32_t resend_client = 0;   ///< only requests from this address are served
  Pace pace;                         ///< the most that is allowed; holds within blocks too
  bool adaptive_rate = false;        ///< within the pace, the stream finds its rate itself (RateControl)

  ThreadSchedule schedule;  ///< of the thread that sends

  bool HasDestination() const noexcept { return destination.address != 0 && destination.port != 0; }
  friend bool operator==(const StreamConfig&, const StreamConfig&) = default;
};

/// Packets `first` to `last` of a block, asked for by `requester`.
struct ResendRequest {
  Endpoint requester;
  std::uint64_t block_id = 0;
  std::uint32_t first = 0;
  std::uint32_t last =
      0;  ///< the largest value of the id's width, or any id beyond the trailer: to the trailer
  bool extended = false;  ///< the request used 64-bit ids
};

}  // namespace Tarn
