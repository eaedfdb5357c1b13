#include "camera/engine/control/control_channel.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <set>

#include "camera/base/engine_error.h"
#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/wire/bootstrap.h"
#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using std::chrono::milliseconds;
using Bytes = std::vector<std::uint8_t>;

constexpr Endpoint kA{0x7F000001, 50000};
constexpr Endpoint kASecondSocket{0x7F000001, 50001};
constexpr Endpoint kB{0x7F000002, 50000};

class ControlChannelTest : public testing::Test, protected ControlActions {
 protected:
  ControlChannelTest() {
    AddStandardFeatures(tree_, SensorFormat{0x01080001, "Mono8", 640, 480, false});
    SparseMemory& memory = tree_.Memory();
    memory.Store32(Bootstrap::kMacHigh, 0x0011);
    memory.Store32(Bootstrap::kMacLow, 0x22334455);
    memory.Store32(Bootstrap::kCurrentAddress, 0x7F000001);
    memory.Store32(Bootstrap::kCurrentMask, 0xFF000000);
    memory.Store32(Bootstrap::kHeartbeatTimeout, 3000);
    number_ = NewIntReg("Number", 0xA000);
    tree_.Add(number_);
    wide_ = NewIntReg("Wide", 0xA008, 8);
    tree_.Add(wide_);
    tree_.Add(NewRegister(NodeKind::StringReg, "Text", 0xA010, 16));
    const NodePtr fixed = NewIntReg("Fixed", 0xA020);
    fixed->reg->access = AccessMode::ReadOnly;
    tree_.Add(fixed);
    tree_.SetFrozen(true);
    registers_.Index({true, 1500}, 1000);
  }

  /// The answer to one command; empty for silence.
  Bytes Say(Endpoint who, const std::string& command, bool broadcast = false, bool streaming = false) {
    streaming_ = streaming;
    const Bytes bytes = Hex(command);
    const ControlRequest request{bytes, who, broadcast, now_};
    const Reception reception = channel_.Arrived(request);
    if (reception.turn == Reception::Turn::Never) return {};
    Bytes answer(kMaxControlDatagram);
    answer.resize(channel_.Handle(request, *this, answer));
    return answer;
  }

  /// As Say, with a request id that was not used before.
  Bytes Fresh(Endpoint who, const std::string& before_id, const std::string& payload) {
    std::array<char, 8> id{};
    std::snprintf(id.data(), id.size(), " %04X ", ++last_id_);
    Bytes answer = Say(who, before_id + id.data() + payload);
    if (answer.size() >= 8) answer[6] = answer[7] = 0;
    return answer;
  }

  Bytes Write(Endpoint who, const std::string& pair) { return Fresh(who, "42 01 0082 0008", pair); }
  Bytes Read(Endpoint who, const std::string& address) { return Fresh(who, "42 01 0080 0004", address); }
  std::uint32_t Stored(std::uint32_t address) { return tree_.Memory().Load32(address); }

  bool Streaming() const override { return streaming_; }
  void BeforeRead(std::uint32_t address, std::uint32_t length) override {
    reads_.push_back({address, length});
  }
  void AfterWrite(std::uint32_t address, std::uint32_t length) override {
    writes_.push_back({address, length});
  }
  void Resend(const ResendCommand& command, Endpoint) override { resent_.push_back(command.block_id); }
  Instant AtTicks(std::uint64_t ticks) const override { return Instant(milliseconds(ticks)); }
  void Fire(SignalSet signals) override { fired_ += signals.to_string() + ' '; }
  void Report(std::uint16_t number) override { reported_.push_back(number); }

  using Range = std::pair<std::uint32_t, std::uint32_t>;

  bool streaming_ = false;
  FeatureTree tree_;
  RegisterFile registers_{tree_};
  ControlChannel channel_{tree_, registers_, 1};
  NodePtr number_;
  NodePtr wide_;
  Instant now_{std::chrono::seconds(100)};
  std::uint16_t last_id_ = 0x4000;
  std::vector<Range> reads_;
  std::vector<Range> writes_;
  std::vector<std::uint64_t> resent_;
  std::string fired_;  ///< sets of signals, the last signal first
  std::vector<std::uint16_t> reported_;
};

const char* const kTakeControl = "00000A00 00000002";
const char* const kTakeAlone = "00000A00 00000001";
const char* const kLeave = "00000A00 00000000";
const Bytes kWritten = Hex("0000 0083 0004 0000 0000 0001");
const Bytes kDenied = Hex("8006 0083 0004 0000 0000 0000");

