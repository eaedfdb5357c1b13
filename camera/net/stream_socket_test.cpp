#include "camera/net/stream_socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "camera/net/network_namespace_fixture.h"
#include "camera/net/socket_address.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kLoopback = 0x7F00'0001;
constexpr std::uint32_t kOwn = 0x0A09'0001;  // 10.9.0.1
const std::atomic<bool> kGoOn{false};

/// An interface with kOwn and, behind it, the next address, where nobody answers. Nothing else is sent there.
const std::string kPair =
    "ip link add v0 type veth peer name v1; for i in v0 v1; do ip link set $i up addrgenmode none; done;"
    "ip address add 10.9.0.1/24 dev v0; ip neigh add 10.9.0.2 lladdr 02:00:00:00:00:02 dev v0;";

struct Traffic {
  std::size_t count;
  std::size_t size;
  std::size_t max_segments = 1;
};

BatchResult Send(StreamSocket& socket, const Traffic& traffic) {
  static const std::vector<std::uint8_t> bytes(65536);
  auto batch = std::make_unique<DatagramBatch>();
  batch->Clear(traffic.max_segments);
  for (std::size_t i = 0; i < traffic.count; ++i) {
    EXPECT_TRUE(batch->Begin(traffic.size, 1));
    batch->Add(bytes.data(), traffic.size);
  }
  return SendBatch(socket, *batch, kGoOn);
}

/// A socket of a client, or of nobody.
struct Peer {
  explicit Peer(std::uint32_t address) : fd(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    sockaddr_in local = ToSocketAddress({address, 0});
    socklen_t size = sizeof local;
    EXPECT_EQ(::bind(fd.Get(), Generic(local), size), 0);
    EXPECT_EQ(::getsockname(fd.Get(), Generic(local), &size), 0);
    endpoint = FromSocketAddress(local);
  }
  std::size_t Arrived() const {
    std::size_t count = 0;
    for (std::uint8_t byte = 0; ::recv(fd.Get(), &byte, 1, 0) >= 0;) ++count;
    return count;
  }

  OwnedFd fd;
  Endpoint endpoint;
};

TEST(StreamSocket, HearsThatNobodyListensAndNothingElse) {
  StreamSocket socket(kLoopback);
  auto client = std::make_unique<Peer>(kLoopback);
  ASSERT_TRUE(socket.SetPeer(client->endpoint));
  // More than a receive buffer holds, in which reports would find no room.
  sockaddr_in to = ToSocketAddress({kLoopback, socket.LocalPort()});
  for (int i = 0; i < 2000; ++i) ::sendto(client->fd.Get(), "junk", 4, 0, Generic(to), sizeof to);
  EXPECT_EQ(Send(socket, {10, 100}).unreachable, 0u);
  EXPECT_EQ(client->Arrived(), 10u);
  client.reset();
  const BatchResult gone = Send(socket, {10, 100});
  EXPECT_EQ(gone.sent, 10u) << "a report fails no other datagram";
  EXPECT_GE(gone.unreachable, 9u);  // the last one's waits for the next call
  const Peer next(kLoopback);
  ASSERT_TRUE(socket.SetPeer(next.endpoint));
  EXPECT_EQ(Send(socket, {10, 100}).failed, 0u);
  EXPECT_EQ(next.Arrived(), 10u);
}

TEST(StreamSocket, WaitsForAQueueThatIsFull) {
  // A shaper that holds two packets of ours.
  InNetwork(kPair + "tc qdisc add dev v0 root tbf rate 8mbit burst 1600 limit 3000", [] {
    StreamSocket socket(kOwn);
    ASSERT_TRUE(socket.SetPeer({kOwn + 1, 5000}));
    const BatchResult slow = Send(socket, {50, 1000});
    EXPECT_EQ(slow.sent, 50u);
    EXPECT_NE(slow.queue_full, 0u);
    // Slower than the patience lasts: a packet takes most of a second.
    ASSERT_EQ(std::system("tc qdisc replace dev v0 root tbf rate 8kbit burst 1600 limit 3000"), 0);
    const BatchResult stuck = Send(socket, {50, 1000});
    EXPECT_EQ(stuck.sent + stuck.failed, 50u);
    EXPECT_GT(stuck.failed, 40u);
    EXPECT_EQ(stuck.failed_bytes, stuck.failed * 1000);
    const BatchResult train = Send(socket, {20, 1000, 20});
    EXPECT_EQ(train.sent + train.failed, 0u);
    EXPECT_EQ(train.queue_full, 1u);
    EXPECT_FALSE(SegmentationWorks(*RouteOf(kOwn, kOwn + 1)))
        << "with room for one packet the rest would go lost unseen";
  });
}

TEST(StreamSocket, TellsWhatTheHostRefuses) {
  InNetwork(kPair +
                "ip route add unreachable 10.6.0.0/24; ip route add prohibit 10.5.0.0/24;"
                "nft 'add table t; add chain t c { type filter hook output priority 0; };"
                "add rule t c ip daddr 10.9.0.3 drop'",
            [] {
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
              const std::vector<std::uint8_t> bytes(65536);
              for (const auto& row : rows) {
                SCOPED_TRACE(testing::Message() << DottedAddress(row.to) << ", " << row.size << " bytes");
                DatagramBatch batch;
                batch.Clear(1);
                batch.SetDestination({row.to, 5000});
                for (int i = 0; i < 4; ++i) {
                  batch.Begin(row.size, 1);
                  batch.Add(bytes.data(), row.size);
                }
                const BatchResult result = SendBatch(socket, batch, kGoOn);
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
