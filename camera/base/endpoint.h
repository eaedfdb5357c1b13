#pragma once

/// An IPv4 address and UDP port.

#include <compare>
#include <cstdint>
#include <string>

namespace Tarn {

/// Both numbers in host order; 0.0.0.0:0 means none.
struct Endpoint {
  std::uint32_t address = 0;
  std::uint16_t port = 0;

  friend auto operator<=>(const Endpoint&, const Endpoint&) = default;
};

/// "192.168.0.1": most significant byte first.
inline std::string DottedAddress(std::uint32_t address) {
  return std::to_string(address >> 24) + '.' + std::to_string(address >> 16 & 255) + '.' +
         std::to_string(address >> 8 & 255) + '.' + std::to_string(address & 255);
}

}  // namespace Tarn
