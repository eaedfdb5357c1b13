#include "camera/engine/control/control_plane.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <functional>
#include <list>
#include <set>

#include "camera/engine/control/publication.h"
#include "camera/engine/features/event_features.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"
#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using std::chrono::milliseconds;
using Bytes = std::vector<std::uint8_t>;

constexpr Endpoint kA{0x7F000001, 50000};
constexpr Endpoint kASecondSocket{0x7F000001, 50001};
constexpr Endpoint kB{0x7F000002, 50000};

/// A device whose program is the test: listeners note what they hear of, and may do more.
class ControlPlaneTest : public testing::Test {
 protected:
  ControlPlaneTest() {
    AddStandardFeatures(tree_, SensorFormat{0x01080001, "Mono8", 640, 480, false});
    FillConstants(tree_.Memory(), true);
    NetworkIdentity network;
    network.address = 0x7F000001;
    network.mask = 0xFF000000;
    network.mac = 0x0011'2233'4455;
    network.max_packet_size = 1500;
    number_ = NewIntReg("Number", 0xA000);
    wide_ = NewIntReg("Wide", 0xA008, 8);
    text_ = NewRegister(NodeKind::StringReg, "Text", 0xA010, 16);
    const NodePtr fixed = NewIntReg("Fixed", 0xA020);
    fixed->reg->access = AccessMode::ReadOnly;
    slow_ = NewIntReg("Slow", 0xA030);
    for (const NodePtr& node : {number_, wide_, text_, fixed, slow_}) tree_.Add(node);
    Publish(plane_.Functions(), network, true, true, {1, 0, 0});
    plane_.Open({kStreamPort, kMessagePort});
  }

  /// Calls `notice` when a client accesses the node.
  void Listen(const NodePtr& node, NodeEvent event, std::function<void()> notice) {
    notices_.push_back(std::move(notice));
    const auto call = [](void* context) { (*static_cast<std::function<void()>*>(context))(); };
    node->listeners.push_back(
        std::make_shared<const NodeListener>(NodeListener{event, call, &notices_.back(), 1}));
  }

  void Receive(Endpoint who, const std::string& command, bool broadcast = false) {
    const Bytes bytes = Hex(command);
    plane_.Receive({bytes, who, broadcast, now_});
  }

  /// Calls the listeners that are to be called, until none is.
  void Call() {
    for (Listeners next = plane_.NextCalls(now_); !next.empty(); next = plane_.NextCalls(now_)) {
      for (const auto& listener : next) listener->call(listener->context);
    }
  }

  /// What was sent since the last call.
  std::vector<ControlDatagram> Sent() { return std::exchange(effects_.datagrams, {}); }

  /// The answer to one command; empty for silence.
  Bytes Say(Endpoint who, const std::string& command, bool broadcast = false) {
    Receive(who, command, broadcast);
    Call();
    const std::vector<ControlDatagram> sent = Sent();
    if (sent.empty()) return {};
    EXPECT_EQ(sent.size(), 1u);
    const ByteView bytes = sent.back().Bytes();
    return Bytes(bytes.begin(), bytes.end());
  }

  /// As Say, but without a listener being called.
  Bytes SayAtOnce(Endpoint who, const std::string& before_id, const std::string& payload) {
    Receive(who, before_id + NextId() + payload);
    const std::vector<ControlDatagram> sent = Sent();
    if (sent.empty()) return {};
    return Bytes(sent.back().Bytes().begin(), sent.back().Bytes().end());
  }

  /// As Say, with a request id that was not used before.
  Bytes Fresh(Endpoint who, const std::string& before_id, const std::string& payload) {
    Bytes answer = Say(who, before_id + NextId() + payload);
    if (answer.size() >= 8) answer[6] = answer[7] = 0;
    return answer;
  }
  std::string NextId() {
    std::array<char, 8> id{};
    std::snprintf(id.data(), id.size(), " %04X ", ++last_id_);
    return id.data();
  }

  Bytes Write(Endpoint who, const std::string& pair) { return Fresh(who, "42 01 0082 0008", pair); }
  Bytes Read(Endpoint who, const std::string& address) { return Fresh(who, "42 01 0080 0004", address); }
  std::uint32_t Stored(std::uint32_t address) { return tree_.Memory().Load32(address); }
  std::uint32_t Count(std::uint32_t signal) {
    return Stored(ManufacturerRegister::kActionCounts + 4 * signal);
  }

  void Pass(milliseconds time) {
    now_ += time;
    plane_.Advance(now_);
  }

  /// The orders of one type since the last call for the type.
  template <class Order>
  std::vector<Order> Orders() {
    std::vector<Order> found;
    for (const ChannelOrder& order : effects_.channels) {
      if (const auto* wanted = std::get_if<Order>(&order)) found.push_back(*wanted);
    }
    std::erase_if(effects_.channels,
                  [](const ChannelOrder& order) { return std::holds_alternative<Order>(order); });
    return found;
  }
  std::vector<std::uint16_t> Reported() {
    std::vector<std::uint16_t> numbers;
    for (const EventReport& event : Orders<EventReport>()) numbers.push_back(event.item.number);
    return numbers;
  }

  static constexpr std::uint16_t kStreamPort = 40001;
  static constexpr std::uint16_t kMessagePort = 40002;

  FeatureTree tree_;
  Effects effects_;
  Instant now_{std::chrono::seconds(100)};
  DeviceClock clock_{Instant{}};
  ControlPlane plane_{tree_, SensorFormat{0x01080001, "Mono8", 640, 480, false}, clock_, effects_, 1};
  NodePtr number_;
  NodePtr wide_;
  NodePtr text_;
  NodePtr slow_;
  std::uint16_t last_id_ = 0x4000;
  std::list<std::function<void()>> notices_;
};

