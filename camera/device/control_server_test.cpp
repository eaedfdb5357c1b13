#include "camera/device/control_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "camera/base/bytes.h"
#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kLoopback = 0x7F000001;

/// Commands with an odd request id call a listener, which lasts until it is let go. Those with an id from
/// 0x80 on are answered a little later, those from 0xC0 on never. Those from 0x40 on come from the client in
/// control.
class FakeService final : public ControlService {
 public:
  Reception Arrived(const ControlRequest& request) override {
    const std::uint8_t id = request.bytes.back();
    if (id >= 0xC0) return {Reception::Turn::Never, {}};
    if (id >= 0x80) return {Reception::Turn::Later, request.arrival + milliseconds(id - 0x80)};
    if ((id & 1) == 0) return {Reception::Turn::Now, {}};
    return {id >= 0x40 ? Reception::Turn::ListenersFirst : Reception::Turn::Listeners, {}};
  }

  std::size_t Execute(const ControlRequest& request, MutableByteView answer) override {
    if (request.bytes.back() < 0x80 && (request.bytes.back() & 1) != 0) {
      heard.push_back(request.bytes.back());
      ++begun;
      if (in_listener) in_listener();
      gone.wait_for(seconds(20));
    }
    answer[0] = request.bytes.back();
    return 1;
  }

  void Answered() override { ++answered; }
  Instant Deadline() override { return Now() + milliseconds(20); }
  bool Tick(Instant, const std::vector<Endpoint>& waiting) override {
    waiting_clients = waiting.size();
    return calls_wanted > calls;
  }
  void Call() override {
    caller = std::this_thread::get_id();
    ++calls;
  }
  std::optional<milliseconds> PendingAfter() override { return patience; }

  std::promise<void> let_go;
  const std::shared_future<void> gone = let_go.get_future().share();
  std::function<void()> in_listener;
  std::optional<milliseconds> patience;
  std::vector<std::uint8_t> heard;  ///< ids of the commands that called a listener, in their order
  std::atomic<int> begun = 0;
  std::atomic<int> answered = 0;
  std::atomic<std::size_t> waiting_clients = 0;
  std::atomic<int> calls_wanted = 0;
  std::atomic<int> calls = 0;
  std::atomic<std::thread::id> caller;
};

