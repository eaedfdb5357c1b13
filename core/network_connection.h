#pragma once

/// One end of a network connection, as users see it.

#include <cstdint>
#include <string>

namespace Tarn {

/// IPv4 address as dotted text, and UDP port; "192.168.0.1:3956" as text. The text is kept as given.
struct NetworkConnection {
  std::string address = "0.0.0.0";
  std::uint16_t port = 0;

  friend bool operator==(const NetworkConnection&, const NetworkConnection&) = default;

  std::string ToString() const { return address + ':' + std::to_string(port); }
};

}  // namespace Tarn