const char* const kTakeControl = "00000A00 00000002";
const char* const kTakeAlone = "00000A00 00000001";
const char* const kLeave = "00000A00 00000000";
const Bytes kWritten = Hex("0000 0083 0004 0000 0000 0001");
const Bytes kDenied = Hex("8006 0083 0004 0000 0000 0000");

TEST_F(ControlPlaneTest, GivesControlToOneAtATime) {
  EXPECT_EQ(Write(kA, "0000A000 00000005"), kDenied);  // nobody is in control
  EXPECT_EQ(Write(kA, kLeave), kWritten);
  EXPECT_EQ(Write(kA, kTakeControl), kWritten);
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 2u);
  EXPECT_EQ(Stored(Bootstrap::kPrimaryAddress), kA.address);
  EXPECT_EQ(Stored(Bootstrap::kPrimaryPort), kA.port);
  EXPECT_EQ(Write(kA, "0000A000 00000005"), kWritten);
  for (const Endpoint other : {kB, kASecondSocket}) {
    EXPECT_EQ(Write(other, "0000A000 00000006"), kDenied);
    for (const char* wish : {kTakeControl, kTakeAlone, kLeave}) EXPECT_EQ(Write(other, wish), kDenied);
    EXPECT_EQ(Read(other, "0000A000"), Hex("0000 0081 0004 0000 00000005"));
  }
  EXPECT_EQ(Write(kA, kTakeAlone), kWritten);
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 3u);
  EXPECT_EQ(Read(kB, "0000A000"), Hex("8006 0081 0000 0000"));
  EXPECT_EQ(Fresh(kB, "42 01 0084 0008", "0000A000 0000 0004"), Hex("8006 0085 0000 0000"));
  EXPECT_EQ(Fresh(kB, "42 01 0002 0000", "").size(), 8u + 248u);
  EXPECT_EQ(Read(kA, "0000A000"), Hex("0000 0081 0004 0000 00000005"));
  EXPECT_EQ(Write(kA, kTakeControl), kWritten);
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 2u);
  EXPECT_EQ(Write(kA, "00000D00 00001234"), kWritten);
  EXPECT_EQ(Write(kA, kLeave), kWritten);
  for (const std::uint32_t address : {Bootstrap::kControlPrivilege, Bootstrap::kPrimaryAddress,
                                      Bootstrap::kPrimaryPort, Bootstrap::kStreamPort}) {
    EXPECT_EQ(Stored(address), 0u) << std::hex << address;
  }
  EXPECT_EQ(Stored(0xA000), 5u);  // other settings stay
  EXPECT_EQ(Write(kB, kTakeControl), kWritten);
}

TEST_F(ControlPlaneTest, RefusesReadsWithTheirStatusAndNothingElse) {
  const struct {
    const char* command;
    const char* answer;
  } rows[] = {
      {"42 01 0080 0000 0001", "800E 0081 0000 0001"},
      {"42 01 0080 0006 0001 00000000 0000", "800E 0081 0000 0001"},
      {"42 01 0080 0004 0001 00000002", "8005 0081 0000 0001"},
      {"42 01 0080 0004 0001 00000018", "8003 0081 0000 0001"},           // a hole
      {"42 01 0080 0008 0001 00000000 0000B000", "8003 0081 0000 0001"},  // all or nothing
      {"42 01 0084 0007 0001 0000A000 000000", "800E 0085 0000 0001"},
      {"42 01 0084 0008 0001 0000A002 0000 0004", "8005 0085 0000 0001"},
      {"42 01 0084 0008 0001 0000A000 0000 0003", "8005 0085 0000 0001"},
      {"42 01 0084 0008 0001 0000A000 0000 0000", "8002 0085 0000 0001"},
      {"42 01 0084 0008 0001 00000200 0000 021C", "8002 0085 0000 0001"},  // 540 bytes
      {"42 01 0084 0008 0001 0000A000 0000 0008", "8003 0085 0000 0001"},  // half of it is nowhere
      {"42 01 0084 0008 0001 FFFFFFFC 0000 0008", "8003 0085 0000 0001"},
      {"42 01 8000 0000 0001", "8001 8001 0000 0001"},
      {"42 01 0100 0008 0001 00000001 00000002", "800E 0101 0000 0001"},
      {"42 81 0100 000C 0001 00000001 00000002 FFFFFFFF", "800E 0101 0000 0001"},  // without its time
  };
  Listen(number_, NodeEvent::Read, [] { ADD_FAILURE() << "a refused read was told"; });
  for (const auto& row : rows) EXPECT_EQ(Say(kA, row.command), Hex(row.answer)) << row.command;
  number_->listeners.clear();
  std::string words;
  for (int i = 0; i < 135; ++i) words += "00000000";
  EXPECT_EQ(Say(kA, "42 01 0080 021C 0001" + words).size(), 548u);
  EXPECT_EQ(Say(kA, "42 01 0080 0220 0001" + words + "00000000"), Hex("8002 0081 0000 0001"));
}

