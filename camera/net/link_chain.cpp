#include "camera/net/link_chain.h"

#include <linux/if_link.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace Tarn {
namespace {

// Source: Linux, <linux/if.h>, whose names collide with those of <net/if.h>.
constexpr unsigned kLowerUp = 1u << 16;

// Source: Linux, MAX_NEST_DEV; also ends a circle, which records of a list read during a change might show.
constexpr std::size_t kMaxChain = 8;

constexpr std::array<std::string_view, 5> kOnOneLower{"vlan", "macvlan", "macvtap", "ipvlan", "ipvtap"};
constexpr std::array<std::string_view, 2> kOnSeveral{"bond", "team"};

// Source: Linux, the callers of skb_gso_segment in net/sched.
constexpr std::array<std::string_view, 4> kTrainCutters{"tbf", "cake", "netem", "taprio"};

template <std::size_t N>
bool IsOneOf(const std::array<std::string_view, N>& kinds, const std::string& kind) {
  return std::ranges::find(kinds, kind) != kinds.end();
}

const LinkRecord* PortOf(const std::vector<LinkRecord>& links, const LinkRecord& bond) {
  const LinkRecord* best = nullptr;
  for (const LinkRecord& link : links) {
    if (link.master != bond.index) continue;
    if (link.index == bond.active_port) return &link;
    if (!best || (link.up && !best->up)) best = &link;
  }
  return best;
}

const LinkRecord* LinkAt(const std::vector<LinkRecord>& links, unsigned index) {
  const auto found = std::ranges::find(links, index, &LinkRecord::index);
  return found == links.end() ? nullptr : &*found;
}

const LinkRecord* Below(const std::vector<LinkRecord>& links, const LinkRecord& link) {
  if (IsOneOf(kOnSeveral, link.kind)) return PortOf(links, link);
  return IsOneOf(kOnOneLower, link.kind) ? LinkAt(links, link.lower) : nullptr;
}

}  // namespace

LinkRecord ReadLink(ByteView message) {
  const auto front = FrontOf<ifinfomsg>(message);
  const auto attributes = NetlinkAttributes::Behind<ifinfomsg>(message);
  const NetlinkAttributes info = attributes.List(IFLA_LINKINFO);
  // Running also means that a port which the switch has to admit first was admitted.
  constexpr unsigned kUp = unsigned{IFF_UP} | unsigned{IFF_RUNNING} | kLowerUp;
  LinkRecord link;
  link.index = static_cast<unsigned>(front.ifi_index);
  link.name = attributes.Text(IFLA_IFNAME);
  link.kind = info.Text(IFLA_INFO_KIND);
  if (!attributes.Find(IFLA_LINK_NETNSID)) link.lower = attributes.Number(IFLA_LINK);
  link.master = attributes.Number(IFLA_MASTER);
  if (link.kind == "bond") link.active_port = info.List(IFLA_INFO_DATA).Number(IFLA_BOND_ACTIVE_SLAVE);
  link.mtu = attributes.Number(IFLA_MTU);
  link.up = (front.ifi_flags & kUp) == kUp;
  link.has_parent = attributes.Find(IFLA_PARENT_DEV_NAME).has_value();
  return link;
}

std::vector<LinkRecord> ReadLinks(NetlinkSocket& kernel) {
  NetlinkRequest request(RTM_GETLINK, NLM_F_DUMP, ifinfomsg{});
  request.Add(IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  std::vector<LinkRecord> links;
  kernel.Ask(request, [&](ByteView message) { links.push_back(ReadLink(message)); });
  return links;
}

std::vector<QueueRecord> ReadQueues(NetlinkSocket& kernel) {
  std::vector<QueueRecord> queues;
  kernel.Ask(NetlinkRequest(RTM_GETQDISC, NLM_F_DUMP, tcmsg{}), [&](ByteView message) {
    const auto front = FrontOf<tcmsg>(message);
    queues.push_back({static_cast<unsigned>(front.tcm_ifindex), front.tcm_handle, front.tcm_parent,
                      NetlinkAttributes::Behind<tcmsg>(message).Text(TCA_KIND)});
  });
  return queues;
}

std::vector<LinkRecord> LinkChain(const std::vector<LinkRecord>& links, unsigned index) {
  std::vector<LinkRecord> chain;
  for (const LinkRecord* at = LinkAt(links, index); at && chain.size() < kMaxChain; at = Below(links, *at)) {
    chain.push_back(*at);
  }
  return chain;
}

bool QueueCutsTrains(const std::vector<QueueRecord>& queues, unsigned link) {
  return std::ranges::any_of(queues, [link](const QueueRecord& queue) {
    return queue.link == link && IsOneOf(kTrainCutters, queue.kind);
  });
}

bool QueuePaces(const std::vector<QueueRecord>& queues, unsigned link) {
  const auto is_root = [&](const QueueRecord& queue) {
    return queue.link == link && queue.parent == TC_H_ROOT;
  };
  const auto root = std::ranges::find_if(queues, is_root);
  if (root == queues.end()) return false;
  if (root->kind == "fq") return true;
  if (root->kind != "mq") return false;
  // One for each of the card's queues.
  std::size_t children = 0;
  for (const QueueRecord& queue : queues) {
    if (queue.link != link || TC_H_MAJ(queue.parent) != TC_H_MAJ(root->handle)) continue;
    if (queue.kind != "fq") return false;
    ++children;
  }
  return children != 0;
}

}  // namespace Tarn
