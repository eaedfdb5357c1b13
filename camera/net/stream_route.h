#pragma once

/// What the packets of a stream leave through.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "camera/net/link_chain.h"

namespace Tarn {

struct StreamRoute {
  std::uint32_t source = 0;       ///< address of this machine, host order
  std::uint32_t destination = 0;  ///< host order
  std::string interface;          ///< that the route to the destination uses, "eth0.5"
  unsigned index = 0;             ///< the system's number for it
  unsigned mtu = 0;    ///< of the route, bytes: the interface's, or less where the route has its own
  std::string device;  ///< what the interface stands on: itself, or the link below VLANs, bonds, macvlans
  unsigned speed_mbit = 0;    ///< of that device; 0 when unknown, and without hardware
  bool up = false;            ///< up and with carrier, from the interface down to the device
  bool local = false;         ///< the destination is an address of this machine
  bool hardware = false;      ///< the device is hardware, or what a hypervisor shows as such
  bool kernel_paces = false;  ///< the queues on the way send at a socket's pacing rate
  bool cuts_trains = false;   ///< one of them cuts trains itself, and loses parts of them without a word
};

/// The route that packets from `local_address` to `destination` take at present, both in host order; groups
/// and 255.255.255.255 are reached through the interface that has `local_address`. Empty when there is none.
/// Reads nothing below /sys, which in containers tells about other interfaces of the same names.
/// Threads: any; sees the calling thread's network namespace. May wait for the kernel while links change.
/// Throws: std::system_error when the kernel cannot be asked.
std::optional<StreamRoute> RouteOf(std::uint32_t local_address, std::uint32_t destination);

/// The route to those in the own network of the interface that has `local_address`, before anybody in it is known.
/// Threads: as RouteOf.
/// Throws: as RouteOf.
std::optional<StreamRoute> RouteOutOf(std::uint32_t local_address);

/// The same as far as the links and queues on the way tell it.
/// \param chain  as LinkChain gives it, not empty
StreamRoute DescribeRoute(const std::vector<LinkRecord>& chain, const std::vector<QueueRecord>& queues);

}  // namespace Tarn
