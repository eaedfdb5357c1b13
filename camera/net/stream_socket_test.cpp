#include "camera/net/stream_socket.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "camera/net/network_namespace_fixture.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kLoopback = 0x7F00'0001;
constexpr std::uint32_t kOwn = 0x0A09'0001;  // 10.9.0.1
const std::atomic<bool> kGoOn{false};

/// An interface with kOwn and, behind it, the next address, where nobody answers. Nothing else is sent there.
const std::string kPair =
    "ip link add v0 type veth peer name v1; for i in v0 v1; do ip link set $i up addrgenmode none; done;"
    "ip address add 10.9.0.1/24 dev v0; ip neigh add 10.9.0.2 lladdr 02:00:00:00:00:02 dev v0;";

BatchResult Send(StreamSocket& socket, std::size_t count, std::size_t size, std::size_t segments = 1,
                 const Endpoint* to = nullptr) {
  static const std::vector<std::uint8_t> bytes(65536);
  const auto batch = std::make_unique<DatagramBatch>();
  batch->Clear(segments);
  if (to != nullptr) batch->SetDestination(*to);
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_TRUE(batch->Begin(size, 1));
    batch->Add(bytes.data(), size);
  }
  return SendBatch(socket, *batch, kGoOn);
}

TEST(StreamSocket, WaitsForAQueueThatIsFull) {
  // A shaper that holds two packets of ours, and sends one a second: slower than the patience lasts.
  InNetwork(kPair + "tc qdisc add dev v0 root tbf rate 8kbit burst 1600 limit 3000", [] {
    StreamSocket socket(kOwn);
    ASSERT_TRUE(socket.SetPeer({kOwn + 1, 5000}));
    const BatchResult stuck = Send(socket, 50, 1000);
    EXPECT_EQ(stuck.sent + stuck.failed, 50u);
    EXPECT_GT(stuck.failed, 40u);
    EXPECT_EQ(stuck.failed_bytes, stuck.failed * 1000);
    EXPECT_NE(stuck.queue_full, 0u);
    const BatchResult train = Send(socket, 20, 1000, 20);
    EXPECT_EQ(train.sent + train.failed, 0u);
    EXPECT_EQ(train.queue_full, 1u);
    EXPECT_FALSE(SegmentationWorks(*RouteOf(kOwn, kOwn + 1))) << "the rest would go lost unseen";
  });
}

TEST(StreamSocket, TellsWhatTheHostRefuses) {
  const std::string network = kPair +
                              "ip route add unreachable 10.6.0.0/24; ip route add prohibit 10.5.0.0/24;"
                              "nft 'add table t; add chain t c { type filter hook output priority 0; };"
                              "add rule t c ip daddr 10.9.0.3 drop'";
  InNetwork(network, [] {
    StreamSocket socket(kOwn);
    socket.SetDontFragment(true);
    const struct {
      std::uint32_t to;
      std::size_t size, failed, unreachable, refused, too_large;
      unsigned mtu;
    } rows[] = {
        {kOwn + 1, 1472, 0, 0, 0, 0, 0},    {kOwn + 2, 100, 4, 0, 4, 0, 0},
        {0x0A05'0001, 100, 4, 0, 4, 0, 0},  {0x0A06'0001, 100, 4, 4, 0, 0, 0},
        {kOwn + 1, 1473, 4, 0, 0, 4, 1500},
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(testing::Message() << DottedAddress(row.to) << ", " << row.size << " bytes");
      const Endpoint to{row.to, 5000};
      const BatchResult result = Send(socket, 4, row.size, 1, &to);
      EXPECT_EQ(result.failed, row.failed);
      EXPECT_EQ(result.sent, 4 - row.failed);
      EXPECT_EQ(result.unreachable, row.unreachable);
      EXPECT_EQ(result.refused, row.refused);
      EXPECT_EQ(result.too_large, row.too_large);
      EXPECT_EQ(result.mtu, row.mtu);
    }
  });
}

TEST(StreamSocket, SendsTrainsWhereTheyArriveCut) {
  EXPECT_TRUE(SegmentationWorks(*RouteOf(kLoopback, kLoopback + 1)));
  InNetwork(kPair, [] {
    const auto packets = [] {
      std::ifstream counters("/proc/thread-self/net/dev");
      std::string line;
      while (std::getline(counters, line) && line.find("v0:") == std::string::npos) continue;
      return line;
    };
    const std::string before = packets();
    EXPECT_TRUE(SegmentationWorks(*RouteOf(kOwn, kOwn + 1)));
    EXPECT_EQ(packets(), before) << "nothing went out";
    ASSERT_EQ(std::system("ethtool -K v0 tx off > /dev/null"), 0);
    EXPECT_FALSE(SegmentationWorks(*RouteOf(kOwn, kOwn + 1)));
    EXPECT_TRUE(SegmentationWorks(*RouteOf(kOwn, kOwn)));
  });
}

}  // namespace
}  // namespace Tarn