TEST_F(ControlChannelTest, GivesControlToOneAtATime) {
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

TEST_F(ControlChannelTest, RefusesReadsWithTheirStatusAndNothingElse) {
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
  for (const auto& row : rows) EXPECT_EQ(Say(kA, row.command), Hex(row.answer)) << row.command;
  EXPECT_TRUE(reads_.empty());
  std::string words;
  for (int i = 0; i < 135; ++i) words += "00000000";
  EXPECT_EQ(Say(kA, "42 01 0080 021C 0001" + words).size(), 548u);
  EXPECT_EQ(Say(kA, "42 01 0080 0220 0001" + words + "00000000"), Hex("8002 0081 0000 0001"));
}

TEST_F(ControlChannelTest, RefusesWritesWithThePlaceOfTheFailure) {
  Write(kA, kTakeControl);
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
  const std::vector<Range> heard{{0x0A00, 4}, {0xA000, 4}, {0xA000, 4},
                                 {0xA000, 4}, {0xA008, 8}, {0xA010, 16}};
  EXPECT_EQ(writes_, heard);
  std::string pairs;
  for (int i = 0; i < 68; ++i) pairs += number;
  EXPECT_EQ(Say(kA, "42 01 0082 0220 000F" + pairs), Hex("8002 0083 0004 000F 0000 0000"));
}

TEST_F(ControlChannelTest, SaysBusyForWhatStandsStillWhileStreaming) {
  Write(kA, kTakeControl);
  EXPECT_EQ(Say(kA, "42 01 0082 0008 0001 00000D18 7F000001", false, true),
            Hex("8007 0083 0004 0001 0000 0000"));
  EXPECT_EQ(Say(kA, "42 01 0082 0008 0002 00000D00 00000000", false, true),
            Hex("0000 0083 0004 0002 0000 0001"));
}

TEST_F(ControlChannelTest, StaysSilentWhereAnAnswerIsNotDue) {
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
  EXPECT_FALSE(channel_.Privilege().Held());
  Write(kA, kTakeControl);
  EXPECT_EQ(Say(kA, "42 00 0082 0008 0001" + std::string(number)), Bytes());
  EXPECT_EQ(Stored(0xA000), 7u);                                  // done all the same
  EXPECT_EQ(Say(kA, "42 01 0002 0000 0000", true).size(), 256u);  // id 0 is used by some to probe
}

TEST_F(ControlChannelTest, AnswersRepeatedWritesFromMemory) {
  Write(kA, kTakeControl);
  const std::string write = "42 01 0082 0008 0001 0000A000 00000005";
  const Bytes first = Say(kA, write);
  WriteInteger(*number_, 1);
  const std::size_t heard = writes_.size();
  EXPECT_EQ(Say(kA, write), first);
  EXPECT_EQ(Stored(0xA000), 1u);
  EXPECT_EQ(writes_.size(), heard);
  Say(kA, "42 01 0082 0008 0002 0000A000 00000005");  // another id is another write
  EXPECT_EQ(Stored(0xA000), 5u);
  WriteInteger(*number_, 1);
  Say(kA, write);  // no longer the last one
  EXPECT_EQ(Stored(0xA000), 5u);
  Say(kB, write);
  EXPECT_EQ(Say(kB, write), Hex("8006 0083 0004 0001 0000 0000"));
  // Who comes into control anew may begin with any id.
  Write(kA, kLeave);
  Write(kA, kTakeControl);
  WriteInteger(*number_, 1);
  Say(kA, write);
  EXPECT_EQ(Stored(0xA000), 5u);
}

TEST_F(ControlChannelTest, TakesControlFromASilentClient) {
  EXPECT_EQ(channel_.HeartbeatDeadline(), Instant::max());
  Write(kA, kTakeControl);
  Write(kA, "00000D00 00001234");
  const auto pass = [this](milliseconds time) {
    now_ += time;
    channel_.Expire(now_);
  };
  pass(milliseconds(2999));
  Read(kA, "00000A00");
  pass(milliseconds(2999));
  EXPECT_TRUE(channel_.Privilege().Held());
  // None of these is a sign of life.
  Read(kB, "00000A00");
  Read(kASecondSocket, "00000A00");
  Say(kA, "42 11 0002 0000 0001");
  Say(kA, "42 00 0040 000C 0001 0000 0007 00000003 00FFFFFF");
  Say(kA, "42 01 0080 0008 0001 00000A00");  // shorter than it says
  pass(milliseconds(1));
  EXPECT_FALSE(channel_.Privilege().Held());
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 0u);
  EXPECT_EQ(Stored(Bootstrap::kStreamPort), 0u);

  Write(kB, kTakeControl);
  Write(kB, "00000938 00000001");  // less than the least
  EXPECT_EQ(channel_.HeartbeatDeadline(), now_ + milliseconds(500));
  Write(kB, "00000954 00000001");
  EXPECT_EQ(channel_.HeartbeatDeadline(), Instant::max());
  pass(std::chrono::hours(1));
  EXPECT_TRUE(channel_.Privilege().IsHolder(kB));
}

