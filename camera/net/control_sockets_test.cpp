#include "camera/net/control_sockets.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <system_error>

#include <string>
#include <thread>

#include "camera/net/poller.h"

namespace Tarn {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kDevice = 0x7F00'0002;
constexpr std::uint32_t kClient = 0x7F00'0001;
constexpr std::uint32_t kDirectedBroadcast = 0x7FFF'FFFF;
constexpr std::uint32_t kLimitedBroadcast = 0xFFFF'FFFF;

/// What arrives at one of the sockets within a generous time; the text is empty when nothing does.
struct Heard {
  std::string text;
  Endpoint source;
  bool broadcast = false;
};

Heard Await(ControlSockets& sockets) {
  Poller poller;
  for (const int fd : sockets.Fds()) poller.Add(fd);
  poller.Wait(Now() + 2s);
  std::array<std::uint8_t, 64> buffer{};
  for (const int fd : sockets.Fds()) {
    if (fd < 0) continue;
    if (const auto got = sockets.Receive(fd, buffer)) {
      return {{got->bytes.begin(), got->bytes.end()}, got->source, got->broadcast};
    }
  }
  return {};
}

ByteView Bytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(ControlSockets, HearUnicastAndBothBroadcasts) {
  ControlSockets device(kDevice, 0);
  ControlSockets client(kClient, 0);
  for (const std::uint32_t to : {kDevice, kDirectedBroadcast, kLimitedBroadcast}) {
    client.Send(Bytes("hello"), {to, device.Local().port});
    const Heard heard = Await(device);
    EXPECT_EQ(heard.text, "hello") << DottedAddress(to);
    EXPECT_EQ(heard.source, client.Local()) << DottedAddress(to);
    EXPECT_EQ(heard.broadcast, to != kDevice) << DottedAddress(to);
  }
  // The answer comes from the device's own address, whichever socket heard the question.
  device.Send(Bytes("answer"), client.Local());
  const Heard answer = Await(client);
  EXPECT_EQ(answer.text, "answer");
  EXPECT_EQ(answer.source, device.Local());
}

TEST(ControlSockets, LetDevicesShareBroadcastsButNoAddress) {
  ControlSockets first(kDevice, 0);
  const std::uint16_t port = first.Local().port;
  ControlSockets second(kDevice + 1, port);
  ControlSockets client(kClient, 0);
  client.Send(Bytes("all"), {kLimitedBroadcast, port});
  EXPECT_EQ(Await(first).text, "all");
  EXPECT_EQ(Await(second).text, "all");

  struct Row {
    std::uint32_t address;
    int error;
    std::string text;
  };
  const Row rows[] = {
      {kDevice, EADDRINUSE,
       "cannot bind 127.0.0.2 port " + std::to_string(port) + ": Address already in use"},
      {0xCB00'7101, EADDRNOTAVAIL,
       "cannot bind 203.0.113.1 port " + std::to_string(port) + ": Cannot assign requested address"},
  };
  for (const Row& row : rows) {
    try {
      ControlSockets refused(row.address, port);
      ADD_FAILURE() << row.text;
    } catch (const std::system_error& e) {
      EXPECT_EQ(e.what(), row.text);
      EXPECT_EQ(e.code().value(), row.error);
    }
  }
}

// A client that discovers a device through an interface which is not the device's own opens it with the wrong
// address for the stream.
TEST(ControlSockets, HearNoBroadcastsOfOtherInterfaces) {
  std::thread([] {
    // The namespace is this thread's, and goes with it.
    if (::unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "network namespaces need root";
    ASSERT_EQ(std::system("ip link set lo up && ip link add tarn0 type veth peer name tarn1 && "
                          "ip address add 10.9.0.1/24 dev tarn0 && ip link set tarn0 up"),
              0);
    ControlSockets local(kDevice, 0);
    ControlSockets remote(0x0A09'0001, local.Local().port);
    ControlSockets client(kClient, 0);
    client.Send(Bytes("who is there"), {kLimitedBroadcast, local.Local().port});
    client.Send(Bytes("you"), remote.Local());
    EXPECT_EQ(Await(local).text, "who is there");
    EXPECT_EQ(Await(remote).text, "you");  // so the broadcast would have arrived as well
    std::array<std::uint8_t, 64> buffer{};
    for (const int fd : remote.Fds()) {
      ASSERT_GE(fd, 0);
      EXPECT_FALSE(remote.Receive(fd, buffer));
    }
  }).join();
}

TEST(ControlSockets, GoOnWhenAClientVanished) {
  ControlSockets device(kDevice, 0);
  Endpoint gone;
  {
    const ControlSockets client(kClient, 0);
    gone = client.Local();
  }
  device.Send(Bytes("nobody hears this"), gone);  // answered with "port unreachable"
  ControlSockets client(kClient, 0);
  client.Send(Bytes("next"), device.Local());
  EXPECT_EQ(Await(device).text, "next");
}

TEST(Poller, EndsAtItsDeadlineOrWhenWoken) {
  Wakeup wakeup;
  Poller poller;
  poller.Add(-1);
  const std::size_t number = poller.Add(wakeup.Fd());
  const Instant deadline = Now() + 5ms;
  poller.Wait(deadline);
  EXPECT_GE(Now(), deadline);
  EXPECT_FALSE(poller.Ready(number));
  poller.Wait(Now() - 1s);  // long past: no wait, and no error
  EXPECT_FALSE(poller.Ready(number));

  const std::jthread other([&] { wakeup.Wake(); });
  poller.Wait(std::nullopt);
  EXPECT_TRUE(poller.Ready(number));
  wakeup.Clear();
  poller.Wait(Now());
  EXPECT_FALSE(poller.Ready(number));
}

}  // namespace
}  // namespace Tarn
