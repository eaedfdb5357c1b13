#pragma once

/// The machine's network interfaces, as far as they have IPv4 addresses.

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace Tarn {

/// One IPv4 address of an interface; an interface with several has several records. Addresses in host order.
struct Interface {
  std::string name;    ///< the system's, "eth0"
  unsigned index = 0;  ///< the system's number for it
  std::uint32_t address = 0;
  std::uint32_t netmask = 0;
  std::uint32_t broadcast = 0;  ///< directed broadcast of the subnet; 0 when there is none
  std::uint32_t gateway = 0;    ///< default gateway behind this interface; 0 when there is none
  std::array<std::uint8_t, 6> mac{};
  unsigned mtu = 0;  ///< bytes
  bool up = false;
  bool loopback = false;

  bool Contains(std::uint32_t other) const noexcept { return ((other ^ address) & netmask) == 0; }
};

/// The interfaces at the moment of reading, in the system's order.
/// Threads: immutable; any thread.
class InterfaceList {
 public:
  static constexpr std::uint32_t kHandleKind = 0x494C5354;  // "ILST"

  /// Reads the present state.
  /// Throws: std::system_error.
  InterfaceList();

  const std::vector<Interface>& All() const noexcept { return all_; }

  /// The interface that owns `address`, or the loopback interface whose subnet contains it (all of
  /// 127.0.0.0/8 is this machine); null when the address is not ours.
  /// Owns: nothing; valid while the list lives.
  const Interface* InterfaceFor(std::uint32_t address) const noexcept;

 private:
  std::vector<Interface> all_;
};

/// The default gateway behind an interface by the system's routing table, 0 for none.
/// \param table  text in the form of /proc/net/route
std::uint32_t DefaultGateway(std::istream& table, std::string_view interface);

}  // namespace Tarn