TEST_F(ControlChannelTest, LetsNobodySendToAnEarlierClientsAddress) {
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

TEST_F(ControlChannelTest, ResendsOnlyToTheControllersHost) {
  const char* const standard = "42 00 0040 000C 0001 0000 0007 00000003 00FFFFFF";
  Say(kA, standard);
  EXPECT_TRUE(resent_.empty());
  Write(kA, kTakeControl);
  Say(kB, standard);
  Say(kA, "42 00 0040 000C 0001 0001 0007 00000003 00FFFFFF");  // a channel that does not exist
  Say(kA, "42 10 0040 000C 0001 0000 0007 00000003 00FFFFFF");  // shorter than it says
  EXPECT_TRUE(resent_.empty());
  Say(kASecondSocket, standard);
  Say(kA, "42 10 0040 0014 0001 0000 0000 00000003 FFFFFFFF 0000000100000007");
  EXPECT_EQ(resent_, (std::vector<std::uint64_t>{7, 0x1'0000'0007}));
}

TEST_F(ControlChannelTest, ConfirmsItsAddressButTakesNoOther) {
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
}

TEST_F(ControlChannelTest, TellsWhetherACommandMeetsListeners) {
  const auto meets = [this](const char* command) {
    const Bytes bytes = Hex(command);
    return channel_.Arrived({bytes, kA, false, now_}).turn == Reception::Turn::Listeners;
  };
  const char* const reads[] = {"42 01 0080 0004 0001 0000A000", "42 01 0084 0008 0001 0000A000 0000 0010"};
  const char* const writes[] = {"42 01 0082 0010 0001 0000A00C 00000000 0000A000 00000000",
                                "42 01 0086 0008 0001 0000A000 00000000"};
  for (const NodeEvent event : {NodeEvent::Read, NodeEvent::Write}) {
    number_->listeners = {std::make_shared<const NodeListener>(NodeListener{event, {}, {}, 1})};
    for (const char* command : reads) EXPECT_EQ(meets(command), event == NodeEvent::Read) << command;
    for (const char* command : writes) EXPECT_EQ(meets(command), event == NodeEvent::Write) << command;
    for (const char* command :
         {"42 01 0080 0004 0001", "42 01 0080 0004 0001 0000A008", "42 11 0002 0000 0001"}) {
      EXPECT_FALSE(meets(command)) << command;
    }
  }
  EXPECT_TRUE(reads_.empty() && writes_.empty());
}

TEST_F(ControlChannelTest, HandsControlOverToWhoKnowsTheKey) {
  Write(kA, "0000095C 00001234");
  Write(kA, kTakeControl);
  Write(kA, "0000095C 00001234");
  EXPECT_EQ(Read(kA, "0000095C"), Hex("0000 0081 0004 0000 00000000"));
  EXPECT_EQ(Write(kB, "00000A00 12340002"), kDenied);  // not allowed yet
  EXPECT_EQ(Write(kA, "00000A00 00000006"), kWritten);
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 6u);
  Write(kA, "00000D00 00001234");
  const std::size_t heard = writes_.size();
  for (const char* wish : {kTakeControl, kTakeAlone, kLeave, "00000A00 12330002", "00000A00 12340000"}) {
    EXPECT_EQ(Write(kB, wish), kDenied) << wish;
  }
  EXPECT_EQ(writes_.size(), heard);
  EXPECT_TRUE(reported_.empty());
  now_ += milliseconds(2000);
  EXPECT_EQ(Write(kB, "00000A00 12340005"), kWritten);  // alone from now on, and ready to hand it on
  EXPECT_EQ(reported_, std::vector<std::uint16_t>{0x0007});
  EXPECT_EQ(Stored(Bootstrap::kControlPrivilege), 7u);
  EXPECT_EQ(Stored(Bootstrap::kPrimaryAddress), kB.address);
  EXPECT_EQ(Stored(Bootstrap::kStreamPort), 0x1234u);  // goes on as it was
  EXPECT_EQ(channel_.HeartbeatDeadline(), now_ + milliseconds(3000));
  EXPECT_EQ(Write(kA, "0000A000 00000005"), kDenied);
  EXPECT_EQ(Read(kA, "0000A000"), Hex("8006 0081 0000 0000"));
  EXPECT_EQ(Write(kB, "0000A000 00000005"), kWritten);
  EXPECT_EQ(Write(kA, "00000A00 12340002"), kWritten);  // and back, without allowing it again
  EXPECT_EQ(Write(kB, "00000A00 12340002"), kDenied);
  EXPECT_EQ(Write(kA, kLeave), kWritten);
  EXPECT_EQ(Write(kB, kTakeControl), kWritten);  // free: no key is needed
  EXPECT_EQ(reported_.size(), 2u);
}

