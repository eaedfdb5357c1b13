#pragma once

/// What stands in the device's registers when it is made, and when it starts.

#include <cstddef>
#include <cstdint>
#include <string>

#include "camera/engine/memory/sparse_memory.h"
#include "camera/engine/registers/bootstrap_rules.h"

namespace Tarn {

/// What one network interface gives a device.
struct NetworkIdentity {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  std::uint32_t gateway = 0;
  std::uint64_t mac = 0;              ///< 48 bits
  std::uint32_t link_speed = 0;       ///< Mbit/s; 0: unknown
  std::uint32_t max_packet_size = 0;  ///< bytes with IP header
};

/// Text into a register of `length` bytes, cropped between characters so that a terminating zero remains.
void StoreText(SparseMemory& memory, std::uint32_t address, std::size_t length, const std::string& text);

/// The longest beginning of a UTF-8 text that has at most `max` bytes and ends between characters.
std::string Cropped(const std::string& text, std::size_t max);

/// Version of this library; heads the device version register.
extern const char* const kLibraryVersion;

/// Registers whose content does not depend on the network: version, texts, capabilities, timing.
void FillConstants(SparseMemory& memory, bool has_stream);

/// Speed of the link, and the rate of the stream that goes with it.
/// \param mbit  per second; 0: unknown
void FillLinkSpeed(SparseMemory& memory, std::uint32_t mbit);

/// Addresses, MAC, serial number, link speed, packet size, capabilities.
void FillNetwork(SparseMemory& memory, const NetworkIdentity& network, const BootstrapProfile& profile);

}  // namespace Tarn
