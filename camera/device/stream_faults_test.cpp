// Networks that refuse what the channel would like to send. Each test makes a network namespace of its own,
// which takes the right to do so; without it the tests are skipped.

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "camera/device/stream_channel_fixture.h"
#include "camera/net/owned_fd.h"
#include "camera/net/socket_address.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kCamera = 0x0A010101;

/// Asks the system to change an interface of this thread's namespace.
/// Throws: std::system_error.
void Change(const char* interface, unsigned long request, const std::function<void(ifreq&)>& fill) {
  const OwnedFd fd(::socket(AF_INET, SOCK_DGRAM, 0));
  ifreq change{};
  std::strncpy(change.ifr_name, interface, IFNAMSIZ - 1);
  fill(change);
  if (::ioctl(fd.Get(), request, &change) != 0)
    throw std::system_error(errno, std::generic_category(), interface);
}

void Switch(const char* interface, bool up) {
  Change(interface, SIOCSIFFLAGS,
         [&](ifreq& change) { change.ifr_flags = static_cast<short>(up ? IFF_UP | IFF_RUNNING : 0); });
}

void AddCameraAddress() {
  Change("lo:1", SIOCSIFADDR, [](ifreq& change) {
    const sockaddr_in address = ToSocketAddress({kCamera, 0});
    std::memcpy(&change.ifr_addr, &address, sizeof address);
  });
  Switch("lo:1", true);
}

/// Runs `body` on a thread whose namespace has nothing but loopback, with this MTU and the camera's address.
void InNamespace(int mtu, const std::function<void()>& body) {
  bool allowed = false;
  std::thread([&] {
    allowed = ::unshare(CLONE_NEWNET) == 0;
    if (!allowed) return;
    Switch("lo", true);
    Change("lo", SIOCSIFMTU, [&](ifreq& change) { change.ifr_mtu = mtu; });
    AddCameraAddress();
    body();
  }).join();
  if (!allowed) GTEST_SKIP() << "no right to make a network namespace";
}

std::shared_ptr<StreamChannel> OpenFilter(const StreamConfig& config) {
  StreamOptions options;
  options.local_address = kCamera;
  options.driver = StreamDriver::Filter;
  auto channel = StreamChannel::Open(options);
  channel->Configure(config);
  channel->ChannelOpened();
  channel->SetRunning(true);
  return channel;
}

std::size_t BytesOf(const std::vector<Bytes>& datagrams) {
  std::size_t bytes = 0;
  for (const Bytes& datagram : datagrams) bytes += datagram.size();
  return bytes;
}

void SendPixels(StreamChannel& channel, const Bytes& pixels) {
  ImageBlock block;
  block.payload = PayloadLayout::Contiguous(pixels);
  SendAllOf(channel, std::move(block));
}

TEST(StreamFaults, PacketsThatTheRouteCarriesInPiecesOnlyGoAlone) {
  InNamespace(1500, [] {
    const Bytes pixels = Pattern(100'000);
    Receiver receiver;
    StreamConfig config;
    config.destination = receiver.Address();
    config.packet_size = 4000;  // the path cannot take it in one piece, and segments are never fragmented
    const auto channel = OpenFilter(config);
    EXPECT_EQ(channel->Driver(), StreamDriver::Filter);
    SendPixels(*channel, pixels);
    const std::size_t packets = (pixels.size() + 3963) / 3964;
    EXPECT_EQ(BytesOf(receiver.Arrived()), pixels.size() + 8 * packets + 44 + 16);
    EXPECT_EQ(channel->Counters().failed_sends, 0u);
  });
}

TEST(StreamFaults, TrainsStayWhenThePacketsAloneAreRefusedToo) {
  InNamespace(1500, [] {
    const Bytes pixels = Pattern(100'000);
    Receiver receiver;
    StreamConfig config;
    config.destination = receiver.Address();
    config.packet_size = 4000;
    config.dont_fragment = true;
    const auto channel = OpenFilter(config);
    SendPixels(*channel, pixels);
    EXPECT_NE(channel->Counters().failed_sends, 0u);
    config.packet_size = 1400;
    channel->Configure(config);
    receiver.Arrived();
    SendPixels(*channel, pixels);
    EXPECT_EQ(receiver.Arrived().size(), 2 + (pixels.size() + 1363) / 1364);
    EXPECT_EQ(channel->Driver(), StreamDriver::Filter);
  });
}

TEST(StreamFaults, AnAddressThatGoesAndComesBackCostsFramesButNotTheTrains) {
  InNamespace(65536, [] {
    const Bytes pixels = Pattern(100'000);
    Receiver receiver;
    StreamConfig config;
    config.destination = receiver.Address();
    const auto channel = OpenFilter(config);
    SendPixels(*channel, pixels);
    const std::size_t whole = BytesOf(receiver.Arrived());
    Switch("lo:1", false);  // takes the address away
    SendPixels(*channel, pixels);
    EXPECT_NE(channel->Counters().failed_sends, 0u);
    EXPECT_EQ(BytesOf(receiver.Arrived()), 0u);
    AddCameraAddress();
    SendPixels(*channel, pixels);
    EXPECT_EQ(BytesOf(receiver.Arrived()), whole);
    EXPECT_EQ(channel->Driver(), StreamDriver::Filter);
  });
}

TEST(StreamFaults, AClientThatIsGoneStopsNothing) {
  const Bytes pixels = Pattern(100'000);
  StreamConfig config;
  config.destination = Receiver().Address();  // closed again
  StreamOptions options;
  options.local_address = kLoopback;
  const auto shared = StreamChannel::Open(options);
  StreamChannel& channel = *shared;
  channel.Configure(config);
  channel.ChannelOpened();
  channel.SetRunning(true);
  for (int i = 0; i < 5; ++i) SendPixels(channel, pixels);
  EXPECT_EQ(channel.Counters().frames, 5u);
  Receiver next;
  config.destination = next.Address();
  channel.Configure(config);
  SendPixels(channel, pixels);
  EXPECT_EQ(next.Arrived().size(), 2 + (pixels.size() + 1463) / 1464);
}

}  // namespace
}  // namespace Tarn
