#pragma once

/// Who the device says it is: names in its texts, numbers from the interface it is bound to.

#include <cstdint>
#include <string>

#include "camera/engine/memory/sparse_memory.h"

namespace Tarn {

/// What one network interface gives a device.
struct NetworkIdentity {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  std::uint32_t gateway = 0;
  std::uint64_t mac = 0;              ///< 48 bits
  std::uint32_t link_speed = 0;       ///< Mbit/s; 0: unknown
  std::uint32_t max_packet_size = 0;  ///< bytes with IP header
  bool hardware = false;              ///< neither loopback nor virtual
};

/// The facts about the interface that has `address`. Devices that share an interface get MAC addresses of
/// their own: clients tell devices apart by them.
/// Throws: std::system_error when the interfaces cannot be listed. An address that no interface has gives
/// defaults; binding it fails later with the system's reason.
NetworkIdentity IdentifyNetwork(std::uint32_t address);

/// Throws: EngineError kInvalidArgument for an address on which no device can be: 0.0.0.0, broadcast
/// addresses, multicast groups, and what is reserved.
void RequireHostAddress(std::uint32_t address);

/// Text into a register of `length` bytes, cropped between characters so that a terminating zero remains.
void StoreText(SparseMemory& memory, std::uint32_t address, std::size_t length, const std::string& text);

/// The longest beginning of a UTF-8 text that has at most `most` bytes and ends between characters.
std::string Cropped(const std::string& text, std::size_t most);

/// Version of this library; heads the device version register.
extern const char* const kLibraryVersion;

/// Registers whose content does not depend on the network: version, texts, capabilities, timing.
void FillConstants(SparseMemory& memory, bool has_stream);

/// Addresses, MAC, serial number, link speed, packet size; the state of the control and stream registers at
/// start.
void FillNetwork(SparseMemory& memory, const NetworkIdentity& network, bool has_stream, bool resend);

}  // namespace Tarn
