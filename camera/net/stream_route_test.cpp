#include "camera/net/stream_route.h"

#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "camera/net/link_watch.h"
#include "camera/net/network_namespace_fixture.h"
#include "camera/net/poller.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kLoopback = 0x7F00'0001;
constexpr std::uint32_t kOwn = 0x0A09'0001;  // 10.9.0.1

TEST(StreamRoute, FollowsVirtualLinksDown) {
  //                                 index name     kind     lower master active mtu  up    parent
  const std::vector<LinkRecord> links{{1, "lo", "", 0, 0, 0, 65536, true, false},
                                      {2, "eth0", "", 0, 7, 0, 9000, false, true},
                                      {3, "eth1", "", 0, 7, 0, 9000, true, true},
                                      {4, "eth2", "", 0, 8, 0, 9000, true, true},
                                      {5, "eth3", "", 0, 8, 0, 9000, true, true},
                                      {6, "eth4", "", 0, 9, 0, 9000, true, true},
                                      {7, "bond0", "bond", 0, 0, 0, 9000, true, false},
                                      {8, "bond1", "bond", 0, 0, 5, 9000, true, false},
                                      {9, "br0", "bridge", 0, 0, 0, 1500, true, false},
                                      {10, "bond0.5", "vlan", 7, 0, 0, 1500, true, false},
                                      {11, "mac0", "macvlan", 10, 0, 0, 1400, false, false},
                                      {12, "br0.5", "vlan", 9, 0, 0, 1500, true, false},
                                      {13, "v0", "veth", 2, 0, 0, 1500, true, false},
                                      {14, "away", "macvlan", 0, 0, 0, 1500, true, false},
                                      {15, "ring", "vlan", 15, 0, 0, 1500, true, false},
                                      {16, "empty", "bond", 0, 0, 0, 1500, false, false}};
  // index handle parent kind; the last card has two queues, one of which does not pace.
  constexpr std::uint32_t kRoot = TC_H_ROOT;
  const std::vector<QueueRecord> queues{{3, 0, kRoot, "mq"},
                                        {3, 0, 1, "fq"},
                                        {3, 0, 2, "fq"},
                                        {4, 0x10000, kRoot, "fq"},
                                        {5, 0, kRoot, "mq"},
                                        {5, 0, 1, "fq"},
                                        {5, 0, 2, "pfifo_fast"},
                                        {6, 0, kRoot, "fq_codel"},
                                        {8, 0, kRoot, "noqueue"},
                                        {9, 0x10000, kRoot, "htb"},
                                        {9, 0x20000, 0x10001, "tbf"}};
  const struct {
    unsigned index;
    const char* device;
    bool up, hardware, paces;
  } rows[] = {
      {1, "lo", true, false, false},      {2, "eth0", false, true, false},  {4, "eth2", true, true, true},
      {7, "eth1", true, true, true},      {8, "eth3", true, true, false},   {9, "br0", true, false, false},
      {10, "eth1", true, true, true},     {11, "eth1", false, true, true},  {12, "br0", true, false, false},
      {13, "v0", true, false, false},     {14, "away", true, false, false}, {15, "ring", true, false, false},
      {16, "empty", false, false, false},
  };
  for (const auto& row : rows) {
    const StreamRoute route = DescribeRoute(LinkChain(links, row.index), queues);
    EXPECT_EQ(route.index, row.index);
    EXPECT_EQ(route.device, row.device) << route.interface;
    EXPECT_EQ(route.up, row.up) << route.interface;
    EXPECT_EQ(route.hardware, row.hardware) << route.interface;
    EXPECT_EQ(route.kernel_paces, row.paces) << route.interface;
    EXPECT_EQ(route.cuts_trains, route.device == "br0") << route.interface;
  }
  EXPECT_TRUE(LinkChain(links, 17).empty());
}

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/// An attribute with its content, as the kernel lays it out.
Bytes Attribute(unsigned type, const Bytes& content) {
  const auto byte = [](std::size_t value) { return static_cast<std::uint8_t>(value); };
  Bytes bytes = Bytes{byte(content.size() + 4), 0, byte(type), byte(type >> 8)} + content;
  bytes.resize((bytes.size() + 3) & ~std::size_t{3});
  return bytes;
}

