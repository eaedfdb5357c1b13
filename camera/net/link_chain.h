#pragma once

/// Links and queues as the kernel lists them, and which link stands on which.

#include <cstdint>
#include <string>
#include <vector>

#include "camera/net/netlink.h"

namespace Tarn {

struct LinkRecord {
  unsigned index = 0;
  std::string name;
  std::string kind;     ///< of virtual links, "vlan", "bond", "veth"; mostly empty for hardware
  unsigned lower = 0;   ///< what it stands on, or the other end of a pair; 0 none, or not in this namespace
  unsigned master = 0;  ///< the bond or bridge that it is part of
  unsigned active_port = 0;  ///< of a bond that uses one at a time
  unsigned mtu = 0;          ///< bytes
  bool up = false;           ///< administratively up, and with carrier
  bool has_parent = false;   ///< a device on a bus is behind it
};

/// A queueing discipline.
struct QueueRecord {
  unsigned link = 0;  ///< index
  std::uint32_t handle = 0;
  std::uint32_t parent = 0;
  std::string kind;
};

/// All links, or queues, of the socket's namespace.
/// Throws: std::system_error.
std::vector<LinkRecord> ReadLinks(NetlinkSocket& kernel);
std::vector<QueueRecord> ReadQueues(NetlinkSocket& kernel);

/// One link from the kernel's message about it.
LinkRecord ReadLink(ByteView message);

/// From a link down to the one at the bottom, both included: VLANs, macvlans and the like are followed to
/// their lower link, bonds to the port in use, or else to the first that is up, or to the first. Bridges end
/// it, and links whose lower one is in another namespace. Empty when there is no such link.
std::vector<LinkRecord> LinkChain(const std::vector<LinkRecord>& links, unsigned index);

/// Whether one of the link's queueing disciplines cuts trains itself. Such a one takes a train of which it has room
/// for the first packet, and drops the rest without a word.
bool QueueCutsTrains(const std::vector<QueueRecord>& queues, unsigned link);

/// Whether the link's queueing discipline sends a socket's packets at the socket's pacing rate.
bool QueuePaces(const std::vector<QueueRecord>& queues, unsigned link);

}  // namespace Tarn
