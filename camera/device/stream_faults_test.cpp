// Networks that do not take what the channel would like to send.

#include <gtest/gtest.h>

#include <cstdlib>

#include "camera/device/stream_channel_fixture.h"
#include "camera/net/network_namespace_fixture.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kCamera = 0x0A01'0101;
constexpr const char* kLoopbackNetwork = "ip link set lo mtu 1500; ip addr add 10.1.1.1/32 dev lo";
/// A camera's end of a line to a client who has no socket.
constexpr const char* kLine =
    "ip link add v0 type veth peer name v1; ip addr add 10.1.1.1/24 dev v0; ip link set v0 up;"
    "ip link set v1 up;"
    "ip neigh add 10.1.1.2 lladdr 02:00:00:00:00:02 dev v0 nud permanent; ";

void Shell(const char* command) { ASSERT_EQ(std::system(command), 0) << command; }

std::shared_ptr<StreamChannel> OpenTo(const Endpoint& destination, StreamDriver driver,
                                      StreamConfig config = {}) {
  StreamOptions options;
  options.local_address = kCamera;
  options.driver = driver;
  auto channel = StreamChannel::Open(options);
  config.destination = destination;
  channel->Configure(config);
  channel->ChannelOpened();
  channel->BeginRunning(0);
  return channel;
}

std::size_t BytesOf(const std::vector<Bytes>& datagrams) {
  std::size_t bytes = 0;
  for (const Bytes& datagram : datagrams) bytes += datagram.size();
  return bytes;
}

void SendPixels(StreamChannel& channel, std::size_t size = 100'000) {
  static const Bytes pixels = Pattern(1'000'000);
  ImageBlock block;
  block.payload = PayloadLayout::Contiguous(ByteView(pixels).first(size));
  SendAllOf(channel, std::move(block));
}

TEST(StreamFaults, PacketsThatTheRouteCarriesInPiecesOnlyGoAlone) {
  InNetwork(kLoopbackNetwork, [] {
    Receiver receiver;
    StreamConfig config;
    config.packet_size = 4000;  // segments are never fragmented
    const auto channel = OpenTo(receiver.Address(), StreamDriver::Filter, config);
    SendPixels(*channel);
    const std::size_t packets = (100'000 + 3963) / 3964;
    EXPECT_EQ(BytesOf(receiver.Arrived()), 100'000 + 8 * packets + 44 + 16);
    EXPECT_EQ(channel->Counters().failed_sends, 0u);
    config.dont_fragment = true;
    config.destination = receiver.Address();
    channel->Configure(config);
    SendPixels(*channel);
    EXPECT_EQ(channel->Counters().failed_sends, packets - 1) << "leader, trailer and the last one are short";
    EXPECT_EQ(channel->Counters().frames, 1u);
    EXPECT_EQ(channel->Counters().dropped_blocks, 1u);
    EXPECT_EQ(channel->State(), StreamState::Failing);
  });
}

TEST(StreamFaults, AnAddressThatGoesAndComesBackCostsFramesButNotTheTrains) {
  InNetwork(kLoopbackNetwork, [] {
    Receiver receiver;
    const auto channel = OpenTo(receiver.Address(), StreamDriver::Filter);
    SendPixels(*channel);
    const std::size_t whole = BytesOf(receiver.Arrived());
    Shell("ip addr del 10.1.1.1/32 dev lo");
    channel->RouteChanged();
    SendPixels(*channel);
    EXPECT_EQ(channel->Counters().dropped_blocks, 1u);
    EXPECT_EQ(channel->State(), StreamState::NoRoute);
    EXPECT_EQ(BytesOf(receiver.Arrived()), 0u);
    Shell("ip addr add 10.1.1.1/32 dev lo");
    channel->RouteChanged();
    SendPixels(*channel);
    EXPECT_EQ(channel->State(), StreamState::Open);
    EXPECT_EQ(BytesOf(receiver.Arrived()), whole);
    EXPECT_EQ(channel->Driver(), StreamDriver::Filter);
  });
}

TEST(StreamFaults, WhatTheSystemDropsIsNotCountedAsSent) {
  InNetwork(kLine, [] {
    const struct {
      const char* fault;
      StreamState state;
      const char* repair;
    } rows[] = {
        {"ip link set v1 down", StreamState::NoLink, "ip link set v1 up"},
        {"ip link set v0 down", StreamState::NoRoute,
         "ip link set v0 up; ip neigh replace 10.1.1.2 lladdr 02:00:00:00:00:02 dev v0 nud permanent"},
        {"nft 'add table t; add chain t c { type filter hook output priority 0; };"
         "add rule t c udp dport 5000 drop'",
         StreamState::Refused, "nft delete table t"}};
    const auto channel = OpenTo({kCamera + 1, 5000}, StreamDriver::Socket);
    std::uint64_t sent = 0, dropped = 0;
    for (const auto& row : rows) {
      SendPixels(*channel);
      EXPECT_EQ(channel->Counters().frames, ++sent) << row.fault;
      EXPECT_EQ(channel->State(), StreamState::Open) << row.fault;
      Shell(row.fault);
      channel->RouteChanged();
      SendPixels(*channel);
      EXPECT_EQ(channel->Counters().dropped_blocks, ++dropped) << row.fault;
      EXPECT_EQ(channel->State(), row.state) << row.fault;
      Shell(row.repair);
      channel->RouteChanged();
    }
  });
}

TEST(StreamFaults, ALineThatIsSlowerThanTheStreamLosesNothing) {
  const std::string slow =
      "ip link set v0 mtu 9000; ip link set v1 mtu 9000;"
      "tc qdisc add dev v0 root tbf rate 100mbit burst 16k limit 40k";
  InNetwork(kLine + slow, [] {
    StreamConfig config;
    config.packet_size = 9000;
    const auto channel = OpenTo({kCamera + 1, 5000}, StreamDriver::Filter, config);
    SendPixels(*channel, 1'000'000);
    EXPECT_EQ(channel->Counters().frames, 1u);
    EXPECT_EQ(channel->Counters().failed_sends, 0u);
    EXPECT_NE(channel->Counters().queue_full, 0u);
  });
}

TEST(StreamFaults, AClientThatIsGoneStopsNothing) {
  InNetwork(kLoopbackNetwork, [] {
    const auto channel = OpenTo(Receiver().Address(), StreamDriver::Filter);  // closed again
    for (int i = 0; i < 5; ++i) SendPixels(*channel);
    EXPECT_EQ(channel->Counters().frames, 5u);
    EXPECT_NE(channel->Counters().unreachable, 0u);
    Receiver next;
    StreamConfig config;
    config.destination = next.Address();
    channel->Configure(config);
    SendPixels(*channel);
    EXPECT_EQ(next.Arrived().size(), 2 + (100'000 + 1463) / 1464);
  });
}

}  // namespace
}  // namespace Tarn