TEST_F(ControlPlaneTest, RefusesWritesWithThePlaceOfTheFailure) {
  Write(kA, kTakeControl);
  std::string told;
  Listen(number_, NodeEvent::Write, [&] { told += 'n'; });
  Listen(wide_, NodeEvent::Write, [&] { told += 'w'; });
  Listen(text_, NodeEvent::Write, [&] { told += 't'; });
  const std::string number = "0000A000 00000007";
  const struct {
    std::string command;
    const char* answer;
  } rows[] = {
      {"42 01 0082 0000 0001", "800E 0083 0004 0001 0000 0000"},
      {"42 01 0082 0004 0002 0000A000", "800E 0083 0004 0002 0000 0000"},
      {"42 01 0082 0010 0003" + number + "00000000 00000001", "8004 0083 0004 0003 0000 0001"},
      {"42 01 0082 0010 0004 0000A001 00000000" + number, "8005 0083 0004 0004 0000 0000"},
      {"42 01 0082 0018 0005" + number + number + "0000B000 00000001", "8003 0083 0004 0005 0000 0002"},
      {"42 01 0082 0008 0006 0000A020 00000001", "8004 0083 0004 0006 0000 0000"},
      {"42 01 0082 0008 0007 00000D18 7F000002", "8002 0083 0004 0007 0000 0000"},  // somebody else's address
      {"42 01 0086 0004 0008 0000A000", "800E 0087 0004 0008 0000 0000"},
      {"42 01 0086 0002 0009 0000", "800E 0087 0004 0009 0000 0000"},
      {"42 01 0086 0006 000A 0000A000 0001", "8005 0087 0004 000A 0000 0000"},
      {"42 01 0086 0008 000B 0000A00E 00000001", "8005 0087 0004 000B 0000 0000"},
      {"42 01 0086 0008 000C 0000A014 FF000000", "8002 0087 0004 000C 0000 0000"},  // no UTF-8
      {"42 01 0086 000C 000D FFFFFFFC 00000001 00000001", "8003 0087 0004 000D 0000 0000"},
      // The wide register is taken whole; then come the text and the one that cannot be written.
      {"42 01 0086 0020 000E 0000A008 0000000000000009 61620000000000000000000000000000 00000001",
       "8004 0087 0004 000E 0000 0018"},
  };
  for (const auto& row : rows) EXPECT_EQ(Say(kA, row.command), Hex(row.answer)) << row.command;
  EXPECT_EQ(Stored(0xA000), 7u);
  EXPECT_EQ(ReadInteger(*wide_), 9);
  EXPECT_EQ(ReadText(*tree_.Find("Text")), "ab");
  EXPECT_EQ(told, "nnnwt");
  std::string pairs;
  for (int i = 0; i < 68; ++i) pairs += number;
  EXPECT_EQ(Say(kA, "42 01 0082 0220 000F" + pairs), Hex("8002 0083 0004 000F 0000 0000"));
}

TEST_F(ControlPlaneTest, SaysBusyForWhatStandsStillWhileStreaming) {
  Write(kA, kTakeControl);
  Write(kA, "00000D00 00001234");
  Write(kA, "F000001C 00000001");
  EXPECT_EQ(Say(kA, "42 01 0082 0008 0001 00000D18 7F000001"), Hex("8007 0083 0004 0001 0000 0000"));
  EXPECT_EQ(Say(kA, "42 01 0082 0008 0002 00000D00 00000000"), Hex("0000 0083 0004 0002 0000 0001"));
  EXPECT_FALSE(plane_.Functions().TheAcquisition().Active()) << "a closed channel";
}

TEST_F(ControlPlaneTest, StaysSilentWhereAnAnswerIsNotDue) {
  const char* const number = "0000A000 00000007";
  for (const char* command : {
           "",
           "42 01 0080 0004 0001",
           "42 01 0080 0000 00",
           "42 01 0080 0004 0001 00000000 00",
           "00 00 0081 0004 0001 00000000",
           "42 00 0080 0004 0001 00000000",
           "42 00 0084 0008 0001 00000000 0000 0004",
           "42 00 8000 0000 0001",
           "42 01 0040 000C 0001 0000 0007 00000003 00FFFFFF",
           "42 11 0004 0010 0001 00000000000000000000000000000000",
       }) {
    EXPECT_EQ(Say(kA, command), Bytes()) << command;
  }
  EXPECT_EQ(Say(kA, "42 01 0080 0004 0001 00000000", true), Bytes());  // asked of everybody
  EXPECT_EQ(Say(kA, "42 01 0082 0008 0001 00000A00 00000002", true), Bytes());
  EXPECT_FALSE(plane_.Privilege().Held());
  Write(kA, kTakeControl);
  EXPECT_EQ(Say(kA, "42 00 0082 0008 0001" + std::string(number)), Bytes());
  EXPECT_EQ(Stored(0xA000), 7u);                                  // done all the same
  EXPECT_EQ(Say(kA, "42 01 0002 0000 0000", true).size(), 256u);  // id 0 is used by some to probe
}

TEST_F(ControlPlaneTest, CarriesOutNoCommandTwice) {
  Write(kA, kTakeControl);
  int told = 0;
  Listen(number_, NodeEvent::Write, [&] { ++told; });
  const std::string write = "42 01 0082 0008 0001 0000A000 00000005";
  const Bytes first = Say(kA, write);
  Say(kA, "42 01 0082 0008 0002 0000A000 00000006");
  EXPECT_EQ(Say(kA, write), first);
  EXPECT_EQ(Stored(0xA000), 6u);
  EXPECT_EQ(told, 2);
  EXPECT_EQ(Say(kA, "42 01 0082 0008 0001 0000A000 00000007"), first) << "one of the same id";
  EXPECT_EQ(Stored(0xA000), 7u);
  EXPECT_EQ(Say(kB, write), Hex("8006 0083 0004 0001 0000 0000"));
  now_ += std::chrono::seconds(6);  // nobody repeats a command for so long
  plane_.Receive({Hex(write), kA, false, now_});
  Receive(kA, write);  // while it waits
  Call();
  EXPECT_EQ(Sent().size(), 1u);
  EXPECT_EQ(Stored(0xA000), 5u);
  // Who comes into control anew may begin with any id.
  Say(kA, "42 01 0082 0008 0003 0000A000 00000008");
  Write(kA, kLeave);
  Write(kA, kTakeControl);
  Say(kA, write);
  EXPECT_EQ(Stored(0xA000), 5u);
}