TEST_F(ControlChannelTest, LimitsWhatStrangersCauseToBeSent) {
  const char* const discovery = "42 11 0002 0000 0001";
  const auto answered = [&](Endpoint who, int times) {
    int count = 0;
    for (int i = 0; i < times; ++i) count += Say(who, discovery, i % 2 == 0).empty() ? 0 : 1;
    return count;
  };
  EXPECT_EQ(answered(kA, 100), 32);
  EXPECT_EQ(answered(kASecondSocket, 1), 0);  // a port is as easily forged
  EXPECT_EQ(answered(kB, 32), 32);
  now_ += milliseconds(500);
  EXPECT_EQ(answered(kA, 100), 5);

  const auto bytes_read = [&](Endpoint who) {
    std::size_t count = 0;
    for (std::size_t size = 1; size > 0; count += size) {
      size = Fresh(who, "42 01 0084 0008", "0000A010 0000 0010").size();
      if (count > 20'000'000) break;
    }
    return count;
  };
  Write(kB, kTakeControl);
  const std::size_t stranger = bytes_read(kA);
  EXPECT_GT(stranger, 8'000'000u);  // any description file
  EXPECT_LT(stranger, 20'000'000u);
  EXPECT_GT(bytes_read(kB), 20'000'000u);
  // What gains a forger nothing stays open.
  EXPECT_EQ(Read(kA, "0000A000").size(), 12u);
  EXPECT_EQ(Fresh(kA, "42 01 0084 0008", "0000A000 0000 0004").size(), 16u);
}

TEST_F(ControlChannelTest, DelaysBroadcastDiscoveriesAtRandom) {
  const Bytes discovery = Hex("42 11 0002 0000 0001");
  const auto arrive = [&](bool broadcast) { return channel_.Arrived({discovery, kA, broadcast, now_}); };
  EXPECT_EQ(arrive(true).turn, Reception::Turn::Now);
  Write(kA, kTakeControl);
  Write(kA, "00000950 00000064");
  EXPECT_EQ(arrive(false).turn, Reception::Turn::Now);
  std::set<Instant> due;
  for (int i = 0; i < 20; ++i) {
    const Reception reception = arrive(true);
    ASSERT_EQ(reception.turn, Reception::Turn::Later);
    EXPECT_GE(reception.due, now_);
    EXPECT_LE(reception.due, now_ + milliseconds(100));
    due.insert(reception.due);
  }
  EXPECT_GT(due.size(), 5u);
}

class ActionTest : public ControlChannelTest {
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

  /// What fires at once; "-" when the command was met with silence.
  std::string Act(Endpoint who, const std::string& keys) {
    fired_.clear();
    return Fresh(who, "42 01 0100 000C", keys).empty() ? "-" : fired_;
  }
  Bytes Schedule(std::uint64_t at_ms, std::uint32_t mask) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "00000007 00000002 %08X %016llX", mask,
                  static_cast<unsigned long long>(at_ms));
    return Fresh(kB, "42 81 0100 0014", text.data());
  }
  /// What fires by the time that is then.
  std::string Pass(Instant now) {
    fired_.clear();
    now_ = now;
    channel_.FireDue(now, *this);
    return fired_;
  }
};

const Bytes kDone = Hex("0000 0101 0000 0000");

