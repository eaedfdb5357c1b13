#include "camera/device/device.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include <future>

#include "camera/device/stream_channel_fixture.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/net/owned_fd.h"
#include "camera/net/socket_address.h"
#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

/// 127.78.x.y: the control port is fixed, so each process that runs tests takes an address of its own.
const std::uint32_t kAddress = 0x7F4E'0001 + static_cast<std::uint32_t>(getpid()) % 0xFFFE;

class DeviceTest : public testing::Test {
 protected:
  ~DeviceTest() override { device_->Stop(); }

  void Add(std::initializer_list<NodePtr> nodes) {
    const NodeLock lock(device_->Tree());
    for (const NodePtr& node : nodes) device_->Tree().Add(node);
  }

  /// Letters of what happened: connected, disconnected, start and end of acquisition.
  void RecordEvents() {
    for (int event = 0; event < 4; ++event) {
      const auto note = [](void* context) {
        const auto* watch = static_cast<Watch*>(context);
        const std::lock_guard lock(watch->test->mutex_);
        watch->test->seen_.push_back(watch->letter);
      };
      device_->Events().Register(static_cast<ServerEvent>(event), note, &watches_[event]);
    }
  }

  std::string Seen() {
    const std::lock_guard lock(mutex_);
    return seen_;
  }

  /// Sends one command and returns the answer; empty when none comes.
  Bytes Say(const std::string& command, std::chrono::milliseconds time = 10s) {
    const Bytes bytes = Hex(command);
    const sockaddr_in to = ToSocketAddress({kAddress, kControlPort});
    sendto(socket_.Get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    pollfd ready{socket_.Get(), POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(time.count())) != 1) return {};
    Bytes answer(600);
    const ssize_t size = recv(socket_.Get(), answer.data(), answer.size(), 0);
    answer.resize(static_cast<std::size_t>(size > 0 ? size : 0));
    return answer;
  }

  void TakeControl() {
    ASSERT_EQ(Say("42 01 0082 0008 0001 00000A00 00000002"), Hex("0000 0083 0004 0001 0000 0001"));
  }

  struct Watch {
    DeviceTest* test;
    char letter;
  };

  std::mutex mutex_;
  std::string seen_;
  Watch watches_[4] = {{this, 'C'}, {this, 'D'}, {this, 'S'}, {this, 'E'}};
  std::shared_ptr<Device> device_ = Device::Create(SensorFormat{0x01080001, "Mono8", 64, 48, false});
  OwnedFd socket_{socket(AF_INET, SOCK_DGRAM, 0)};
};

TEST_F(DeviceTest, StaysStoppedWhenItCannotStart) {
  const auto other = Device::Create(std::nullopt);
  other->Start(kAddress);
  EXPECT_THROW(device_->Start(kAddress), std::system_error);
  EXPECT_THROW(device_->Start(0x01020304), std::system_error);  // nobody's here
  const NodePtr empty = NewNode(NodeKind::Enumeration, "Empty");
  Add({empty});
  const std::weak_ptr<Device> watch = other;
  [](std::shared_ptr<Device> last) { last->Abandon(); }(other);
  EXPECT_TRUE(Eventually([&] { return watch.use_count() == 1; })) << "it ended by itself";
  EXPECT_EQ(Refusal([&] { device_->Start(kAddress); }), Failure::kInvalidArgument) << "no entries";
  EXPECT_EQ(device_->Local(), Endpoint{});
  {
    const NodeLock lock(device_->Tree());
    AddRelated(empty, NodeList::Child, NewEntry("Entry", 0), nullptr);
  }
  device_->Start(kAddress);
  EXPECT_EQ(device_->Local(), (Endpoint{kAddress, kControlPort}));
  EXPECT_EQ(Refusal([&] { device_->Start(kAddress); }), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { device_->SetResendDepth(1); }), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { Add({NewInteger("Late")}); }), Failure::kWrongState);
}

TEST_F(DeviceTest, SharesNothingWithNodesOutsideWhileItIsStarted) {
  const NodePtr reg = NewIntReg("Mine", 0xA000);
  const NodePtr outside = NewInteger("Outside", reg);
  Add({reg});
  {
    const NodeLock lock(*outside);
    WriteInteger(*outside, 5);
  }
  device_->Start(kAddress);
  const NodeLock lock(*outside);  // not the device's
  EXPECT_EQ(Refusal([&] { ReadInteger(*outside); }), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { WriteInteger(*outside, 6); }), Failure::kWrongState);
}

TEST_F(DeviceTest, TellsWhatHappensInOrder) {
  RecordEvents();
  device_->Start(kAddress);
  TakeControl();
  EXPECT_NE(device_->Remote(), Endpoint{});
  Say("42 01 0082 0008 0002 F000001C 00000001");
  EXPECT_TRUE(device_->AcquisitionActive());
  Say("42 01 0082 0008 0003 F0000020 00000001");
  Say("42 01 0082 0008 0004 F000001C 00000001");
  Say("42 01 0082 0008 0005 00000A00 00000000");  // leaving ends the acquisition
  EXPECT_FALSE(device_->AcquisitionActive());
  EXPECT_EQ(device_->Remote(), Endpoint{});
  EXPECT_TRUE(Eventually([&] { return Seen() == "CSESED"; })) << Seen();
  TakeControl();
  Say("42 01 0082 0008 0002 00000938 000001F4");  // silent for longer than that
  EXPECT_TRUE(Eventually([&] { return Seen() == "CSESEDCD"; })) << Seen();
  TakeControl();
  Say("42 01 0082 0008 0002 F000001C 00000001");
  device_->Stop();  // as if the client had left
  EXPECT_EQ(Seen(), "CSESEDCDCSED");
}

TEST_F(DeviceTest, IsNotStartedWhileAListenerHoldsUpItsStop) {
  struct Gate {
    std::promise<void> entered, open;
  } gate;
  const auto wait = [](void* context) {
    auto& inside = *static_cast<Gate*>(context);
    inside.entered.set_value();
    inside.open.get_future().wait_for(3s);  // less than a stop waits
  };
  const NodePtr reg = NewIntReg("Mine", 0xA000);
  reg->listeners.push_back(
      std::make_shared<const NodeListener>(NodeListener{NodeEvent::Write, wait, &gate, 1}));
  Add({reg});
  device_->Start(kAddress);
  TakeControl();
  Say("42 01 0082 0008 0002 0000A000 00000005", 0ms);
  ASSERT_EQ(gate.entered.get_future().wait_for(10s), std::future_status::ready);
  std::thread stopping([this] { device_->Stop(); });
  EXPECT_TRUE(Eventually([this] { return device_->Local() == Endpoint{}; }));
  device_->Stop();  // somebody else is at it
  EXPECT_EQ(Refusal([&] { device_->Start(kAddress); }), Failure::kWrongState);
  gate.open.set_value();
  stopping.join();
  device_->Start(kAddress);
}

TEST_F(DeviceTest, FinishesACommandWhateverItsLimits) {
  const NodePtr number = NewIntReg("Number", 0xA000);
  const NodePtr limited = NewInteger("Limited", number);
  limited->min = std::int64_t{1};
  Add({number, limited, NewNode(NodeKind::Command, "Fire", limited)});
  device_->Start(kAddress);
  TakeControl();
  EXPECT_EQ(Say("42 01 0082 0008 0002 0000A000 00000001"), Hex("0000 0083 0004 0002 0000 0001"));
  EXPECT_EQ(Say("42 01 0080 0004 0003 0000A000"), Hex("0000 0081 0004 0003 00000000"));
}

}  // namespace
}  // namespace Tarn