TEST_F(ControlPlaneTest, TakesControlFromASilentClient) {
  EXPECT_EQ(plane_.Deadline(), Instant::max());
  Write(kA, kTakeControl);
  Write(kA, "00000D00 00001234");
  Pass(milliseconds(2999));
  Read(kA, "00000A00");
  Pass(milliseconds(2999));
  EXPECT_TRUE(plane_.Privilege().Held());
  // None of these is a sign of life.
  Read(kB, "00000A00");
  Read(kASecondSocket, "00000A00");
  Say(kA, "42 11 0002 0000 0001");
  Say(kA, "42 00 0040 000C 0001 0000 0007 00000003 00FFFFFF");
  Say(kA, "42 01 0080 0008 0001 00000A00");  // shorter than it says
  Pass(milliseconds(1));
  EXPECT_FALSE(plane_.Privilege().Held());
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 0u);
  EXPECT_EQ(Stored(Bootstrap::kStreamPort), 0u);

  Write(kB, kTakeControl);
  Write(kB, "00000938 00000001");  // less than can be
  EXPECT_EQ(plane_.Deadline(), now_ + milliseconds(500));
  Write(kB, "00000954 00000001");
  EXPECT_EQ(plane_.Deadline(), Instant::max());
  Pass(std::chrono::hours(1));
  EXPECT_TRUE(plane_.Privilege().IsPrimary(kB));
  // What a client switched off is on again for the next one.
  Write(kB, kLeave);
  Write(kA, kTakeControl);
  EXPECT_EQ(plane_.Deadline(), now_ + milliseconds(500));
  EXPECT_EQ(plane_.Counters().heartbeat_timeouts, 1u);
}

TEST_F(ControlPlaneTest, LetsTheProgramEndControl) {
  Write(kA, kTakeControl);
  const NodePtr privilege = tree_.Find("GevCCP");
  for (const std::int64_t wish : {std::int64_t{3}, std::int64_t{0}}) {
    WriteInteger(*privilege, wish);
    plane_.OnStored(now_);
    EXPECT_EQ(plane_.Privilege().IsPrimary(kA), wish != 0);
    EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), wish != 0 ? 2u : 0u) << "as it is, not as it was stored";
  }
  using enum ServerEvent;
  EXPECT_EQ(effects_.server_events, (std::vector{Connected, Disconnected}));
  EXPECT_EQ(Write(kA, "0000A000 00000005"), kDenied);
}

