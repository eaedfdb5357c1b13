#include "camera/net/control_sockets.h"

#include <gtest/gtest.h>
#include <system_error>

#include <string>
#include <thread>

#include "camera/net/network_namespace_fixture.h"
#include "camera/net/poller.h"

namespace Tarn {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kDevice = 0x7F00'0002;
constexpr std::uint32_t kClient = 0x7F00'0001;
constexpr std::uint32_t kLimitedBroadcast = 0xFFFF'FFFF;

std::string From(const Endpoint& source) {
  return " from " + DottedAddress(source.address) + ":" + std::to_string(source.port);
}

/// What arrives at one of the sockets within a generous time, and from where.
std::string Heard(ControlSockets& sockets, Nanoseconds patience = 2s) {
  Poller poller;
  for (const int fd : sockets.Fds()) poller.Add(fd);
  poller.Wait(Now() + patience);
  std::array<std::uint8_t, 64> buffer{};
  for (const int fd : sockets.Fds()) {
    const auto got = fd < 0 ? std::nullopt : sockets.Receive(fd, buffer);
    if (!got) continue;
    const std::string text(got->bytes.begin(), got->bytes.end());
    return text + From(got->source) + (got->broadcast ? " to all" : "");
  }
  return "nothing";
}

ByteView Bytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(ControlSockets, ShareBroadcastsButNoAddress) {
  ControlSockets device(kDevice, 0);
  const std::uint16_t port = device.Local().port;
  ControlSockets second(kDevice + 1, port);
  ControlSockets client(kClient, 0);
  const std::string from_client = From(client.Local());
  client.Send(Bytes("you"), device.Local());
  EXPECT_EQ(Heard(device), "you" + from_client);
  for (const std::uint32_t to : {0x7FFF'FFFFu, kLimitedBroadcast}) {
    client.Send(Bytes("all"), {to, port});
    EXPECT_EQ(Heard(device), "all" + from_client + " to all");
    EXPECT_EQ(Heard(second), "all" + from_client + " to all");
  }
  // The answer comes from the device's own address, whichever socket heard the question.
  device.Send(Bytes("answer"), client.Local());
  EXPECT_EQ(Heard(client), "answer" + From(device.Local()));
  try {
    ControlSockets refused(kDevice, port);
    ADD_FAILURE();
  } catch (const std::system_error& e) {
    EXPECT_EQ(e.what(), "cannot bind 127.0.0.2 port " + std::to_string(port) + ": Address already in use");
  }
}

// A client that discovers a device through an interface which is not the device's own opens it with the wrong
// address for the stream.
TEST(ControlSockets, HearNoBroadcastsOfOtherInterfaces) {
  InNetwork("ip link add v0 type veth peer name v1; ip address add 10.9.0.1/24 dev v0; ip link set v0 up",
            [] {
              ControlSockets local(kDevice, 0);
              ControlSockets remote(0x0A09'0001, local.Local().port);
              ControlSockets client(kClient, 0);
              client.Send(Bytes("who is there"), {kLimitedBroadcast, local.Local().port});
              client.Send(Bytes("you"), remote.Local());
              EXPECT_EQ(Heard(local), "who is there" + From(client.Local()) + " to all");
              EXPECT_EQ(Heard(remote),
                        "you" + From(client.Local()));  // so the broadcast would have arrived as well
              EXPECT_EQ(Heard(remote, 0s), "nothing");
            });
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
