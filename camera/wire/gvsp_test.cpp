#include "camera/wire/gvsp.h"

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

StreamHeader Header(std::uint16_t status, std::uint16_t flags, StreamFormat format, bool extended,
                    std::uint64_t block, std::uint32_t packet) {
  StreamHeader header;
  header.status = status;
  header.flags = flags;
  header.format = format;
  header.extended = extended;
  header.block_id = block;
  header.packet_id = packet;
  return header;
}

TEST(StreamHeaderBytes, AreTheStandardsInBothForms) {
  const struct {
    const char* what;
    StreamHeader header;
    const char* bytes;
  } rows[] = {
      {"leader", Header(0, 0, StreamFormat::Leader, false, 1, 0), "0000 0001 01 000000"},
      {"data", Header(0, 0, StreamFormat::Payload, false, 0x0102, 0x030405), "0000 0102 03 030405"},
      {"trailer", Header(0, 0, StreamFormat::Trailer, false, 1, 2), "0000 0001 02 000002"},
      {"refusal", Header(0x800C, 0, StreamFormat::Payload, false, 8, 9), "800C 0008 03 000009"},
      {"long leader", Header(0, 0, StreamFormat::Leader, true, 1, 0),
       "0000 0000 81 000000 0000000000000001 00000000"},
      {"long resend", Header(0x0100, 1, StreamFormat::Payload, true, 0x0000000100000007, 0x01020304),
       "0100 0001 83 000000 0000000100000007 01020304"},
  };
  for (const auto& row : rows) {
    const Bytes expected = Hex(row.bytes);
    EXPECT_EQ(Encoded(row.header), expected) << row.what;
    ByteReader in(expected);
    const auto read = StreamHeader::Decode(in);
    ASSERT_TRUE(read) << row.what;
    EXPECT_EQ(Encoded(*read), expected) << row.what;
    EXPECT_EQ(read->block_id, row.header.block_id) << row.what;
    EXPECT_EQ(read->packet_id, row.header.packet_id) << row.what;
  }
}

TEST(ImageLeaderBytes, AreTheStandards) {
  ImageLeader leader;
  leader.timestamp = 0x1122334455667788;
  leader.pixel_format = 0x01080001;
  leader.size_x = 640;
  leader.size_y = 480;
  leader.offset_x = 8;
  leader.offset_y = 16;
  EXPECT_EQ(Encoded(leader),
            Hex("00 00 0001 1122334455667788 01080001 00000280 000001E0 00000008 00000010 0000 0000"));
  EXPECT_EQ(Encoded(ImageTrailer{PayloadType::Image, 480}), Hex("0000 0001 000001E0"));
  EXPECT_EQ(Encoded(ImageTrailer{Chunked(PayloadType::Image), 480}), Hex("0000 4001 000001E0"));
  EXPECT_EQ(Encoded(ChunkFields{0x4B018, 5}), Hex("0004B018 00000005"));
}

TEST(DataLeaderBytes, AreTheStandards) {
  const struct {
    const char* what;
    DataLeader leader;
    const char* bytes;
  } rows[] = {
      {"raw data",
       {PayloadType::RawData, 0x1122334455667788, 9, ""},
       "0000 0002 1122334455667788 0000000000000009"},
      {"raw data with chunks",
       {Chunked(PayloadType::RawData), 1, 9, ""},
       "0000 4002 0000000000000001 0000000000000009"},
      {"file", {PayloadType::File, 1, 9, "a.b"}, "0000 0003 0000000000000001 0000000000000009 61 2E 62 00"},
      {"file without a name",
       {PayloadType::File, 1, 9, ""},
       "0000 0003 0000000000000001 0000000000000009 00"},
  };
  for (const auto& row : rows) {
    const Bytes expected = Hex(row.bytes);
    EXPECT_EQ(Encoded(row.leader), expected) << row.what;
    ByteReader in(expected);
    const auto read = DataLeader::Decode(in);
    ASSERT_TRUE(read) << row.what;
    EXPECT_EQ(Encoded(*read), expected) << row.what;
    EXPECT_TRUE(in.Rest().empty()) << row.what;
    for (std::size_t n = 0; n < expected.size(); ++n) {
      ByteReader cut(ByteView(expected).first(n));
      EXPECT_FALSE(DataLeader::Decode(cut)) << row.what << ", " << n << " bytes";
    }
  }
  EXPECT_EQ(Encoded(DataTrailer{Chunked(PayloadType::File)}), Hex("0000 4003"));
}

TEST(TestPackets, HoldTheStandardsTestData) {
  Bytes packet(65507);
  FillTestPacket(packet);
  const Bytes start = Hex("0000000000000000 FF E9 E2 F1 EE F7 ED E0 F0 F8 FC 7E BF 49 B2 D9");
  EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 24), start);
}

TEST(StreamDecoders, RefuseEveryTruncation) {
  const Bytes header = Hex("0100 0001 83 000000 0000000100000007 01020304");
  for (std::size_t n = 0; n < header.size(); ++n) {
    ByteReader in(ByteView(header).first(n));
    EXPECT_FALSE(StreamHeader::Decode(in)) << n << " bytes of a header";
  }
  const Bytes leader = Encoded(ImageLeader{});
  for (std::size_t n = 0; n < leader.size(); ++n) {
    ByteReader in(ByteView(leader).first(n));
    EXPECT_FALSE(ImageLeader::Decode(in)) << n << " bytes of a leader";
  }
}

}  // namespace
}  // namespace Tarn