TEST_F(ControlPlaneTest, TakesControlFromAClientWhoseListenerTakesTooLong) {
  Write(kA, kTakeControl);
  tree_.Memory().Store32(ManufacturerRegister::kListenerTimeout, 10'000);
  Listen(slow_, NodeEvent::Write, [] {});
  Receive(kA, "42 01 0082 0008 0001 0000A030 00000001");
  EXPECT_EQ(plane_.NextCalls(now_).size(), 1u);
  EXPECT_EQ(plane_.Deadline(), now_ + milliseconds(10'000));
  Pass(milliseconds(9'999));
  EXPECT_TRUE(plane_.Privilege().Held());
  Pass(milliseconds(1));
  EXPECT_FALSE(plane_.Privilege().Held());
  EXPECT_EQ(SayAtOnce(kB, "42 01 0082 0008", "0000A000 00000005").size(), 12u) << "not queued behind it";
}

TEST_F(ControlPlaneTest, CountsNoSilenceThatAListenerCaused) {
  Write(kA, kTakeControl);
  Write(kA, "00000938 000001F4");  // 500 ms
  Listen(slow_, NodeEvent::Write, [this] { Pass(milliseconds(2000)); });
  EXPECT_EQ(Write(kA, "0000A030 00000001"), kWritten);
  EXPECT_EQ(plane_.Deadline(), now_ + milliseconds(500));
  // Also where the listener is that of control itself.
  Write(kA, kLeave);
  Listen(tree_.Find("GevCCP"), NodeEvent::Write, [this] { now_ += milliseconds(2000); });
  EXPECT_EQ(Write(kA, kTakeControl), kWritten);
  EXPECT_EQ(plane_.Deadline(), now_ + milliseconds(500));
  Pass(milliseconds(500));
  EXPECT_FALSE(plane_.Privilege().Held());
}

TEST_F(ControlPlaneTest, KeepsTheCommandsOfOneSourceInOrder) {
  Write(kA, kTakeControl);
  std::string heard;
  Listen(slow_, NodeEvent::Write, [&] { heard += std::to_string(Stored(0xA030)); });
  Receive(kA, "42 00 0082 0008 0001 0000A030 00000001");  // without a wish for an answer
  Receive(kA, "42 00 0082 0008 0002 0000A030 00000002");
  Receive(kA, "42 01 0080 0004 0003 0000A000");
  Receive(kA, "42 01 0082 0008 0004 00000A00 00000000");
  EXPECT_TRUE(Sent().empty()) << "all wait for the first";
  Receive(kA, "42 01 0080 0004 0005 00000A00");
  EXPECT_EQ(Sent().size(), 1u) << "but the sign of life";
  EXPECT_EQ(SayAtOnce(kB, "42 01 0080 0004", "0000A000").size(), 12u) << "and others";
  Call();
  EXPECT_EQ(heard, "12");
  EXPECT_FALSE(plane_.Privilege().Held());
}

TEST_F(ControlPlaneTest, TakesTurnsBetweenThePrimaryApplicationAndOthers) {
  Write(kA, kTakeControl);
  std::string heard;
  Listen(slow_, NodeEvent::Read, [&] { heard += 'r'; });
  Listen(number_, NodeEvent::Write, [&] { heard += 'w'; });
  const auto read_slow = [this](Endpoint who) { Receive(who, "42 01 0080 0004" + NextId() + "0000A030"); };
  const Endpoint c{0x7F000003, 50000};
  read_slow(c);
  const Listeners first = plane_.NextCalls(now_);
  ASSERT_EQ(first.size(), 1u);
  for (int i = 0; i < 10; ++i) read_slow(kB);
  for (std::uint16_t port = 1; port <= 20; ++port) read_slow({0x7F000004, port});
  EXPECT_EQ(plane_.Counters().dropped_commands, 8u + 15u) << "two of one, eight of all";
  // What is refused does not wait.
  EXPECT_EQ(SayAtOnce(kB, "42 01 0086 0014", "0000A010 00000000 00000000 00000000 00000000").size(), 12u);
  Receive(kA, "42 01 0082 0008" + NextId() + "0000A000 00000001");
  for (const auto& listener : first) listener->call(listener->context);
  Call();
  EXPECT_EQ(heard, "rwrrrrrrr");
  EXPECT_EQ(plane_.Counters().refused_commands, 1u);
}

TEST_F(ControlPlaneTest, AsksThePrimaryApplicationForTimeWhereItAllowsThat) {
  Write(kA, kTakeControl);
  Listen(slow_, NodeEvent::Write, [] {});
  Listen(slow_, NodeEvent::Read, [] {});
  Write(kA, "00000954 00000002");
  Receive(kA, "42 01 0082 0008 0001 0000A030 00000001");
  Receive(kB, "42 01 0080 0004 0001 0000A030");
  EXPECT_EQ(plane_.NextCalls(now_).size(), 1u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(plane_.Deadline(), now_ + milliseconds(200));
    Pass(milliseconds(200));
    const std::vector<ControlDatagram> sent = Sent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].destination, kA);
    EXPECT_EQ(Bytes(sent[0].Bytes().begin(), sent[0].Bytes().end()), Hex("0000 0089 0004 0001 0000 0190"));
  }
  // Switched off while it waits: there is no deadline left but that of the listener.
  tree_.Memory().Store32(Bootstrap::kControlConfiguration, 0);
  EXPECT_GT(plane_.Deadline(), now_ + milliseconds(2000));
}

TEST_F(ControlPlaneTest, SlowsDownWhoTriesSwitchoverKeys) {
  Write(kA, "00000A00 00000002");
  Write(kA, "0000095C 00001234");
  Write(kA, "00000A00 00000006");
  const char* const right = "00000A00 12340002";
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Write(kB, "00000A00 43210002"), kDenied);
  EXPECT_EQ(plane_.Counters().wrong_switchover_keys, 100u);
  EXPECT_EQ(Write(kB, right), kDenied) << "no try is left";
  now_ += milliseconds(1000);
  EXPECT_EQ(Write(kB, right), kWritten);
}

TEST_F(ControlPlaneTest, LetsNobodySendToAnEarlierClientsAddress) {
  constexpr std::uint32_t kGroup = 0xEF00'0001;
  Write(kA, kTakeControl);
  Write(kA, "00000D18 7F000001");
  Write(kA, "00000B10 7F000001");
  EXPECT_EQ(Write(kA, "00000D18 7F000002"), Hex("8002 0083 0004 0000 0000 0000"));
  Write(kA, kLeave);
  EXPECT_EQ(Stored(Bootstrap::kStreamDestination), kA.address);
  Write(kB, kLeave);  // changes nothing, since it takes nothing
  Write(kASecondSocket, kTakeControl);
  EXPECT_EQ(Stored(Bootstrap::kStreamDestination), kA.address) << "of the same host";
  EXPECT_EQ(Stored(Bootstrap::kMessageDestination), kA.address) << "of the same host";
  Write(kASecondSocket, kLeave);
  Write(kB, kTakeControl);
  EXPECT_EQ(Stored(Bootstrap::kStreamDestination), 0u);
  EXPECT_EQ(Stored(Bootstrap::kMessageDestination), 0u);
  Write(kB, "00000D18 EF000001");
  Write(kB, kLeave);
  Write(kA, kTakeControl);
  EXPECT_EQ(Stored(Bootstrap::kStreamDestination), kGroup);
}

TEST_F(ControlPlaneTest, ResendsOnlyToTheHostOfThePrimaryApplication) {
  const char* const standard = "42 00 0040 000C 0001 0000 0007 00000003 00FFFFFF";
  Say(kA, standard);
  EXPECT_TRUE(Orders<ResendRequest>().empty());
  Write(kA, kTakeControl);
  Say(kB, standard);
  Say(kA, "42 00 0040 000C 0001 0001 0007 00000003 00FFFFFF");  // a channel that does not exist
  Say(kA, "42 10 0040 000C 0001 0000 0007 00000003 00FFFFFF");  // shorter than it says
  EXPECT_TRUE(Orders<ResendRequest>().empty());
  Say(kASecondSocket, standard);
  Say(kA, "42 10 0040 0014 0001 0000 0000 00000003 FFFFFFFF 0000000100000007");
  const std::vector<ResendRequest> requests = Orders<ResendRequest>();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].block_id, 7u);
  EXPECT_EQ(requests[1].block_id, 0x1'0000'0007u);
}

