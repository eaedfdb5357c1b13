#include "camera/net/interface_list.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Tarn {
namespace {

TEST(InterfaceList, KnowsWhichAddressesAreThisMachines) {
  const InterfaceList list;
  const Interface* lo = list.InterfaceFor(0x7FFF'0102);
  ASSERT_NE(lo, nullptr);
  EXPECT_EQ(lo, list.InterfaceFor(0x7F00'0001));
  EXPECT_EQ(lo->name, "lo");
  EXPECT_EQ(lo->netmask, 0xFF00'0000u);
  EXPECT_EQ(lo->broadcast, 0x7FFF'FFFFu);
  EXPECT_TRUE(lo->up && lo->loopback && lo->mtu > 1500 && lo->index > 0 && lo->gateway == 0);
  EXPECT_EQ(list.InterfaceFor(0xCB00'7101), nullptr);  // 203.0.113.1, reserved for documents
  EXPECT_EQ(list.InterfaceFor(0), nullptr);
}

TEST(InterfaceList, FindsTheDefaultGatewayOfAnInterface) {
  const std::string table =
      "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
      "eth0\t0000A8C0\t00000000\t0001\t0\t0\t100\t00FFFFFF\t0\t0\t0\n"
      "eth0\t00000000\tFE00A8C0\t0003\t0\t0\t200\t00000000\t0\t0\t0\n"
      "eth0\t00000000\t0100A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
      "eth1\t0000000A\t0100000A\t0003\t0\t0\t0\t000000FF\t0\t0\t0\n"
      "tun0\t00000000\t00000000\t0001\t0\t0\t0\t00000000\t0\t0\t0\n"
      "eth2\t0000\n";
  const auto gateway = [&](const char* interface) {
    std::istringstream in(table);
    return DefaultGateway(in, interface);
  };
  EXPECT_EQ(gateway("eth0"), 0xC0A8'0001u) << "the lower metric wins";
  EXPECT_EQ(gateway("eth1"), 0u) << "a route to one network is no default route";
  EXPECT_EQ(gateway("tun0"), 0u);
  EXPECT_EQ(gateway("eth2"), 0u);
}

}  // namespace
}  // namespace Tarn
