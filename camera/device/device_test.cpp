#include "camera/device/device.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include <functional>
#include <future>
#include <thread>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/net/owned_fd.h"
#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Bytes = std::vector<std::uint8_t>;

/// 127.78.x.y: the control port is fixed, so each process that runs tests takes an address of its own.
const std::uint32_t kAddress = 0x7F4E'0001 + static_cast<std::uint32_t>(getpid()) % 0xFFFE;

class DeviceTest : public testing::Test {
 protected:
  ~DeviceTest() override { device_->Stop(); }

  /// A register of a user at 0xA000 with a listener for writes.
  NodePtr AddRegister(void (*call)(void*), void* context) {
    const NodePtr reg = NewIntReg("Mine", 0xA000);
    reg->listeners.push_back(
        std::make_shared<const NodeListener>(NodeListener{NodeEvent::Write, call, context, 1}));
    const NodeLock lock(device_->Tree());
    device_->Tree().Add(reg);
    return reg;
  }

  void RecordEvents() {
    for (int event = 0; event < 4; ++event) {
      events_[event] = {this, event};
      device_->Events().Register(static_cast<ServerEvent>(event), Record, &events_[event]);
    }
  }

  /// Sends one command and returns the answer; empty when none comes.
  Bytes Say(const std::string& command, milliseconds time = seconds(10)) {
    const Bytes bytes = Hex(command);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(kAddress);
    to.sin_port = htons(kControlPort);
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

  std::string Seen() {
    const MutexLock lock(mutex_);
    return seen_;
  }

  struct Watch {
    DeviceTest* test;
    int event;
  };

  static void Record(void* context) {
    const auto* watch = static_cast<Watch*>(context);
    const MutexLock lock(watch->test->mutex_);
    watch->test->seen_.push_back("CDSE"[watch->event]);
  }

  std::shared_ptr<Device> device_ = Device::Create(SensorFormat{0x01080001, "Mono8", 64, 48, false});
  OwnedFd socket_{socket(AF_INET, SOCK_DGRAM, 0)};
  Watch events_[4] = {};
  Mutex mutex_;
  std::string seen_ TARN_GUARDED_BY(mutex_);
};

bool Eventually(const std::function<bool()>& condition) {
  const Instant end = Now() + seconds(10);
  while (Now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return false;
}

TEST_F(DeviceTest, StartsStopsAndStartsAgain) {
  for (int i = 0; i < 3; ++i) {
    device_->Start(kAddress);
    EXPECT_EQ(device_->Local(), (Endpoint{kAddress, kControlPort}));
    EXPECT_EQ(Refusal([&] { device_->Start(kAddress); }), Failure::kWrongState);
    EXPECT_EQ(Refusal([&] { device_->SetResendDepth(1); }), Failure::kWrongState);
    {
      const NodeLock lock(device_->Tree());
      EXPECT_EQ(Refusal([&] { device_->Tree().Add(NewInteger("Late")); }), Failure::kWrongState);
    }
    EXPECT_EQ(Say("42 11 0002 0000 0001").size(), 256u);
    device_->Stop();
    device_->Stop();
    EXPECT_EQ(device_->Local(), Endpoint{});
    EXPECT_EQ(Say("42 11 0002 0000 0001", milliseconds(20)), Bytes());
  }
}

TEST_F(DeviceTest, StaysStoppedWhenTheAddressCannotBeHad) {
  const auto other = Device::Create(std::nullopt);
  other->Start(kAddress);
  EXPECT_THROW(device_->Start(kAddress), std::system_error);
  EXPECT_THROW(device_->Start(0x01020304), std::system_error);  // nobody's here
  EXPECT_EQ(device_->Local(), Endpoint{});
  {
    const NodeLock lock(device_->Tree());
    device_->Tree().Add(NewInteger("Early"));
  }
  other->Stop();
  device_->Start(kAddress);
}

TEST_F(DeviceTest, StaysStoppedWhenANodeCannotBePublished) {
  const NodePtr empty = NewNode(NodeKind::Enumeration, "Empty");
  {
    const NodeLock lock(device_->Tree());
    device_->Tree().Add(empty);
  }
  EXPECT_EQ(Refusal([&] { device_->Start(kAddress); }), Failure::kInvalidArgument);
  {
    const NodeLock lock(device_->Tree());
    AddRelated(empty, NodeList::Child, NewEntry("Entry", 0), nullptr);
  }
  device_->Start(kAddress);
}

TEST_F(DeviceTest, SharesNothingWithNodesOutsideWhileItIsStarted) {
  const NodePtr reg = NewIntReg("Mine", 0xA000);
  const NodePtr outside = NewInteger("Outside", reg);
  {
    const NodeLock lock(device_->Tree());
    device_->Tree().Add(reg);
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
  const std::string start = "42 01 0082 0008 0002 F000001C 00000001";
  const std::string stop = "42 01 0082 0008 0003 F0000020 00000001";
  Say(start);
  EXPECT_TRUE(device_->AcquisitionActive());
  Say(stop);
  Say("42 01 0082 0008 0004 F000001C 00000001");
  Say("42 01 0082 0008 0005 00000A00 00000000");  // leaving ends the acquisition
  EXPECT_FALSE(device_->AcquisitionActive());
  EXPECT_EQ(device_->Remote(), Endpoint{});
  EXPECT_TRUE(Eventually([&] { return Seen() == "CSESED"; })) << Seen();
  TakeControl();
  Say(start);
  device_->Stop();  // as if the client had left
  EXPECT_EQ(Seen(), "CSESEDCSED");
}

TEST_F(DeviceTest, TakesControlFromASilentClient) {
  RecordEvents();
  device_->Start(kAddress);
  TakeControl();
  Say("42 01 0082 0008 0002 00000938 000001F4");
  EXPECT_TRUE(Eventually([&] { return Seen() == "CD"; })) << Seen();
}

struct Gate {
  std::promise<void> entered;
  std::promise<void> open;
  Device* device = nullptr;
};

TEST_F(DeviceTest, IsNotStartedWhileAListenerHoldsUpItsStop) {
  Gate gate;
  AddRegister(
      [](void* context) {
        auto& inside = *static_cast<Gate*>(context);
        inside.entered.set_value();
        inside.open.get_future().wait_for(seconds(3));  // less than a stop waits
      },
      &gate);
  device_->Start(kAddress);
  TakeControl();
  Say("42 01 0082 0008 0002 0000A000 00000005", milliseconds(0));
  ASSERT_EQ(gate.entered.get_future().wait_for(seconds(10)), std::future_status::ready);
  std::thread stopping([this] { device_->Stop(); });
  EXPECT_TRUE(Eventually([this] { return device_->Local() == Endpoint{}; }));
  device_->Stop();  // somebody else is at it
  EXPECT_EQ(Refusal([&] { device_->Start(kAddress); }), Failure::kWrongState);
  gate.open.set_value();
  stopping.join();
  device_->Start(kAddress);
}

TEST_F(DeviceTest, CanBeStoppedByAListener) {
  Gate gate;
  gate.device = device_.get();
  const NodePtr reg = AddRegister(
      [](void* context) {
        auto& inside = *static_cast<Gate*>(context);
        inside.device->Stop();
        inside.entered.set_value();
      },
      &gate);
  RecordEvents();
  device_->Start(kAddress);
  TakeControl();
  Say("42 01 0082 0008 0002 0000A000 00000005", milliseconds(100));
  ASSERT_EQ(gate.entered.get_future().wait_for(seconds(10)), std::future_status::ready);
  EXPECT_EQ(Seen(), "CD");
  {
    const NodeLock lock(device_->Tree());
    EXPECT_EQ(ReadInteger(*reg), 5);  // the write stands
  }
  // The thread of the listener may still be on its way out, with the socket.
  EXPECT_TRUE(Eventually([this] {
    try {
      device_->Start(kAddress);
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }));
}

TEST_F(DeviceTest, FinishesACommandWhateverItsLimits) {
  const NodePtr number = NewIntReg("Number", 0xA000);
  const NodePtr limited = NewInteger("Limited", number);
  limited->min = std::int64_t{1};
  const NodePtr command = NewNode(NodeKind::Command, "Fire", limited);
  {
    const NodeLock lock(device_->Tree());
    for (const NodePtr& node : {number, limited, command}) device_->Tree().Add(node);
  }
  device_->Start(kAddress);
  TakeControl();
  EXPECT_EQ(Say("42 01 0082 0008 0002 0000A000 00000001"), Hex("0000 0083 0004 0002 0000 0001"));
  EXPECT_EQ(Say("42 01 0080 0004 0003 0000A000"), Hex("0000 0081 0004 0003 00000000"));
}

TEST_F(DeviceTest, EndsByItselfWhenItsLastHolderGoes) {
  const auto other = Device::Create(std::nullopt);
  const std::weak_ptr<Device> watch = other;
  other->Start(kAddress);
  const auto abandoned = [&](std::shared_ptr<Device> last) { last->Abandon(); };
  abandoned(other);
  EXPECT_TRUE(Eventually([&] { return watch.use_count() == 1; }));  // only `other` is left
  device_->Start(kAddress);
}

}  // namespace
}  // namespace Tarn