TEST_F(ControlPlaneTest, ConfirmsItsAddressButTakesNoOther) {
  const auto force = [this](const std::string& mac, const std::string& address) {
    const std::string gap = "000000000000000000000000";
    return Say(kA, "42 01 0004 0038 0001 0000" + mac + gap + address + gap + "FF000000" + gap + "00000000",
               true);
  };
  EXPECT_EQ(force("001122334455", "7F000001"), Hex("0000 0005 0000 0001"));
  EXPECT_EQ(force("001122334455", "0A000005"), Hex("8006 0005 0000 0001"));
  EXPECT_EQ(force("001122334455", "00000000"), Bytes());
  EXPECT_EQ(force("001122334456", "7F000001"), Bytes());
  EXPECT_EQ(Stored(Bootstrap::kCurrentAddress), 0x7F000001u);
  Write(kA, kTakeControl);
  EXPECT_EQ(force("001122334455", "7F000001"), Bytes()) << "somebody is at work";
}

TEST_F(ControlPlaneTest, AnswersByBroadcastWhereNoOtherWayLeads) {
  const Endpoint stray{0x0A000001, 50000};
  const auto destination = [this](Endpoint who, const char* command, bool broadcast) {
    Receive(who, command, broadcast);
    const std::vector<ControlDatagram> sent = Sent();
    return sent.empty() ? 0 : sent[0].destination.address;
  };
  EXPECT_EQ(destination(stray, "42 11 0002 0000 0001", true), 0xFFFF'FFFF);
  EXPECT_EQ(destination(stray, "42 01 0002 0000 0001", true), stray.address) << "not allowed";
  EXPECT_EQ(destination(stray, "42 11 0002 0000 0001", false), stray.address) << "it reached us";
  EXPECT_EQ(destination(kB, "42 11 0002 0000 0001", true), kB.address) << "in the subnet";
}

TEST_F(ControlPlaneTest, KnowsWhichCommandsHaveListeners) {
  Write(kA, kTakeControl);
  bool told = false;
  const auto tells = [&](const std::string& before_id, const char* payload) {
    told = false;
    Fresh(kA, before_id, payload);
    return told;
  };
  for (const NodeEvent event : {NodeEvent::Read, NodeEvent::Write}) {
    number_->listeners.clear();
    Listen(number_, event, [&] { told = true; });
    EXPECT_EQ(tells("42 01 0080 0004", "0000A000"), event == NodeEvent::Read);
    EXPECT_EQ(tells("42 01 0084 0008", "0000A000 0000 0004"), event == NodeEvent::Read);
    EXPECT_EQ(tells("42 01 0082 0010", "0000A00C 00000000 0000A000 00000000"), event == NodeEvent::Write);
    EXPECT_EQ(tells("42 01 0086 0008", "0000A000 00000000"), event == NodeEvent::Write);
    EXPECT_FALSE(tells("42 01 0080 0004", "0000A008"));
  }
  // A listener that is not active costs nothing: its command does not even wait for the others.
  const NodeListener inactive{NodeEvent::Read, nullptr, nullptr, 1, false};
  number_->listeners = {std::make_shared<const NodeListener>(inactive)};
  Receive(kA, "42 01 0080 0004 0001 0000A000");
  EXPECT_EQ(Sent().size(), 1u);
}

TEST_F(ControlPlaneTest, HandsControlOverToWhoKnowsTheKey) {
  Write(kA, "0000095C 00001234");
  Write(kA, kTakeControl);
  Write(kA, "0000095C 00001234");
  EXPECT_EQ(Read(kA, "0000095C"), Hex("0000 0081 0004 0000 00000000"));
  EXPECT_EQ(Write(kB, "00000A00 12340002"), kDenied);  // not allowed yet
  EXPECT_EQ(Write(kA, "00000A00 00000006"), kWritten);
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 6u);
  Write(kA, "00000D00 00001234");
  for (const char* wish : {kTakeControl, kTakeAlone, kLeave, "00000A00 12330002", "00000A00 12340000"}) {
    EXPECT_EQ(Write(kB, wish), kDenied) << wish;
  }
  Write(kA, "00000B10 7F000001");
  Write(kA, "00000B00 00001235");
  EXPECT_TRUE(Reported().empty());
  now_ += milliseconds(2000);
  EXPECT_EQ(Write(kB, "00000A00 12340005"), kWritten);  // alone from now on, and ready to hand it on
  EXPECT_EQ(Reported(), std::vector<std::uint16_t>{0x0007});
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 7u);
  EXPECT_EQ(Stored(Bootstrap::kPrimaryAddress), kB.address);
  EXPECT_EQ(Stored(Bootstrap::kStreamPort), 0x1234u);  // goes on as it was
  EXPECT_EQ(plane_.Deadline(), now_ + milliseconds(3000));
  EXPECT_EQ(Write(kA, "0000A000 00000005"), kDenied);
  EXPECT_EQ(Read(kA, "0000A000"), Hex("8006 0081 0000 0000"));
  EXPECT_EQ(Write(kB, "0000A000 00000005"), kWritten);
  EXPECT_EQ(Write(kA, "00000A00 12340002"), kWritten);  // and back, without allowing it again
  EXPECT_EQ(Write(kB, "00000A00 12340002"), kDenied);
  EXPECT_EQ(Write(kA, kLeave), kWritten);
  EXPECT_EQ(Write(kB, kTakeControl), kWritten);  // free: no key is needed
  EXPECT_EQ(Reported(), std::vector<std::uint16_t>{0x0007});
}

