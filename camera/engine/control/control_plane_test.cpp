#include "camera/engine/control/control_plane.h"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <set>

#include "camera/engine/control/publication.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"
#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using namespace std::chrono_literals;
using namespace Bootstrap;
using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::uint32_t>;

constexpr Endpoint kA{0x7F000001, 50000};
constexpr Endpoint kASecondSocket{0x7F000001, 50001};
constexpr Endpoint kB{0x7F000002, 50000};
constexpr std::uint32_t kNumber = 0xA000, kWide = 0xA008, kText = 0xA010, kFixed = 0xA020, kSlow = 0xA030;

// Commands as they begin: key, flags, command.
constexpr std::uint32_t kReadReg = 0x4201'0080, kWriteReg = 0x4201'0082, kUnansweredWrite = 0x4200'0082;
constexpr std::uint32_t kReadMem = 0x4201'0084, kWriteMem = 0x4201'0086, kDiscovery = 0x4211'0002;
constexpr std::uint32_t kResend = 0x4200'0040, kExtendedResend = 0x4210'0040, kForceIp = 0x4201'0004;
constexpr std::uint32_t kAct = 0x4201'0100, kUnansweredAct = 0x4200'0100, kScheduledAct = 0x4281'0100;

// Statuses of answers.
constexpr int kDone = 0, kDenied = 0x8006, kBusy = 0x8007, kSilence = -1;

int StatusOf(const Bytes& answer) { return answer.empty() ? kSilence : answer[0] << 8 | answer[1]; }

/// A device whose program is the test: listeners note what they hear of, and may do more.
class ControlPlaneTest : public testing::Test {
 protected:
  ControlPlaneTest() {
    AddStandardFeatures(tree_, kSensor);
    FillConstants(tree_.Memory(), true);
    for (const auto& [name, address] : {std::pair{"Number", kNumber}, {"Fixed", kFixed}, {"Slow", kSlow}}) {
      tree_.Add(NewIntReg(name, address));
    }
    tree_.Find("Fixed")->reg->access = AccessMode::ReadOnly;
    tree_.Add(NewIntReg("Wide", kWide, 8));
    tree_.Add(NewRegister(NodeKind::StringReg, "Text", kText, 16));
    NetworkIdentity network;
    network.address = kA.address;
    network.mask = 0xFF000000;
    network.mac = 0x0011'2233'4455;
    network.max_packet_size = 1500;
    Publish(plane_.Functions(), network, true, true, {1, 0, 0});
    plane_.Open({40001, 40002});
  }

  /// Calls `notice` when a client accesses the node.
  void Listen(const std::string& name, NodeEvent event, std::function<void()> notice) {
    notices_.push_back(std::move(notice));
    const auto call = [](void* context) { (*static_cast<std::function<void()>*>(context))(); };
    const NodeListener listener{event, call, &notices_.back(), 1};
    tree_.Find(name)->listeners.push_back(std::make_shared<const NodeListener>(listener));
  }

  /// A command with an id that was not used before.
  Bytes Command(std::uint32_t start, const Words& payload) {
    Bytes bytes(CommandHeader::kSize + 4 * payload.size());
    ByteWriter out(bytes);
    out.Put(start);
    out.Put(static_cast<std::uint16_t>(4 * payload.size()));
    out.Put(++last_id_);
    for (const std::uint32_t word : payload) out.Put(word);
    return bytes;
  }
  void Receive(Endpoint who, const Bytes& command, bool broadcast = false) {
    plane_.Receive({command, who, broadcast, now_});
  }
  void Receive(Endpoint who, std::uint32_t start, const Words& payload) {
    Receive(who, Command(start, payload));
  }

  /// Calls listeners until no more are to be called, or something was sent.
  void Call(bool until_sent = false) {
    for (Listeners next = plane_.NextCalls(now_); !next.empty(); next = plane_.NextCalls(now_)) {
      if (until_sent && !effects_.datagrams.empty()) return;
      for (const auto& listener : next) listener->call(listener->context);
    }
  }

  /// What was sent since the last call.
  std::vector<ControlDatagram> Sent() { return std::exchange(effects_.datagrams, {}); }

  /// The answer to one command; empty for silence.
  Bytes Say(Endpoint who, const Bytes& command, bool broadcast = false) {
    Receive(who, command, broadcast);
    Call();
    const std::vector<ControlDatagram> sent = Sent();
    EXPECT_LE(sent.size(), 1u);
    return sent.empty() ? Bytes() : Bytes(sent[0].Bytes().begin(), sent[0].Bytes().end());
  }
  Bytes Ask(Endpoint who, std::uint32_t start, const Words& payload, bool broadcast = false) {
    return Say(who, Command(start, payload), broadcast);
  }

