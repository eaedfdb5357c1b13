#pragma once

/// Which of the standard's registers a device has, and what becomes of a client's write to one of them.

#include <cstdint>
#include <optional>

#include "camera/base/bytes.h"
#include "camera/base/endpoint.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// What the device can do, fixed while it runs.
struct BootstrapProfile {
  bool has_stream = false;
  std::uint32_t max_packet_size = 1500;  ///< bytes with IP and UDP headers; what the interface carries
  bool resends = false;                  ///< packets can be asked for again
  bool heartbeat_can_end = true;         ///< clients may switch the heartbeat off
};

/// Limits of the stream packet size register.
/// Source: clients probe from 220 up in steps of 4; below, a leader does not fit comfortably.
inline constexpr std::uint32_t kMinPacketSize = 220;
inline constexpr std::uint32_t kPacketSizeStep = 4;

/// Shortest heartbeat timeout, milliseconds; shorter ones are stored as this.
/// Source: GigE Vision, heartbeat timeout register.
inline constexpr std::uint32_t kMinHeartbeatTimeout = 500;

/// Longest wait before a discovery is answered, milliseconds; longer ones are stored as this.
/// Source: GigE Vision, discovery acknowledge delay register.
inline constexpr std::uint32_t kMaxDiscoveryDelay = 1000;

/// Facts of the moment that decide about a write.
struct WriteContext {
  Endpoint controller;     ///< who writes; only the client in control gets here
  bool streaming = false;  ///< acquisition is on
};

/// What becomes of a write: refused, or stored as `value`.
struct BootstrapWrite {
  WireStatus status = WireStatus::Success;
  std::uint32_t value = 0;
};

/// Whether a register or text of this device has its word at `address`.
bool BootstrapExists(std::uint32_t address, const BootstrapProfile& profile);
/// As above, for reads of whole memory blocks: the holes inside the discovery block read as zero.
bool BootstrapReadableInBlock(std::uint32_t address, const BootstrapProfile& profile);

/// Zeroes what clients may write but not read, within bytes that were taken from `address` on.
void BlankWriteOnly(std::uint32_t address, MutableByteView bytes);

/// Decides about a write of `value` to the word at `address`, which now holds `old`. The privilege register
/// is not decided here.
BootstrapWrite DecideBootstrapWrite(std::uint32_t address, std::uint32_t value, std::uint32_t old,
                                    const BootstrapProfile& profile, const WriteContext& context);

/// Whether the client on `controller` may have data sent to `address`: only its own address or a multicast
/// group, so that nobody can be flooded by somebody else's wish. 0 is no destination and allowed. The groups of
/// 224.0.0.0/24 are those of the network's own protocols, and reach every host of the link.
bool IsAllowedDestination(std::uint32_t address, std::uint32_t controller);

/// The nearest usable packet size.
std::uint32_t UsablePacketSize(std::uint32_t size, const BootstrapProfile& profile);

}  // namespace Tarn