TEST_F(ControlPlaneTest, LimitsWhatAnybodyCausesToBeSent) {
  const char* const discovery = "42 11 0002 0000 0001";
  const auto answered = [&](Endpoint who, int times) {
    int count = 0;
    for (int i = 0; i < times; ++i) count += Say(who, discovery, i % 2 == 0).empty() ? 0 : 1;
    return count;
  };
  EXPECT_EQ(answered(kA, 100), 64);
  EXPECT_EQ(answered(kASecondSocket, 1), 0);  // a port is as easily forged
  EXPECT_EQ(answered(kB, 64), 64);
  now_ += milliseconds(500);
  EXPECT_EQ(answered(kA, 100), 25);

  const auto bytes_read = [&](Endpoint who) {
    std::size_t count = 0;
    for (std::size_t size = 1; size > 0; count += size) {
      size = Fresh(who, "42 01 0084 0008", "F1000000 0000 0200").size();
      if (count > 20'000'000) break;
    }
    return count;
  };
  Write(kB, kTakeControl);
  const std::size_t other = bytes_read(kA);
  EXPECT_GT(other, 8'000'000u);  // any description file
  EXPECT_LT(other, 20'000'000u);
  EXPECT_GT(bytes_read(kB), 20'000'000u);
  // What gains a forger nothing stays open, as long as it is not too much work.
  EXPECT_EQ(Read(kA, "0000A000").size(), 12u);
  EXPECT_EQ(Fresh(kA, "42 01 0084 0008", "0000A000 0000 0004").size(), 16u);
  int answered_reads = 0;
  while (!Read(kA, "0000A000").empty()) ++answered_reads;
  EXPECT_GT(answered_reads, 100'000);
  EXPECT_EQ(Read(kB, "0000A000").size(), 12u);
}

TEST_F(ControlPlaneTest, DelaysBroadcastDiscoveriesAtRandom) {
  const char* const discovery = "42 11 0002 0000 0001";
  EXPECT_EQ(Say(kA, discovery, true).size(), 256u);
  Write(kA, kTakeControl);
  Write(kA, "00000950 00000064");
  EXPECT_EQ(Say(kA, discovery).size(), 256u);
  std::set<Instant> due;
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Say(kA, discovery, true), Bytes());
    ASSERT_LE(plane_.Deadline(), now_ + milliseconds(100));
    due.insert(plane_.Deadline());
    Pass(milliseconds(100));
    EXPECT_EQ(Sent().size(), 1u);
  }
  EXPECT_GT(due.size(), 5u);
}

class ActionTest : public ControlPlaneTest {
 protected:
  ActionTest() {
    Write(kA, kTakeControl);
    SetGroup(0, 2, 0x1);
    SetGroup(1, 2, 0x6);
    SetGroup(2, 3, 0xFFFF'FFFF);
    Store("0000090C", 7);
    Store("00000954", ControlConfiguration::ExtendedStatus2::kMask);
  }

  void Store(const std::string& address, std::uint32_t value) {
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08X", value);
    EXPECT_EQ(Write(kA, address + text.data()), kWritten) << address;
  }
  void SetGroup(std::uint32_t signal, std::uint32_t key, std::uint32_t mask) {
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08X", Bootstrap::kActionGroupKeys + 0x10 * signal);
    Store(text.data(), key);
    std::snprintf(text.data(), text.size(), "%08X", Bootstrap::kActionGroupMasks + 0x10 * signal);
    Store(text.data(), mask);
  }

  /// How often each signal has fired since the last call: "1010".
  std::string Fired() {
    std::string fired;
    for (std::uint32_t signal = 0; signal < kActionSignals; ++signal) {
      fired += std::to_string(Count(signal) - std::exchange(seen_[signal], Count(signal)));
    }
    return fired;
  }
  /// What fires at once; "-" when the command was met with silence.
  std::string Act(Endpoint who, const std::string& keys) {
    const bool silent = Fresh(who, "42 01 0100 000C", keys).empty();
    const std::string fired = Fired();
    return silent && fired == "0000" ? "-" : fired;
  }
  Bytes Schedule(std::uint64_t at_ms, std::uint32_t mask, Endpoint who = kB) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "00000007 00000002 %08X %016llX", mask,
                  static_cast<unsigned long long>(at_ms * 1'000'000));
    return Fresh(who, "42 81 0100 0014", text.data());
  }
  /// What fires by the time that is then.
  std::string PassTo(std::uint64_t at_ms) {
    now_ = Instant(milliseconds(at_ms));
    plane_.Advance(now_);
    Say(kA, "42 01 0080 0004 0001 00000A00");  // a sign of life
    return Fired();
  }

  std::array<std::uint32_t, kActionSignals> seen_{};
};

const Bytes kDone = Hex("0000 0101 0000 0000");

