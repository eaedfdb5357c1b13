#include "camera/wire/gvcp.h"

#include <gtest/gtest.h>

#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using Bytes = std::vector<std::uint8_t>;

template <class Part>
Bytes Encoded(const Part& part) {
  Bytes bytes(100);
  ByteWriter out(bytes);
  part.Encode(out);
  bytes.resize(out.Size());
  return bytes;
}

TEST(CommandHeaderBytes, AreTheStandards) {
  const struct {
    const char* bytes;
    std::uint8_t flags;
    Command command;
    std::uint16_t length;
    std::uint16_t request_id;
  } rows[] = {
      {"42 11 0002 0000 1234", 0x11, Command::Discovery, 0, 0x1234},
      {"42 01 0080 0008 1234", 0x01, Command::ReadReg, 8, 0x1234},
      {"42 01 0082 0010 FFFF", 0x01, Command::WriteReg, 16, 0xFFFF},
      {"42 00 0040 000C 0001", 0x00, Command::PacketResend, 12, 1},
      {"42 01 8765 0000 0000", 0x01, Command{0x8765}, 0, 0},  // unknown ones pass, to be answered as such
  };
  for (const auto& row : rows) {
    const Bytes bytes = Hex(row.bytes);
    ByteReader in(bytes);
    const auto header = CommandHeader::Decode(in);
    ASSERT_TRUE(header) << row.bytes;
    EXPECT_EQ(header->flags, row.flags) << row.bytes;
    EXPECT_EQ(header->command, row.command) << row.bytes;
    EXPECT_EQ(header->length, row.length) << row.bytes;
    EXPECT_EQ(header->request_id, row.request_id) << row.bytes;
    EXPECT_EQ(Encoded(*header), bytes) << row.bytes;
  }
}

TEST(CommandHeaderBytes, NeedTheKeyAndEveryByte) {
  const Bytes command = Hex("42 01 0080 0008 1234");
  for (std::size_t n = 0; n < command.size(); ++n) {
    ByteReader in(ByteView(command).first(n));
    EXPECT_FALSE(CommandHeader::Decode(in)) << n << " bytes";
  }
  for (const char* foreign : {"00 00 0081 0008 1234", "80 03 0081 0000 1234", "43 01 0080 0008 1234"}) {
    const Bytes bytes = Hex(foreign);
    ByteReader in(bytes);
    EXPECT_FALSE(CommandHeader::Decode(in)) << foreign;
  }
}

TEST(AckHeaderBytes, AreTheStandards) {
  const Bytes bytes = Hex("8003 0081 0000 1234");
  ByteReader in(bytes);
  const auto header = AckHeader::Decode(in);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->status, WireStatus::InvalidAddress);
  EXPECT_EQ(header->acknowledge, 0x0081);
  EXPECT_EQ(header->ack_id, 0x1234);
  EXPECT_EQ(Encoded(*header), bytes);
  EXPECT_EQ(Encoded(AckHeader{WireStatus::Success, kPendingAck, 4, 0x1234}), Hex("0000 0089 0004 1234"));
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    ByteReader cut(ByteView(bytes).first(n));
    EXPECT_FALSE(AckHeader::Decode(cut)) << n << " bytes";
  }
}

TEST(ResendCommandBytes, NamePacketsInBothForms) {
  const struct {
    const char* bytes;
    bool extended;
    std::uint64_t block;
    std::uint32_t first;
    std::uint32_t last;
  } rows[] = {
      {"0000 0007 00000003 00FFFFFF", false, 7, 3, ResendCommand::kToTheEnd},
      {"0000 FFFF AB000003 CD000004", false, 0xFFFF, 3, 4},  // ids have 24 bits; what is above is noise
      {"0000 0000 00000003 FFFFFFFF 0000000100000007", true, 0x1'0000'0007, 3, ResendCommand::kToTheEnd},
      {"0000 0000 00000003 00FFFFFF 0000000000000001", true, 1, 3, 0x00FF'FFFF},  // here a packet like any
  };
  for (const auto& row : rows) {
    const Bytes bytes = Hex(row.bytes);
    ByteReader in(bytes);
    const auto command = ResendCommand::Decode(in, row.extended);
    ASSERT_TRUE(command) << row.bytes;
    EXPECT_EQ(command->channel, 0) << row.bytes;
    EXPECT_EQ(command->block_id, row.block) << row.bytes;
    EXPECT_EQ(command->first_packet, row.first) << row.bytes;
    EXPECT_EQ(command->last_packet, row.last) << row.bytes;
    EXPECT_EQ(command->extended, row.extended) << row.bytes;
    for (std::size_t n = 0; n < bytes.size(); ++n) {
      ByteReader cut(ByteView(bytes).first(n));
      EXPECT_FALSE(ResendCommand::Decode(cut, row.extended)) << n << " bytes of " << row.bytes;
    }
  }
}

TEST(ForceIpCommandBytes, AreTheStandards) {
  const std::string gap = " 00112233445566778899AABB ";  // reserved; whatever stands there is ignored
  const Bytes bytes = Hex("FFFF 001122334455" + gap + "0A000005" + gap + "FF000000" + gap + "0A000001");
  ASSERT_EQ(bytes.size(), 56u);
  ByteReader in(bytes);
  const auto command = ForceIpCommand::Decode(in);
  ASSERT_TRUE(command);
  EXPECT_EQ(command->mac, 0x0011'2233'4455u);
  EXPECT_EQ(command->address, 0x0A00'0005u);
  EXPECT_EQ(command->mask, 0xFF00'0000u);
  EXPECT_EQ(command->gateway, 0x0A00'0001u);
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    ByteReader cut(ByteView(bytes).first(n));
    EXPECT_FALSE(ForceIpCommand::Decode(cut)) << n << " bytes";
  }
}

TEST(ActionCommandBytes, CarryATimeWhenScheduled) {
  const Bytes bytes = Hex("00000001 00000002 FFFFFFF0 1122334455667788");
  for (const bool scheduled : {false, true}) {
    ByteReader in(bytes);
    const auto command = ActionCommand::Decode(in, scheduled);
    ASSERT_TRUE(command);
    EXPECT_EQ(command->device_key, 1u);
    EXPECT_EQ(command->group_key, 2u);
    EXPECT_EQ(command->group_mask, 0xFFFF'FFF0u);
    EXPECT_EQ(command->time, scheduled ? std::optional(0x1122'3344'5566'7788u) : std::nullopt);
    for (std::size_t n = 0; n < (scheduled ? bytes.size() : 12); ++n) {
      ByteReader cut(ByteView(bytes).first(n));
      EXPECT_FALSE(ActionCommand::Decode(cut, scheduled)) << n << " bytes";
    }
  }
}

}  // namespace
}  // namespace Tarn
