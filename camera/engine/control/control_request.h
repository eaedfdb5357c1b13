#pragma once

/// A datagram that came in on the control port.

#include "camera/base/bytes.h"
#include "camera/base/clock.h"
#include "camera/base/endpoint.h"

namespace Tarn {

struct ControlRequest {
  ByteView bytes;
  Endpoint source;
  bool broadcast = false;  ///< was sent to a broadcast address
  Instant arrival;         ///< when the system received it
};

}  // namespace Tarn