TEST_F(ActionTest, FireWhereKeysAndMasksMatch) {
  const struct {
    const char* keys;
    const char* fired;
  } rows[] = {
      {"00000007 00000002 00000001", "1000"}, {"00000007 00000002 00000004", "0100"},
      {"00000007 00000002 FFFFFFFF", "1100"}, {"00000007 00000003 80000000", "0010"},
      {"00000007 00000002 00000008", "-"},    {"00000007 00000002 00000000", "-"},
      {"00000007 00000000 FFFFFFFF", "-"},  // the fourth signal has no mask
      {"00000006 00000002 FFFFFFFF", "-"},
  };
  for (const auto& row : rows) {
    for (const Endpoint who : {kA, kB}) EXPECT_EQ(Act(who, row.keys), row.fired) << row.keys;
  }
  // Asked of everybody, and without a wish for an answer.
  EXPECT_EQ(Say(kB, "42 01 0100 000C 0001 00000007 00000003 00000001", true), Hex("0000 0101 0000 0001"));
  EXPECT_EQ(Say(kB, "42 00 0100 000C 0002 00000007 00000003 00000001", true), Bytes());
  EXPECT_EQ(Say(kB, "42 01 0100 0008 0003 00000007 00000003", true), Bytes());
  EXPECT_EQ(Fired(), "0020");
}

TEST_F(ActionTest, NeedAClientInControlUnlessTheyAreUnconditional) {
  const char* const keys = "00000007 00000003 00000001";
  EXPECT_EQ(Act(kB, keys), "0010");
  Write(kA, kLeave);
  EXPECT_EQ(Act(kB, keys), "-");
  Write(kA, kTakeControl);
  Store("00000954", ControlConfiguration::UnconditionalAction::kMask);
  Write(kA, kLeave);
  EXPECT_EQ(Act(kB, keys), "0010");
}

TEST_F(ActionTest, ThatAreRepeatedFireOnceForEachSource) {
  const char* const command = "42 01 0100 000C 0009 00000007 00000002 00000001";
  const Bytes done = Hex("0000 0101 0000 0009");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Say(kB, command, i == 1), done);
  EXPECT_EQ(Fired(), "1000");
  EXPECT_EQ(Say(kA, command), done);
  EXPECT_EQ(Say(kB, "42 01 0100 000C 0009 00000007 00000002 00000004"), done) << "another of the same id";
  EXPECT_EQ(Fired(), "1100");
  now_ += std::chrono::seconds(10);  // nobody repeats a command for so long: it is a new one
  EXPECT_EQ(Say(kB, command), done);
  EXPECT_EQ(Fired(), "1000");
}

TEST_F(ActionTest, ScheduledFireInTheOrderOfTheirTimes) {
  const Instant heartbeat = plane_.Deadline();
  for (const auto& [at, mask] : {std::pair{100'300, 1}, {100'100, 2}, {100'300, 6}, {100'200, 7}}) {
    EXPECT_EQ(Schedule(static_cast<std::uint64_t>(at), static_cast<std::uint32_t>(mask)), kDone);
  }
  EXPECT_EQ(Fired(), "0000");
  EXPECT_EQ(plane_.Deadline(), Instant(milliseconds(100'100)));
  EXPECT_EQ(PassTo(100'099), "0000");
  EXPECT_EQ(PassTo(100'250), "1200");
  EXPECT_EQ(PassTo(100'300), "1100");
  EXPECT_GE(plane_.Deadline(), heartbeat);
}

TEST_F(ActionTest, ThatCannotBeScheduledSaySo) {
  const Bytes late = Hex("8016 0101 0000 0000");
  const Bytes full = Hex("8015 0101 0000 0000");
  EXPECT_EQ(Schedule(100'000, 1), late);  // this very moment
  EXPECT_EQ(Schedule(1, 1), late);
  EXPECT_EQ(Fired(), "2000");
  EXPECT_EQ(Schedule(100'000 + 301'000, 1), full) << "for too long";
  for (int i = 0; i < 16; ++i) EXPECT_EQ(Schedule(100'500, 1, i < 10 ? kA : kB), kDone) << i;
  EXPECT_EQ(Schedule(100'500, 1), full);
  // Clients that did not ask for the newer codes get one that they know.
  Store("00000954", 0);
  EXPECT_EQ(Schedule(100'500, 1), Hex("8FFF 0101 0000 0000"));
  // What a client had planned goes with it; what others had happens where somebody is in control then.
  Write(kA, kLeave);
  Write(kA, kTakeControl);
  EXPECT_EQ(PassTo(100'500), "6000");
  EXPECT_EQ(Schedule(100'600, 1), kDone);
  Write(kA, kLeave);
  EXPECT_EQ(PassTo(100'600), "0000");
}

TEST_F(ActionTest, NeverKeepAClientWaiting) {
  Listen(number_, NodeEvent::Write, [] {});
  std::string heard;
  Listen(tree_.Find("ActionCount1"), NodeEvent::Write, [&] { heard += 'a'; });
  for (int i = 0; i < 100; ++i) Fresh(kB, "42 00 0100 000C", "00000007 00000002 00000001");
  EXPECT_EQ(Count(0), 100u);
  heard.clear();
  for (int i = 0; i < 100; ++i) {
    const std::string command = "42 00 0100 000C" + NextId() + "00000007 00000002 00000001";
    Receive(kB, command);
  }
  EXPECT_EQ(plane_.Counters().dropped_notifications, 100u - 64u);
  Receive(kA, "42 01 0082 0008" + NextId() + "0000A000 00000001");
  for (Listeners next = plane_.NextCalls(now_); Sent().empty(); next = plane_.NextCalls(now_)) {
    for (const auto& listener : next) listener->call(listener->context);
  }
  EXPECT_LE(heard.size(), 2u);
}

}  // namespace
}  // namespace Tarn
