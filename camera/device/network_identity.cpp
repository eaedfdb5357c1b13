#include "camera/device/network_identity.h"

#include <algorithm>

#include "camera/base/endpoint.h"
#include "camera/base/engine_error.h"
#include "camera/net/interface_list.h"
#include "camera/net/stream_route.h"

namespace Tarn {
namespace {

// Source: the field is 16 bits wide, and a common viewer fails above 16000.
constexpr std::uint32_t kLargestPacket = 16000;
constexpr std::uint32_t kDefaultPacket = 1500;

/// A MAC address that nobody else on this host has: the address in a locally administered one.
/// Source: IEEE 802, bit 1 of the first byte marks locally administered addresses.
std::uint64_t DerivedMac(std::uint32_t address) { return 0x0254'0000'0000u | address; }

std::uint64_t MacNumber(const std::array<std::uint8_t, 6>& mac) {
  std::uint64_t number = 0;
  for (const std::uint8_t byte : mac) number = number << 8 | byte;
  return number;
}

/// True for the last address of a network that an interface is in.
bool IsSubnetBroadcast(std::uint32_t address) {
  const InterfaceList list;
  return std::ranges::any_of(list.All(), [address](const Interface& interface) {
    return address == interface.broadcast && address != interface.address;
  });
}

}  // namespace

NetworkIdentity IdentifyNetwork(std::uint32_t address) {
  NetworkIdentity network;
  network.address = address;
  network.mac = DerivedMac(address);
  network.max_packet_size = kDefaultPacket;
  const InterfaceList list;
  const Interface* interface = list.InterfaceFor(address);
  if (!interface) return network;
  network.mask = interface->netmask;
  network.gateway = interface->gateway;
  if (const auto route = RouteOutOf(address)) network.link_speed = route->speed_mbit;
  network.max_packet_size = std::min<std::uint32_t>(interface->mtu, kLargestPacket);
  const auto first = std::ranges::find(list.All(), interface->name, &Interface::name);
  if (MacNumber(interface->mac) != 0 && first->address == address) network.mac = MacNumber(interface->mac);
  return network;
}

void RequireHostAddress(std::uint32_t address) {
  const auto refuse = [address](const char* what) {
    throw EngineError(Failure::kInvalidArgument, DottedAddress(address) + " is " + what +
                                                     ": a server is started on the address of one interface");
  };
  if (address == 0) refuse("every address of the host");
  if (address == 0xFFFF'FFFF || IsSubnetBroadcast(address)) refuse("a broadcast address");
  if (address >> 28 == 0xE) refuse("a multicast group");
  if (address >> 28 == 0xF) refuse("a reserved address");
}

}  // namespace Tarn
