#include "camera/net/interface_list.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>

#include "camera/net/owned_fd.h"

namespace Tarn {
namespace {

using IfAddrs = std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)>;

IfAddrs ReadIfAddrs() {
  ifaddrs* first = nullptr;
  if (::getifaddrs(&first) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot list the network interfaces");
  }
  return {first, ::freeifaddrs};
}

/// A copy, since the pointer's type says nothing about the object behind it.
template <class Address>
Address CopyAs(const sockaddr* address) {
  Address copy{};
  std::memcpy(&copy, address, sizeof copy);
  return copy;
}

std::uint32_t Ipv4(const sockaddr* address) {
  return address == nullptr ? 0 : ntohl(CopyAs<sockaddr_in>(address).sin_addr.s_addr);
}

std::array<std::uint8_t, 6> MacOf(const std::string& name, const ifaddrs* first) {
  std::array<std::uint8_t, 6> mac{};
  for (const ifaddrs* i = first; i != nullptr; i = i->ifa_next) {
    if (i->ifa_addr == nullptr || i->ifa_addr->sa_family != AF_PACKET || name != i->ifa_name) continue;
    const auto link = CopyAs<sockaddr_ll>(i->ifa_addr);
    if (link.sll_halen == mac.size()) std::copy_n(link.sll_addr, mac.size(), mac.begin());
  }
  return mac;
}

unsigned MtuOf(const std::string& name) {
  const OwnedFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  name.copy(request.ifr_name, sizeof request.ifr_name - 1);
  if (!socket || ::ioctl(socket.Get(), SIOCGIFMTU, &request) != 0) return 0;
  return static_cast<unsigned>(request.ifr_mtu);
}

/// The subnet's last address, which the system routes as broadcast on every interface, loopback included, and
/// whether or not a broadcast address was configured. Subnets of one or two addresses have none.
std::uint32_t BroadcastOf(const Interface& made) {
  return made.netmask >= 0xFFFF'FFFE ? 0 : made.address | ~made.netmask;
}

Interface Describe(const ifaddrs& entry, const ifaddrs* first) {
  Interface made;
  const std::string_view label = entry.ifa_name;
  made.name = label.substr(0, label.find(':'));  // a second address may be labelled "eth0:1"
  made.index = ::if_nametoindex(made.name.c_str());
  made.address = Ipv4(entry.ifa_addr);
  made.netmask = Ipv4(entry.ifa_netmask);
  made.up = (entry.ifa_flags & IFF_UP) != 0;
  made.loopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
  made.broadcast = BroadcastOf(made);
  made.mac = MacOf(made.name, first);
  made.mtu = MtuOf(made.name);
  std::ifstream routes("/proc/net/route");
  made.gateway = DefaultGateway(routes, made.name);
  return made;
}

}  // namespace

InterfaceList::InterfaceList() {
  const IfAddrs entries = ReadIfAddrs();
  for (const ifaddrs* i = entries.get(); i != nullptr; i = i->ifa_next) {
    if (i->ifa_addr != nullptr && i->ifa_addr->sa_family == AF_INET)
      all_.push_back(Describe(*i, entries.get()));
  }
}

const Interface* InterfaceList::InterfaceFor(std::uint32_t address) const noexcept {
  auto found = std::ranges::find(all_, address, &Interface::address);
  if (found == all_.end()) {
    found = std::ranges::find_if(all_, [&](const Interface& i) { return i.loopback && i.Contains(address); });
  }
  return found == all_.end() ? nullptr : &*found;
}

std::uint32_t DefaultGateway(std::istream& table, std::string_view interface) {
  std::uint32_t gateway = 0;
  unsigned long best_metric = std::numeric_limits<unsigned long>::max();
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string name;
    // Addresses stand there in hexadecimal, as the memory of network order reads as a number of this machine.
    std::uint32_t destination = 0, via = 0, mask = 0;
    unsigned long flags = 0, references = 0, uses = 0, metric = 0;
    fields >> name >> std::hex >> destination >> via >> flags >> std::dec >> references >> uses >> metric >>
        std::hex >> mask;
    if (!fields || name != interface || destination != 0 || mask != 0 || via == 0 || metric >= best_metric)
      continue;
    best_metric = metric;
    gateway = ntohl(via);
  }
  return gateway;
}

}  // namespace Tarn
