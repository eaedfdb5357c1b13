#include "camera/net/stream_route.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <system_error>

#include <algorithm>

#include "camera/net/ethtool.h"

namespace Tarn {
namespace {

struct RouteRecord {
  unsigned interface = 0;
  unsigned mtu = 0;  // 0: the interface's
  bool local = false;
};

/// Empty when the kernel knows none, or when `source` is no address of ours.
std::optional<RouteRecord> FindRoute(NetlinkSocket& kernel, std::uint32_t source, std::uint32_t destination) {
  rtmsg front{};
  front.rtm_family = AF_INET;
  front.rtm_dst_len = front.rtm_src_len = 32;
  NetlinkRequest request(RTM_GETROUTE, 0, front);
  request.Add(RTA_DST, htonl(destination));
  request.Add(RTA_SRC, htonl(source));
  std::optional<RouteRecord> route;
  try {
    kernel.Ask(request, [&](ByteView message) {
      const auto attributes = NetlinkAttributes::Behind<rtmsg>(message);
      route = {attributes.Number(RTA_OIF), attributes.List(RTA_METRICS).Number(RTAX_MTU),
               FrontOf<rtmsg>(message).rtm_type == RTN_LOCAL};
    });
  } catch (const std::system_error& e) {
    // What unreachable, prohibiting and swallowing routes answer, and a source that is not ours.
    for (const int none : {ENETUNREACH, EHOSTUNREACH, ENETDOWN, EACCES, EINVAL}) {
      if (e.code().value() == none) return std::nullopt;
    }
    throw;
  }
  return route;
}

/// Kernels before 5.14 do not list what is behind a link. Virtual ones have a kind.
bool IsPluggedIn(const LinkRecord& link) { return link.kind.empty() && !BusAddressOf(link.name).empty(); }

}  // namespace

StreamRoute DescribeRoute(const std::vector<LinkRecord>& chain, const std::vector<QueueRecord>& queues) {
  StreamRoute route;
  route.interface = chain.front().name;
  route.index = chain.front().index;
  route.mtu = chain.front().mtu;
  route.device = chain.back().name;
  route.hardware = chain.back().has_parent;
  route.up = std::ranges::all_of(chain, &LinkRecord::up);
  for (const LinkRecord& link : chain) {
    // A packet belongs to its socket in all of them.
    route.kernel_paces = route.kernel_paces || QueuePaces(queues, link.index);
    route.cuts_trains = route.cuts_trains || QueueCutsTrains(queues, link.index);
  }
  return route;
}

std::optional<StreamRoute> RouteOf(std::uint32_t local_address, std::uint32_t destination) {
  NetlinkSocket kernel;
  const std::optional<RouteRecord> found = FindRoute(kernel, local_address, destination);
  if (!found) return std::nullopt;
  const std::vector<LinkRecord> chain = LinkChain(ReadLinks(kernel), found->interface);
  if (chain.empty()) return std::nullopt;  // gone meanwhile
  StreamRoute route = DescribeRoute(chain, ReadQueues(kernel));
  route.source = local_address;
  route.destination = destination;
  if (found->mtu != 0) route.mtu = std::min(route.mtu, found->mtu);
  route.local = found->local;
  route.hardware = route.hardware || IsPluggedIn(chain.back());
  if (route.hardware) route.speed_mbit = LinkSpeedOf(route.device);
  return route;
}

std::optional<StreamRoute> RouteOutOf(std::uint32_t local_address) {
  constexpr std::uint32_t kGroup = 0xEFFF'0001;  // any: groups are reached through the address's interface
  return RouteOf(local_address, kGroup);
}

}  // namespace Tarn