TEST(StreamRoute, ReadsLinksThatThisMachineMayNotHave) {
  const Bytes active = Attribute(IFLA_BOND_ACTIVE_SLAVE, {4, 0, 0, 0});
  const Bytes info = Attribute(IFLA_INFO_KIND, {'b', 'o', 'n', 'd', 0});
  const Bytes message =
      Bytes(sizeof(ifinfomsg)) + Attribute(IFLA_IFNAME, {'b', '0', 0}) + Attribute(IFLA_LINK, {9, 0, 0, 0}) +
      Attribute(IFLA_LINK_NETNSID, {1, 0, 0, 0}) +
      Attribute(NLA_F_NESTED | IFLA_LINKINFO, info + Attribute(NLA_F_NESTED | IFLA_INFO_DATA, active)) +
      Attribute(IFLA_PARENT_DEV_NAME, {'p', 'c', 'i', 0});
  const LinkRecord link = ReadLink(message);
  EXPECT_EQ(link.name, "b0");
  EXPECT_EQ(link.kind, "bond");
  EXPECT_EQ(link.active_port, 4u);
  EXPECT_EQ(link.lower, 0u) << "in another namespace";
  EXPECT_TRUE(link.has_parent);
  for (std::size_t size = 0; size < message.size(); ++size) {
    const Bytes cut(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(ReadLink(cut).has_parent) << size;  // and reads nothing beyond
  }
}

TEST(StreamRoute, LeavesThroughTheInterfaceOfTheSource) {
  // Called as the hardware of many hosts, whose /sys the namespace still shows.
  InNetwork(
      "ip link add eth0 type veth peer name other; ip link set eth0 up; ip address add 10.9.0.1/24 dev eth0;"
      "ip link add link eth0 mac0 type macvlan; ip link set mac0 up mtu 1400;"
      "ip address add 10.8.0.1/24 dev mac0; ip route add 10.7.0.0/24 via 10.8.0.9 mtu 1300;"
      "ip route add unreachable 10.6.0.0/24; ip route add prohibit 10.5.0.0/24;"
      "ip route add blackhole 10.4.0.0/24",
      [] {
        constexpr std::uint32_t kMac = 0x0A08'0001;
        const struct {
          std::uint32_t source, destination;
          const char* interface;  // null: none
          unsigned mtu;
        } rows[] = {
            {kOwn, kOwn + 8, "eth0", 1500},    {kMac, kMac + 8, "mac0", 1400},
            {kMac, 0x0A07'0001, "mac0", 1300}, {kMac, kOwn, "lo", 65536},
            {kOwn, 0xEF01'0203, "eth0", 1500}, {kMac, 0xEF01'0203, "mac0", 1400},
            {kOwn, 0xFFFF'FFFF, "eth0", 1500}, {kMac, 0xFFFF'FFFF, "mac0", 1400},
            {kOwn, 0x0A06'0001, nullptr, 0},   {kOwn, 0x0A05'0001, nullptr, 0},
            {kOwn, 0x0A04'0001, nullptr, 0},   {kOwn, 0x0101'0101, nullptr, 0},
            {kOwn + 1, kOwn + 2, nullptr, 0},  {kLoopback, 0xEF01'0203, "lo", 65536},
        };
        for (const auto& row : rows) {
          SCOPED_TRACE(testing::Message() << std::hex << row.source << " to " << row.destination);
          const auto route = RouteOf(row.source, row.destination);
          ASSERT_EQ(route.has_value(), row.interface != nullptr);
          if (!route) continue;
          EXPECT_EQ(route->interface, row.interface);
          EXPECT_EQ(route->index, ::if_nametoindex(row.interface));
          EXPECT_EQ(route->mtu, row.mtu);
          const bool local = route->interface == "lo";
          EXPECT_EQ(route->local, local && row.destination < 0xE000'0000);
          EXPECT_EQ(route->device, local ? "lo" : "eth0");
          EXPECT_EQ(route->up, local) << "the other end is down";
          EXPECT_FALSE(route->hardware || route->kernel_paces);
          EXPECT_EQ(route->speed_mbit, 0u);
        }
        LinkWatch watch;
        EXPECT_FALSE(watch.Drain());
        ASSERT_EQ(std::system("ip link set other up"), 0);
        Poller poller;
        poller.Add(watch.Fd());
        // One link tells the other, and each is a change.
        const Instant deadline = Now() + std::chrono::seconds(10);
        while (!RouteOf(kMac, kMac + 8)->up && Now() < deadline) {
          poller.Wait(deadline);
          EXPECT_TRUE(watch.Drain());
        }
        EXPECT_TRUE(RouteOf(kMac, kMac + 8)->up);
        // Far more than the socket's buffer holds.
        ASSERT_EQ(std::system("for i in $(seq 3000); do echo address add 10.9.1.1/24 dev eth0;"
                              "echo address del 10.9.1.1/24 dev eth0; done | ip -batch -"),
                  0);
        EXPECT_TRUE(watch.Drain());
        EXPECT_FALSE(watch.Drain());
      });
}

}  // namespace
}  // namespace Tarn