TEST_F(ActionTest, FireWhereKeysAndMasksMeet) {
  const struct {
    const char* keys;
    const char* fired;
  } rows[] = {
      {"00000007 00000002 00000001", "0001 "}, {"00000007 00000002 00000004", "0010 "},
      {"00000007 00000002 FFFFFFFF", "0011 "}, {"00000007 00000003 80000000", "0100 "},
      {"00000007 00000002 00000008", "-"},     {"00000007 00000002 00000000", "-"},
      {"00000007 00000000 FFFFFFFF", "-"},  // the fourth signal has no mask
      {"00000006 00000002 FFFFFFFF", "-"},
  };
  for (const auto& row : rows) {
    for (const Endpoint who : {kA, kB}) EXPECT_EQ(Act(who, row.keys), row.fired) << row.keys;
  }
  // Asked of everybody, and without a wish for an answer.
  fired_.clear();
  EXPECT_EQ(Say(kB, "42 01 0100 000C 0001 00000007 00000003 00000001", true), Hex("0000 0101 0000 0001"));
  EXPECT_EQ(Say(kB, "42 00 0100 000C 0002 00000007 00000003 00000001", true), Bytes());
  EXPECT_EQ(Say(kB, "42 01 0100 0008 0003 00000007 00000003", true), Bytes());
  EXPECT_EQ(fired_, "0100 0100 ");
}

TEST_F(ActionTest, NeedAClientInControlUnlessTheyAreUnconditional) {
  const char* const keys = "00000007 00000003 00000001";
  EXPECT_EQ(Act(kB, keys), "0100 ");
  Write(kA, kLeave);
  EXPECT_EQ(Act(kB, keys), "-");
  Write(kA, kTakeControl);
  Store("00000954", ControlConfiguration::UnconditionalAction::kMask);
  Write(kA, kLeave);
  EXPECT_EQ(Act(kB, keys), "0100 ");
}

TEST_F(ActionTest, OfOneIdFireOnceForEachSource) {
  const char* const command = "42 01 0100 000C 0009 00000007 00000002 00000001";
  const Bytes done = Hex("0000 0101 0000 0009");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Say(kB, command, i == 1), done);
  EXPECT_EQ(fired_, "0001 ");
  EXPECT_EQ(Say(kA, command), done);
  EXPECT_EQ(fired_, "0001 0001 ");
  now_ += std::chrono::seconds(10);  // nobody repeats a command for so long: it is a new one
  EXPECT_EQ(Say(kB, command), done);
  EXPECT_EQ(fired_, "0001 0001 0001 ");
}

TEST_F(ActionTest, ScheduledFireInTheOrderOfTheirTimes) {
  EXPECT_EQ(channel_.NextAction(), Instant::max());
  for (const auto& [at, mask] : {std::pair{100'300, 1}, {100'100, 2}, {100'300, 6}, {100'200, 7}}) {
    EXPECT_EQ(Schedule(static_cast<std::uint64_t>(at), static_cast<std::uint32_t>(mask)), kDone);
  }
  EXPECT_EQ(fired_, "");
  EXPECT_EQ(channel_.NextAction(), Instant(milliseconds(100'100)));
  EXPECT_EQ(Pass(Instant(milliseconds(100'099))), "");
  EXPECT_EQ(Pass(Instant(milliseconds(100'250))), "0010 0011 ");
  EXPECT_EQ(Pass(Instant(milliseconds(100'300))), "0001 0010 ");
  EXPECT_EQ(channel_.NextAction(), Instant::max());
}

TEST_F(ActionTest, ThatCannotBeScheduledSaySo) {
  const Bytes late = Hex("8016 0101 0000 0000");
  EXPECT_EQ(Schedule(100'000, 1), late);  // this very moment
  EXPECT_EQ(Schedule(1, 1), late);
  EXPECT_EQ(fired_, "0001 0001 ");
  EXPECT_EQ(reported_, (std::vector<std::uint16_t>{0x0009, 0x0009}));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(Schedule(200'000, 1), kDone) << i;
  EXPECT_EQ(Schedule(200'000, 1), Hex("8015 0101 0000 0000"));
  // Clients that did not ask for the newer codes get one that they know.
  Store("00000954", 0);
  EXPECT_EQ(Schedule(200'000, 1), Hex("8FFF 0101 0000 0000"));
  // Without control nothing is to happen any more.
  Write(kA, kLeave);
  EXPECT_EQ(channel_.NextAction(), Instant::max());
}

}  // namespace
}  // namespace Tarn
