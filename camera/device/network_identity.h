#pragma once

/// What the interface with the device's address tells about it.

#include <cstdint>

#include "camera/engine/features/power_on_values.h"

namespace Tarn {

/// The facts about the interface that has `address`. Devices that share an interface get MAC addresses of
/// their own: clients tell devices apart by them.
/// Throws: std::system_error when the interfaces cannot be listed. An address that no interface has gives
/// defaults; binding it fails later with the system's reason.
NetworkIdentity IdentifyNetwork(std::uint32_t address);

/// Throws: EngineError kInvalidArgument for an address on which no device can be: 0.0.0.0, broadcast
/// addresses, multicast groups, and what is reserved.
void RequireHostAddress(std::uint32_t address);

}  // namespace Tarn