  struct Attempt {
    Endpoint who;
    std::uint32_t address, value;
    int status = kDone;
  };
  void Write(const std::vector<Attempt>& attempts) {
    for (const auto& [who, address, value, status] : attempts) {
      EXPECT_EQ(StatusOf(Ask(who, kWriteReg, {address, value})), status)
          << std::hex << who.address << " writes " << value << " to " << address;
    }
  }
  void TakeControl(Endpoint who = kA) { Write({{who, kControlPrivilege, 2}}); }

  void ExpectStored(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& registers) {
    for (const auto& [address, value] : registers) {
      EXPECT_EQ(tree_.Memory().Load32(address), value) << std::hex << address;
    }
  }

  void Pass(Nanoseconds time) {
    now_ += time;
    plane_.Advance(now_);
  }

  /// The orders of one type.
  template <class Order>
  std::vector<Order> Orders() {
    std::vector<Order> found;
    for (const ChannelOrder& order : effects_.channels) {
      if (const auto* wanted = std::get_if<Order>(&order)) found.push_back(*wanted);
    }
    return found;
  }

  static inline const SensorFormat kSensor{0x01080001, "Mono8", 640, 480, false};
  FeatureTree tree_;
  Effects effects_;
  Instant now_{100s};
  DeviceClock clock_{Instant{}};
  ControlPlane plane_{tree_, kSensor, clock_, effects_, 1};
  std::uint16_t last_id_ = 0;
  std::list<std::function<void()>> notices_;
};

TEST_F(ControlPlaneTest, GivesControlToOneAtATime) {
  Write({{kA, kNumber, 5, kDenied}, {kA, kControlPrivilege, 0}});
  Write({{kA, kControlPrivilege, 2}, {kA, kNumber, 5}});
  ExpectStored({{kControlPrivilege, 2}, {kPrimaryAddress, kA.address}, {kPrimaryPort, kA.port}});
  for (const Endpoint other : {kB, kASecondSocket}) {
    for (const std::uint32_t wish : {2u, 1u, 0u}) Write({{other, kControlPrivilege, wish, kDenied}});
    Write({{other, kNumber, 6, kDenied}});
    EXPECT_EQ(Ask(other, kReadReg, {kNumber}).back(), 5);
  }
  Write({{kA, kControlPrivilege, 1}});
  ExpectStored({{kControlPrivilege, 3}});
  EXPECT_EQ(Ask(kB, kReadReg, {kNumber}).size(), 8u) << "nothing but the status";
  EXPECT_EQ(StatusOf(Ask(kB, kReadMem, {kNumber, 4})), kDenied);
  EXPECT_EQ(Ask(kB, kDiscovery, {}).size(), 8u + 248u);
  EXPECT_EQ(StatusOf(Ask(kA, kReadReg, {kNumber})), kDone);
  Write({{kA, kControlPrivilege, 2}, {kA, kStreamPort, 0x1234}, {kA, kControlPrivilege, 0}});
  ExpectStored({{kControlPrivilege, 0}, {kPrimaryAddress, 0}, {kPrimaryPort, 0}, {kStreamPort, 0}});
  ExpectStored({{kNumber, 5}});  // other settings stay
  TakeControl(kB);
  for (const std::uint32_t wish : {3u, 0u}) {
    WriteInteger(*tree_.Find("GevCCP"), wish);
    plane_.OnStored(now_);
    ExpectStored({{kControlPrivilege, wish != 0 ? 2 : 0}});  // a program can end control, and no more
  }
  EXPECT_FALSE(plane_.Privilege().Held());
  using enum ServerEvent;
  EXPECT_EQ(effects_.server_events, (std::vector{Connected, Disconnected, Connected, Disconnected}));
}