/// A client's socket.
class Client {
 public:
  explicit Client(Endpoint server) {
    socket_ = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(server.address);
    to.sin_port = htons(server.port);
    EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
  }
  ~Client() { close(socket_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void Say(std::uint8_t id, std::uint8_t flags = 1) {
    Bytes command = Hex("42 00 0080 0000 0000");
    command[1] = flags;
    command[7] = id;
    EXPECT_EQ(send(socket_, command.data(), command.size(), 0), static_cast<ssize_t>(command.size()));
  }

  /// The next datagram; empty when none comes in time.
  Bytes Hear(milliseconds time = seconds(10)) {
    pollfd ready{socket_, POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(time.count())) != 1) return {};
    Bytes bytes(600);
    const ssize_t size = recv(socket_, bytes.data(), bytes.size(), 0);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return bytes;
  }

 private:
  int socket_;
};

bool Eventually(const std::function<bool()>& condition) {
  const Instant end = Now() + seconds(10);
  while (Now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return false;
}

TEST(ControlServer, LetsTheClientInControlPassTheOthers) {
  const auto service = std::make_shared<FakeService>();
  ControlServer server(kLoopback, 0);
  server.Start(service, nullptr);
  Client stranger(server.Local());
  Client holder(server.Local());
  stranger.Say(1);
  ASSERT_TRUE(Eventually([&] { return service->begun == 1; }));
  for (std::uint8_t id = 3; id < 0x3F; id += 2) stranger.Say(id);
  ASSERT_TRUE(Eventually([&] { return service->waiting_clients == 8; }));
  holder.Say(0x41);
  holder.Say(0x43);
  ASSERT_TRUE(Eventually([&] { return service->waiting_clients == 10; })) << "it finds a place in any case";
  service->let_go.set_value();
  ASSERT_TRUE(Eventually([&] { return service->answered == 10; }));
  server.Stop();
  EXPECT_EQ(service->heard, (Bytes{1, 0x41, 0x43, 3, 5, 7, 9, 11, 13, 15}));
}

TEST(ControlServer, KeepsNobodyWaitingForASlowListener) {
  const auto service = std::make_shared<FakeService>();
  ControlServer server(kLoopback, 0);
  server.Start(service, nullptr);
  Client slow(server.Local());
  Client quick(server.Local());
  slow.Say(1);
  ASSERT_TRUE(Eventually([&] { return service->begun == 1; }));
  slow.Say(1);  // asks again, as clients do: not begun twice
  for (int i = 0; i < 3; ++i) {
    quick.Say(2);
    EXPECT_EQ(quick.Hear(), Bytes{2});
  }
  EXPECT_TRUE(Eventually([&] { return service->waiting_clients == 1; }));
  service->let_go.set_value();
  EXPECT_EQ(slow.Hear(), Bytes{1});
  EXPECT_TRUE(Eventually([&] { return service->waiting_clients == 0; }));
  EXPECT_EQ(service->begun, 1);
  EXPECT_EQ(slow.Hear(milliseconds(50)), Bytes());  // and nobody was asked for patience
  server.Stop();
  EXPECT_EQ(service->answered, 4);
}

TEST(ControlServer, AsksForPatienceWhereTheClientAllowsIt) {
  const auto service = std::make_shared<FakeService>();
  service->patience = milliseconds(50);
  ControlServer server(kLoopback, 0);
  server.Start(service, nullptr);
  Client client(server.Local());
  const Instant sent = Now();
  client.Say(1);
  const Bytes pending = Hex("0000 0089 0004 0001 0000 0064");
  EXPECT_EQ(client.Hear(), pending);
  EXPECT_GE(Now() - sent, milliseconds(50));
  EXPECT_EQ(client.Hear(), pending);  // and again while it lasts
  service->let_go.set_value();
  Bytes last;
  for (int i = 0; i < 100 && (last = client.Hear()) == pending; ++i) continue;
  EXPECT_EQ(last, Bytes{1});
  server.Stop();
}

TEST(ControlServer, CountsEveryClientWhoseCommandWaits) {
  const auto service = std::make_shared<FakeService>();
  ControlServer server(kLoopback, 0);
  server.Start(service, nullptr);
  Client first(server.Local());
  Client second(server.Local());
  first.Say(1);
  second.Say(3);
  EXPECT_TRUE(Eventually([&] { return service->waiting_clients == 2; }));
  service->let_go.set_value();
  EXPECT_EQ(first.Hear(), Bytes{1});
  EXPECT_EQ(second.Hear(), Bytes{3});
  server.Stop();
}

TEST(ControlServer, DelaysAnswersWithoutDelayingOthers) {
  const auto service = std::make_shared<FakeService>();
  ControlServer server(kLoopback, 0);
  server.Start(service, nullptr);
  Client client(server.Local());
  for (const int id : {0xC0, 0xBF, 0xA0, 0x02}) client.Say(static_cast<std::uint8_t>(id));
  EXPECT_EQ(client.Hear(), Bytes{0x02});
  EXPECT_EQ(client.Hear(), Bytes{0xA0});  // by when they are due, not by when they came
  EXPECT_EQ(client.Hear(), Bytes{0xBF});
  EXPECT_EQ(client.Hear(milliseconds(50)), Bytes());
  server.Stop();
}

TEST(ControlServer, CallsListenersWhereCommandsWithListenersRun) {
  const auto service = std::make_shared<FakeService>();
  ControlServer server(kLoopback, 0);
  server.Start(service, nullptr);
  service->calls_wanted = 3;
  EXPECT_TRUE(Eventually([&] { return service->calls == 3; }));
  std::atomic<std::thread::id> listener;
  service->in_listener = [&] { listener = std::this_thread::get_id(); };
  service->let_go.set_value();
  Client client(server.Local());
  client.Say(1);
  EXPECT_EQ(client.Hear(), Bytes{1});
  EXPECT_EQ(service->caller.load(), listener.load());
  server.Stop();
}

TEST(ControlServer, CanBeStoppedByAListener) {
  const auto service = std::make_shared<FakeService>();
  ControlServer server(kLoopback, 0);
  server.Start(service, nullptr);
  const Endpoint local = server.Local();
  std::promise<void> stopped;
  service->in_listener = [&] {
    server.Stop();
    service->let_go.set_value();
    stopped.set_value();
  };
  Client(local).Say(1);
  ASSERT_EQ(stopped.get_future().wait_for(seconds(10)), std::future_status::ready);
  server.Stop();
  // The threads share the service until they end.
  EXPECT_TRUE(Eventually([&] { return service.use_count() == 1; }));
}

TEST(ControlServer, LetsGoOfItsThreadsWhenAbandoned) {
  const auto service = std::make_shared<FakeService>();
  std::optional<ControlServer> server(std::in_place, kLoopback, std::uint16_t{0});
  server->Start(service, nullptr);
  const Endpoint local = server->Local();
  Client client(local);
  client.Say(1);
  ASSERT_TRUE(Eventually([&] { return service->begun == 1; }));
  const Instant before = Now();
  server.reset();
  EXPECT_LT(Now() - before, seconds(2));
  service->let_go.set_value();
  EXPECT_TRUE(Eventually([&] { return service.use_count() == 1; }));
  EXPECT_TRUE(Eventually([&] {
    try {
      const ControlServer next(kLoopback, local.port);
      return true;
    } catch (const std::system_error&) {
      return false;
    }
  }));
}

TEST(ControlServer, NamesTheAddressThatIsInUse) {
  ControlServer server(kLoopback, 0);
  try {
    const ControlServer second(kLoopback, server.Local().port);
    ADD_FAILURE() << "two servers on one port";
  } catch (const std::system_error& error) {
    const std::string text = error.what();
    EXPECT_NE(text.find("127.0.0.1"), std::string::npos) << text;
    EXPECT_NE(text.find(std::to_string(server.Local().port)), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace Tarn
