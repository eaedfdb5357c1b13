#include "camera/wire/gvcp.h"

#include <gtest/gtest.h>

#include <tuple>

#include "camera/wire/event_command.h"
#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

TEST(ControlHeaderBytes, AreTheStandards) {
  ExpectBytes(CommandHeader{0x11, Command::Discovery, 8, 0x1234}, "42 11 0002 0008 1234");
  ExpectBytes(CommandHeader{0x01, Command{0x8765}, 0, 0},
              "42 01 8765 0000 0000");  // to be answered as unknown
  ExpectBytes(AckHeader{WireStatus::InvalidAddress, 0x0081, 0, 0x1234}, "8003 0081 0000 1234");
  ExpectBytes(AckHeader{WireStatus::Success, kPendingAck, 4, 1}, "0000 0089 0004 0001");
  const std::vector<std::uint8_t> foreign = Hex("43 01 0080 0008 1234");
  ByteReader in(foreign);
  EXPECT_FALSE(CommandHeader::Decode(in));
}

TEST(ResendCommandBytes, NamePacketsInBothForms) {
  const auto read = [](const char* bytes, bool extended) {
    const auto part = Decoded<ResendCommand>(Hex(bytes), extended);
    EXPECT_EQ(part.extended, extended);
    return std::tuple(part.channel, part.block_id, part.first_packet, part.last_packet);
  };
  constexpr std::uint32_t kToTheEnd = ResendCommand::kToTheEnd;
  EXPECT_EQ(read("0001 0007 00000003 00FFFFFF", false), std::tuple(1, 7, 3, kToTheEnd));
  // Here ids have 24 bits, and what is above is noise; there a packet is like any.
  EXPECT_EQ(read("0000 FFFF AB000003 CD000004", false), std::tuple(0, 0xFFFF, 3, 4));
  EXPECT_EQ(read("0000 0000 00000003 00FFFFFF 0000000100000007", true),
            std::tuple(0, 0x1'0000'0007, 3, 0x00FF'FFFF));
  EXPECT_EQ(read("0000 0000 00000003 FFFFFFFF 0000000000000001", true), std::tuple(0, 1, 3, kToTheEnd));
}

TEST(ForceIpCommandBytes, AreTheStandards) {
  const std::string gap = " 00112233445566778899AABB ";  // reserved; whatever stands there is ignored
  const auto read = Decoded<ForceIpCommand>(
      Hex("FFFF 001122334455" + gap + "0A000005" + gap + "FF000000" + gap + "0A000001"));
  EXPECT_EQ(std::tuple(read.mac, read.address, read.mask, read.gateway),
            std::tuple(0x0011'2233'4455u, 0x0A00'0005u, 0xFF00'0000u, 0x0A00'0001u));
}

TEST(ActionCommandBytes, CarryATimeWhenScheduled) {
  const std::string keys = "00000001 00000002 FFFFFFF0";
  for (const bool scheduled : {false, true}) {
    const auto read = Decoded<ActionCommand>(Hex(keys + (scheduled ? "1122334455667788" : "")), scheduled);
    EXPECT_EQ(std::tuple(read.device_key, read.group_key, read.group_mask), std::tuple(1, 2, 0xFFFF'FFF0u));
    EXPECT_EQ(read.time, scheduled ? std::optional(0x1122'3344'5566'7788u) : std::nullopt);
  }
}

TEST(EventCommandBytes, AreTheStandards) {
  const std::vector<std::uint8_t> data = Hex("CAFE 01");
  const EventItem frame{0x9001, 0, 0x1'0000'0007, 0x1122'3344'5566'7788};
  const EventItem plain{0x9010, EventItem::kNoChannel, 0, 1};
  const auto bytes = [](const EventCommand& command) { return Encoded(command); };
  EXPECT_EQ(bytes({frame, {}, 0x1234, false, true}),
            Hex("42 01 00C0 0010 1234 0000 9001 0000 0007 1122334455667788"));
  EXPECT_EQ(bytes({frame, {}, 0x1234, true, true}),
            Hex("42 11 00C0 0018 1234 0018 9001 0000 0000 0000000100000007 1122334455667788"));
  EXPECT_EQ(bytes({plain, data, 2, false, false}),
            Hex("42 00 00C2 0013 0002 0000 9010 FFFF 0000 0000000000000001 CAFE01"));
  EXPECT_EQ(bytes({plain, data, 3, true, false}),
            Hex("42 10 00C2 001B 0003 001B 9010 FFFF 0000 0000000000000000 0000000000000001 CAFE01"));
}

TEST(EventCommandBytes, LeaveOutDataThatDoNotFitADatagram) {
  for (const bool extended : {false, true}) {
    const std::size_t empty = CommandHeader::kSize + EventItem::Size(extended);
    const std::size_t whole = CommandHeader::kSize + kMaxControlPayload;
    const std::vector<std::uint8_t> data(whole - empty + 1, 0xAB);
    const EventCommand fits{{}, ByteView(data).first(whole - empty), 1, extended, false};
    EXPECT_EQ(Encoded(fits).size(), whole);
    EXPECT_EQ(Encoded(EventCommand{{}, data, 1, extended, false}).size(), empty);
  }
}

}  // namespace
}  // namespace Tarn