TEST_F(ControlPlaneTest, RefusesWithAStatusAndThePlaceOfTheFailure) {
  TakeControl();
  std::string told;
  for (const char* name : {"Number", "Wide", "Text"}) {
    Listen(name, NodeEvent::Write, [&told, name] { told += name[0]; });
  }
  Listen("Number", NodeEvent::Read, [] { ADD_FAILURE() << "a refused read was told"; });
  // Status, what was done before, command, length, payload.
  for (const std::string row :
       {"800E 0000 0080 0000",
        "800E 0000 0080 0006 00000000 0000",
        "8005 0000 0080 0004 00000002",
        "8003 0000 0080 0004 00000018",
        "8003 0000 0080 0008 00000000 0000B000",
        "800E 0000 0084 0007 0000A000 000000",
        "8005 0000 0084 0008 0000A002 00000004",
        "8005 0000 0084 0008 0000A000 00000003",
        "8002 0000 0084 0008 0000A000 00000000",
        "8002 0000 0084 0008 00000200 0000021C",
        "8003 0000 0084 0008 0000A000 00000008",
        "8003 0000 0084 0008 FFFFFFFC 00000008",
        "800E 0000 0100 0008 00000001 00000002",
        "8001 0000 8000 0000",
        "800E 0000 0082 0000",
        "800E 0000 0082 0004 0000A000",
        "8004 0001 0082 0010 0000A000 00000007 00000000 00000001",
        "8005 0000 0082 0010 0000A001 00000000 0000A000 00000006",
        "8003 0002 0082 0018 0000A000 00000006 0000A000 00000007 0000B000 00000001",
        "800E 0000 0086 0004 0000A000",
        "800E 0000 0086 0002 0000",
        "8005 0000 0086 0006 0000A000 0001",
        "8005 0000 0086 0008 0000A00E 00000001",
        "8003 0000 0086 000C FFFFFFFC 00000001 00000001",
        "8004 0018 0086 0020 0000A008 00000000 00000009 61620000 00000000 00000000 00000000 00000001"}) {
    const std::string status = row.substr(0, 4), done = row.substr(5, 4), command = row.substr(10, 4);
    const bool write = command == "0082" || command == "0086";
    Bytes refused = Hex(status + command + (write ? "0004 0001 0000" + done : "0000 0001"));
    refused[3] |= 1;
    EXPECT_EQ(Say(kA, Hex("42 01" + row.substr(10, 9) + "0001" + row.substr(19))), refused) << row;
  }
  EXPECT_EQ(Ask(kA, kScheduledAct, {1, 2, 0xFFFF'FFFF}).size(), 8u) << "without its time";
  EXPECT_EQ(Ask(kB, kReadReg, Words(135)).size(), 548u);
  for (const std::uint32_t start : {kReadReg, kWriteReg}) {
    EXPECT_EQ(StatusOf(Ask(kA, start, Words(136, kNumber))), 0x8002) << "too long";
  }
  ExpectStored({{kNumber, 7}, {kWide, 0}, {kWide + 4, 9}, {kText, 0x61620000}});
  EXPECT_EQ(told, "NNNWT");
}

TEST_F(ControlPlaneTest, StaysSilentWhereAnAnswerIsNotDue) {
  for (const char* command : {"", "42 01 0080 0004 0001", "42 01 0080 0000 00",
                              "42 01 0080 0004 0001 00000000 00", "00 00 0081 0004 0001 00000000",
                              "42 00 0080 0004 0001 00000000", "42 00 0084 0008 0001 00000000 00000004",
                              "42 00 8000 0000 0001", "42 01 0040 000C 0001 00000007 00000003 00FFFFFF",
                              "42 11 0004 0010 0001 00000000000000000000000000000000"}) {
    EXPECT_EQ(Say(kA, Hex(command)), Bytes()) << command;
  }
  EXPECT_EQ(Ask(kA, kReadReg, {0}, true), Bytes()) << "asked of everybody";
  EXPECT_EQ(Ask(kA, kWriteReg, {kControlPrivilege, 2}, true), Bytes());
  TakeControl(kB);
  EXPECT_EQ(Ask(kB, kUnansweredWrite, {kNumber, 7}), Bytes());
  ExpectStored({{kNumber, 7}});  // done all the same
  EXPECT_EQ(Say(kA, Hex("42 01 0002 0000 0000"), true).size(), 256u) << "id 0 is used by some to probe";
}

TEST_F(ControlPlaneTest, CarriesOutNoCommandTwice) {
  TakeControl();
  int told = 0;
  Listen("Number", NodeEvent::Write, [&] { ++told; });
  const Bytes write = Command(kWriteReg, {kNumber, 5});
  const Bytes first = Say(kA, write);
  Write({{kA, kNumber, 6}});
  EXPECT_EQ(Say(kA, write), first);
  EXPECT_EQ(told, 2);
  Bytes of_the_same_id = write;
  of_the_same_id.back() = 7;
  EXPECT_EQ(Say(kA, of_the_same_id), first);
  ExpectStored({{kNumber, 7}});
  EXPECT_EQ(StatusOf(Say(kB, write)), kDenied);
  now_ += 6s;  // nobody repeats a command for so long
  Receive(kA, write);
  EXPECT_EQ(Say(kA, write), first) << "while it waits";
  ExpectStored({{kNumber, 5}});
  // Who comes into control anew may begin with any id.
  Write({{kA, kNumber, 8}, {kA, kControlPrivilege, 0}, {kA, kControlPrivilege, 2}});
  Say(kA, write);
  ExpectStored({{kNumber, 5}});
}

TEST_F(ControlPlaneTest, TakesControlFromASilentClient) {
  EXPECT_EQ(plane_.Deadline(), Instant::max());
  Write({{kA, kControlPrivilege, 2}, {kA, kStreamPort, 0x1234}});
  Pass(2999ms);
  Ask(kA, kReadReg, {kControlPrivilege});
  Pass(2999ms);
  // None of these is a sign of life.
  for (const Endpoint other : {kB, kASecondSocket}) Ask(other, kReadReg, {kControlPrivilege});
  Ask(kA, kDiscovery, {});
  Ask(kA, kResend, {7, 3, 0xFFFFFF});
  Say(kA, Hex("42 01 0080 0008 0001 00000A00"));  // shorter than it says
  ExpectStored({{kControlPrivilege, 2}});
  Pass(1ms);
  ExpectStored({{kControlPrivilege, 0}, {kStreamPort, 0}});

  Write({{kB, kControlPrivilege, 2}, {kB, kHeartbeatTimeout, 1}});  // less than can be
  EXPECT_EQ(plane_.Deadline(), now_ + 500ms);
  Write({{kB, kControlConfiguration, ControlConfiguration::HeartbeatDisable::kMask}});
  EXPECT_EQ(plane_.Deadline(), Instant::max());
  Pass(1h);
  // What a client switched off is on again for the next one.
  Write({{kB, kControlPrivilege, 0}, {kA, kControlPrivilege, 2}});
  EXPECT_EQ(plane_.Deadline(), now_ + 500ms);
  EXPECT_EQ(plane_.Counters().heartbeat_timeouts, 1u);
}

TEST_F(ControlPlaneTest, ForgivesTheSilenceThatAListenerCausesUntilItTakesTooLong) {
  Write({{kA, kControlPrivilege, 2}, {kA, kHeartbeatTimeout, 500}});
  Listen("Slow", NodeEvent::Write, [this] { Pass(2s); });
  Write({{kA, kSlow, 1}, {kA, kControlPrivilege, 0}});
  // Also where the listener is that of control itself.
  Listen("GevCCP", NodeEvent::Write, [this] { now_ += 2s; });
  TakeControl();
  EXPECT_EQ(plane_.Deadline(), now_ + 500ms);

  tree_.Memory().Store32(ManufacturerRegister::kListenerTimeout, 10'000);
  Receive(kA, kWriteReg, {kSlow, 1});
  EXPECT_EQ(plane_.NextCalls(now_).size(), 1u);
  EXPECT_EQ(plane_.Deadline(), now_ + 10s);
  Pass(9'999ms);
  EXPECT_TRUE(plane_.Privilege().Held());
  Pass(1ms);
  EXPECT_FALSE(plane_.Privilege().Held());
  Receive(kB, kWriteReg, {kNumber, 5});
  EXPECT_EQ(Sent().size(), 1u) << "not queued behind it";
}

TEST_F(ControlPlaneTest, KeepsTheCommandsOfOneSourceInOrder) {
  TakeControl();
  std::string heard;
  Listen("Slow", NodeEvent::Write, [&] { heard += std::to_string(tree_.Memory().Load32(kSlow)); });
  for (const std::uint32_t value : {1u, 2u}) Receive(kA, kUnansweredWrite, {kNumber, 0, kSlow, value});
  // A listener that is not active is none.
  const NodeListener inactive{NodeEvent::Read, nullptr, nullptr, 1, false};
  tree_.Find("Number")->listeners = {std::make_shared<const NodeListener>(inactive)};
  Receive(kA, kReadReg, {kNumber});
  Receive(kA, kWriteReg, {kControlPrivilege, 0});
  EXPECT_TRUE(Sent().empty()) << "all wait for the first";
  Receive(kA, kReadReg, {kControlPrivilege});
  EXPECT_EQ(Sent().size(), 1u) << "but the sign of life";
  Receive(kB, kReadReg, {kNumber});
  EXPECT_EQ(Sent().size(), 1u) << "and others";
  Call();
  EXPECT_EQ(heard, "12");
  EXPECT_FALSE(plane_.Privilege().Held());
}

TEST_F(ControlPlaneTest, TakesTurnsBetweenThePrimaryApplicationAndOthers) {
  TakeControl();
  std::string heard;
  Listen("Slow", NodeEvent::Read, [&] { heard += 'r'; });
  Listen("Number", NodeEvent::Write, [&] { heard += 'w'; });
  Receive({0x7F000003, 50000}, kReadMem, {kSlow, 4});
  const Listeners first = plane_.NextCalls(now_);
  ASSERT_EQ(first.size(), 1u);
  for (int i = 0; i < 10; ++i) Receive(kB, kReadReg, {kWide, kSlow});
  for (std::uint16_t port = 1; port <= 20; ++port) Receive({0x7F000004, port}, kReadReg, {kSlow});
  EXPECT_EQ(plane_.Counters().dropped_commands, 8u + 15u) << "two of one, eight of all";
  Receive(kB, kWriteMem, {kText, 0, 0, 0, 0});
  EXPECT_EQ(Sent().size(), 1u) << "what is refused does not wait";
  EXPECT_EQ(plane_.Counters().refused_commands, 1u);
  Receive(kA, kWriteMem, {kNumber, 1});
  for (const auto& listener : first) listener->call(listener->context);
  Call();
  EXPECT_EQ(heard, "rwrrrrrrr");
}

TEST_F(ControlPlaneTest, AsksThePrimaryApplicationForTimeWhereItAllowsThat) {
  Write({{kA, kControlPrivilege, 2}, {kA, kControlConfiguration, ControlConfiguration::PendingAck::kMask}});
  for (const NodeEvent event : {NodeEvent::Write, NodeEvent::Read}) Listen("Slow", event, [] {});
  Receive(kA, Hex("42 01 0082 0008 9999 0000A030 00000001"));
  Receive(kB, kReadReg, {kSlow});
  plane_.NextCalls(now_);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(plane_.Deadline(), now_ + 200ms);
    Pass(200ms);
    const std::vector<ControlDatagram> sent = Sent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].destination, kA);
    EXPECT_EQ(Bytes(sent[0].Bytes().begin(), sent[0].Bytes().end()), Hex("0000 0089 0004 9999 0000 0190"));
  }
  // Switched off while it waits: there is no deadline left but that of the listener.
  tree_.Memory().Store32(kControlConfiguration, 0);
  EXPECT_GT(plane_.Deadline(), now_ + 2s);
}

TEST_F(ControlPlaneTest, HandsControlOverToWhoKnowsTheKey) {
  constexpr std::uint32_t kKey = 0x1234'0000, kWrongKey = 0x1233'0000;
  Write({{kA, kSwitchoverKey, 0x1234, kDenied}, {kA, kControlPrivilege, 2}, {kA, kSwitchoverKey, 0x1234}});
  EXPECT_EQ(Ask(kA, kReadReg, {kSwitchoverKey}).back(), 0) << "nobody sees it";
  Write({{kA, kMessageDestination, kA.address}, {kA, kMessagePort, 0x1235}, {kA, kStreamPort, 0x1234}});
  Write({{kB, kControlPrivilege, kKey | 2, kDenied}, {kA, kControlPrivilege, 6}});  // allowed from now on
  for (const std::uint32_t wish : {0u, kKey, kWrongKey | 2}) Write({{kB, kControlPrivilege, wish, kDenied}});
  now_ += 2s;
  Write({{kB, kControlPrivilege, kKey | 5}});  // alone, and ready to hand it on; the stream goes on
  ExpectStored({{kControlPrivilege, 7}, {kPrimaryAddress, kB.address}, {kStreamPort, 0x1234}});
  EXPECT_EQ(plane_.Deadline(), now_ + 3s);
  EXPECT_EQ(StatusOf(Ask(kA, kReadReg, {kNumber})), kDenied);
  Write({{kA, kNumber, 5, kDenied}, {kB, kNumber, 5}});
  Write({{kA, kControlPrivilege, kKey | 2}, {kB, kControlPrivilege, kKey | 2, kDenied}});  // and back
  Write({{kA, kControlPrivilege, 0}, {kB, kControlPrivilege, 2}});                         // free: no key
  const std::vector<EventReport> reports = Orders<EventReport>();
  ASSERT_EQ(reports.size(), 2u) << "of the two switches";
  EXPECT_EQ(reports[0].item.number, 0x0007);

  Write({{kB, kSwitchoverKey, 0x1234}, {kB, kControlPrivilege, 6}});
  for (int i = 0; i < 100; ++i) Write({{kA, kControlPrivilege, kWrongKey | 2, kDenied}});
  EXPECT_EQ(plane_.Counters().wrong_switchover_keys, 101u);
  Write({{kA, kControlPrivilege, kKey | 2, kDenied}});  // no try is left
  now_ += 1s;
  Write({{kA, kControlPrivilege, kKey | 2}});
}

TEST_F(ControlPlaneTest, SendsToThePrimaryApplicationsHostAlone) {
  constexpr std::uint32_t kGroup = 0xEF00'0001;
  TakeControl();
  Write({{kA, kStreamDestination, kA.address}, {kA, kMessageDestination, kA.address}});
  // One that leaves again takes nothing, and another of the same host may go on.
  Write({{kA, kControlPrivilege, 0}, {kB, kControlPrivilege, 0}, {kASecondSocket, kControlPrivilege, 2}});
  ExpectStored({{kStreamDestination, kA.address}, {kMessageDestination, kA.address}});
  Write({{kASecondSocket, kControlPrivilege, 0}, {kB, kControlPrivilege, 2}});
  ExpectStored({{kStreamDestination, 0}, {kMessageDestination, 0}});
  Write({{kB, kStreamDestination, kGroup}, {kB, kControlPrivilege, 0}});
  Ask(kA, kResend, {7, 3, 0xFFFFFF});
  Write({{kA, kControlPrivilege, 2}, {kA, kStreamPort, 0x1234}});
  ExpectStored({{kStreamDestination, kGroup}});
  Ask(kB, kResend, {7, 3, 0xFFFFFF});
  Ask(kA, kResend, {0x0001'0007, 3, 0xFFFFFF});  // a channel that does not exist
  Ask(kA, kExtendedResend, {7, 3, 0xFFFFFF});    // shorter than it says
  EXPECT_TRUE(Orders<ResendRequest>().empty());
  Ask(kASecondSocket, kResend, {7, 3, 0xFFFFFF});
  Ask(kA, kExtendedResend, {0, 3, 0xFFFFFFFF, 1, 7});
  const std::vector<ResendRequest> requests = Orders<ResendRequest>();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].block_id, 7u);
  EXPECT_EQ(requests[1].block_id, 0x1'0000'0007u);
  Write({{kA, ManufacturerRegister::kAcquisitionStart, 1}, {kA, kStreamDestination, kGroup, kBusy}});
  Write({{kA, kStreamPort, 0}});
  EXPECT_FALSE(plane_.Functions().TheAcquisition().Active()) << "a closed channel";
}

TEST_F(ControlPlaneTest, ConfirmsItsAddressButTakesNoOther) {
  const auto force = [this](std::uint32_t mac, std::uint32_t address) {
    const Words wanted{0x0011, mac, 0, 0, 0, address, 0, 0, 0, 0xFF000000, 0, 0, 0, 0};
    return StatusOf(Ask(kA, kForceIp, wanted, true));
  };
  EXPECT_EQ(force(0x2233'4455, kA.address), kDone);
  EXPECT_EQ(force(0x2233'4455, 0x0A000005), kDenied);
  EXPECT_EQ(force(0x2233'4455, 0), kSilence);
  EXPECT_EQ(force(0x2233'4456, kA.address), kSilence);
  TakeControl();
  EXPECT_EQ(force(0x2233'4455, kA.address), kSilence) << "somebody is at work";
}

TEST_F(ControlPlaneTest, AnswersDiscoveriesWhereverTheAnswerArrivesAndAtRandomTimes) {
  constexpr Endpoint kStray{0x0A000001, 50000};
  const auto destination = [this](Endpoint who, std::uint32_t start, bool broadcast) {
    Receive(who, Command(start, {}), broadcast);
    return Sent().at(0).destination.address;
  };
  EXPECT_EQ(destination(kStray, kDiscovery, true), 0xFFFF'FFFF);
  EXPECT_EQ(destination(kStray, 0x4201'0002, true), kStray.address) << "not allowed";
  EXPECT_EQ(destination(kStray, kDiscovery, false), kStray.address) << "it reached us";
  EXPECT_EQ(destination(kB, kDiscovery, true), kB.address) << "in the subnet";

  Write({{kA, kControlPrivilege, 2}, {kA, kDiscoveryDelay, 100}});
  EXPECT_EQ(Ask(kA, kDiscovery, {}).size(), 256u);
  std::set<Instant> due;
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Ask(kA, kDiscovery, {}, true), Bytes());
    due.insert(plane_.Deadline());
    Pass(100ms);
    EXPECT_EQ(Sent().size(), 1u);
  }
  EXPECT_GT(due.size(), 5u);
}

TEST_F(ControlPlaneTest, LimitsWhatAnybodyCausesToBeSent) {
  const auto answers = [this](Endpoint who, std::uint32_t start, const Words& payload, int most) {
    int count = 0;
    while (count < most && !Ask(who, start, payload).empty()) ++count;
    return count;
  };
  EXPECT_EQ(answers(kA, kDiscovery, {}, 100), 64);
  EXPECT_EQ(answers(kASecondSocket, kDiscovery, {}, 1), 0) << "a port is as easily forged";
  EXPECT_EQ(answers(kB, kDiscovery, {}, 64), 64);
  now_ += 500ms;
  EXPECT_EQ(answers(kA, kDiscovery, {}, 100), 25);

  TakeControl(kB);
  constexpr int kAnyDescription = 8'000'000 / 512, kForever = 20'000'000 / 512;
  const int blocks = answers(kA, kReadMem, {0xF1000000, 512}, kForever);
  EXPECT_GT(blocks, kAnyDescription);
  EXPECT_LT(blocks, kForever);
  EXPECT_EQ(answers(kB, kReadMem, {0xF1000000, 512}, kForever), kForever);
  // What gains a forger nothing stays open, as long as it is not too much work.
  EXPECT_EQ(answers(kA, kReadMem, {kNumber, 4}, 1), 1);
  EXPECT_GT(answers(kA, kReadReg, {kNumber}, 1'000'000), 100'000);
  EXPECT_EQ(answers(kA, kReadReg, {kNumber}, 1), 0);
  EXPECT_EQ(answers(kB, kReadReg, {kNumber}, 1), 1);
}

class ActionTest : public ControlPlaneTest {
 protected:
  static constexpr std::uint32_t kDevice = 7;

  ActionTest() {
    Write({{kA, kControlPrivilege, 2}, {kA, kActionDeviceKey, kDevice}});
    Write({{kA, kControlConfiguration, ControlConfiguration::ExtendedStatus2::kMask}});
    Write({{kA, kActionGroupKeys, 2}, {kA, kActionGroupMasks, 0x1}});
    Write({{kA, kActionGroupKeys + 0x10, 2}, {kA, kActionGroupMasks + 0x10, 0x6}});
    Write({{kA, kActionGroupKeys + 0x20, 3}, {kA, kActionGroupMasks + 0x20, 0xFFFF'FFFF}});
  }

  /// How often each signal has fired since the last call: "1010".
  std::string Fired() {
    std::string fired;
    for (std::uint32_t signal = 0; signal < kActionSignals; ++signal) {
      const std::uint32_t count = tree_.Memory().Load32(ManufacturerRegister::kActionCounts + 4 * signal);
      fired += std::to_string(count - std::exchange(seen_[signal], count));
    }
    return fired;
  }
  /// What fires at once.
  std::string Act(Endpoint who, const Words& keys) {
    Ask(who, kAct, keys);
    return Fired();
  }
  int Schedule(std::uint64_t at_ms, std::uint32_t mask, Endpoint who = kB) {
    const std::uint64_t time = at_ms * 1'000'000;
    const auto high = static_cast<std::uint32_t>(time >> 32), low = static_cast<std::uint32_t>(time);
    return StatusOf(Ask(who, kScheduledAct, {kDevice, 2, mask, high, low}));
  }
  /// What fires by the time that is then.
  std::string PassTo(int at_ms) {
    now_ = Instant(std::chrono::milliseconds(at_ms));
    plane_.Advance(now_);
    Ask(kA, kReadReg, {kControlPrivilege});  // a sign of life
    return Fired();
  }

  std::uint32_t seen_[kActionSignals] = {};
};

TEST_F(ActionTest, FireWhereKeysAndMasksMatch) {
  for (const Endpoint who : {kA, kB}) {
    EXPECT_EQ(Act(who, {kDevice, 2, 0x1}), "1000");
    EXPECT_EQ(Act(who, {kDevice, 2, 0x4}), "0100");
    EXPECT_EQ(Act(who, {kDevice, 2, 0xFFFF'FFFF}), "1100");
    EXPECT_EQ(Act(who, {kDevice, 3, 0x8000'0000}), "0010");
    EXPECT_EQ(Act(who, {kDevice, 0, 0xFFFF'FFFF}), "0000") << "the fourth signal has no mask";
    EXPECT_EQ(Ask(who, kAct, {kDevice, 2, 0x8}), Bytes());
    EXPECT_EQ(Ask(who, kAct, {kDevice - 1, 2, 0xFFFF'FFFF}), Bytes());
  }
  // Asked of everybody, and without a wish for an answer.
  EXPECT_EQ(StatusOf(Ask(kB, kAct, {kDevice, 3, 1}, true)), kDone);
  EXPECT_EQ(Ask(kB, kUnansweredAct, {kDevice, 3, 1}, true), Bytes());
  EXPECT_EQ(Ask(kB, kAct, {kDevice, 3}, true), Bytes());
  EXPECT_EQ(Fired(), "0020");
  Write({{kA, kControlPrivilege, 0}});
  EXPECT_EQ(Act(kB, {kDevice, 3, 1}), "0000") << "nobody is in control";
  Write({{kA, kControlPrivilege, 2}});
  Write({{kA, kControlConfiguration, ControlConfiguration::UnconditionalAction::kMask}});
  Write({{kA, kControlPrivilege, 0}});
  EXPECT_EQ(Act(kB, {kDevice, 3, 1}), "0010");
}

TEST_F(ActionTest, ThatAreRepeatedFireOnceForEachSource) {
  const Bytes command = Command(kAct, {kDevice, 2, 1});
  Bytes of_the_same_id = command;
  of_the_same_id.back() = 4;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(StatusOf(Say(kB, command, i == 1)), kDone);
  EXPECT_EQ(Fired(), "1000");
  Say(kA, command);
  Say(kB, of_the_same_id);
  EXPECT_EQ(Fired(), "1100");
  now_ += 10s;  // nobody repeats a command for so long: it is a new one
  Say(kB, command);
  EXPECT_EQ(Fired(), "1000");
}

TEST_F(ActionTest, ScheduledFireInTheOrderOfTheirTimesOrSayWhyNot) {
  constexpr int kError = 0x8FFF, kOverflow = 0x8015, kLate = 0x8016;
  const Instant heartbeat = plane_.Deadline();
  const std::uint32_t plan[][2] = {{100'300, 1}, {100'100, 2}, {100'300, 6}, {100'200, 7}};
  for (const auto& [at, mask] : plan) EXPECT_EQ(Schedule(at, mask), kDone);
  EXPECT_EQ(plane_.Deadline(), Instant(100'100ms));
  EXPECT_EQ(PassTo(100'099), "0000");
  EXPECT_EQ(PassTo(100'250), "1200");
  EXPECT_EQ(PassTo(100'300), "1100");
  EXPECT_GE(plane_.Deadline(), heartbeat);

  EXPECT_EQ(Schedule(100'300, 1), kLate) << "this very moment";
  EXPECT_EQ(Schedule(1, 1), kLate);
  EXPECT_EQ(Fired(), "2000");
  EXPECT_EQ(Schedule(100'300 + 301'000, 1), kOverflow) << "for too long";
  for (int i = 0; i < 16; ++i) EXPECT_EQ(Schedule(100'500, 1, i < 10 ? kA : kB), kDone) << i;
  EXPECT_EQ(Schedule(100'500, 1), kOverflow);
  Write({{kA, kControlConfiguration, 0}});
  EXPECT_EQ(Schedule(100'500, 1), kError) << "to a client that did not ask for the newer codes";
  // What a client had planned goes with it; what others had happens where somebody is in control then.
  Write({{kA, kControlPrivilege, 0}, {kA, kControlPrivilege, 2}});
  EXPECT_EQ(PassTo(100'500), "6000");
  EXPECT_EQ(Schedule(100'600, 1), kDone);
  Write({{kA, kControlPrivilege, 0}});
  EXPECT_EQ(PassTo(100'600), "0000");
}

TEST_F(ActionTest, NeverKeepAClientWaiting) {
  Listen("Number", NodeEvent::Write, [] {});
  int heard = 0;
  Listen("ActionCount1", NodeEvent::Write, [&] { ++heard; });
  for (int i = 0; i < 100; ++i) Receive(kB, kUnansweredAct, {kDevice, 2, 1});
  EXPECT_EQ(plane_.Counters().dropped_notifications, 100u - 64u);
  EXPECT_EQ(Fired(), "100000");
  Receive(kA, kWriteReg, {kNumber, 1});
  Call(true);
  EXPECT_EQ(Sent().size(), 1u);
  EXPECT_LE(heard, 2);
}

}  // namespace
}  // namespace Tarn
