#include "camera/wire/gvsp.h"

#include <gtest/gtest.h>

#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

TEST(StreamHeaderBytes, AreTheStandardsInBothForms) {
  using enum StreamFormat;
  ExpectBytes(StreamHeader{0, 0, Payload, false, 0x0102, 0x030405}, "0000 0102 03 030405");
  ExpectBytes(StreamHeader{0x800C, 0, Trailer, false, 1, 2}, "800C 0001 02 000002");
  ExpectBytes(StreamHeader{0, 0, Leader, true, 1, 0}, "0000 0000 81 000000 0000000000000001 00000000");
  ExpectBytes(StreamHeader{0x0100, 1, Payload, true, 0x1'0000'0007, 0x0102'0304},
              "0100 0001 83 000000 0000000100000007 01020304");
}

TEST(ImageBytes, AreTheStandards) {
  ExpectBytes(ImageLeader{PayloadType::Image, 0x1122'3344'5566'7788, 0x0108'0001, 640, 480, 8, 16, 1, 2},
              "0000 0001 1122334455667788 01080001 00000280 000001E0 00000008 00000010 0001 0002");
  ExpectBytes(ImageTrailer{PayloadType::Image, 480}, "0000 0001 000001E0");
  ExpectBytes(ImageTrailer{Chunked(PayloadType::Image), 480}, "0000 4001 000001E0");
  ExpectBytes(ChunkFields{0x4B018, 5}, "0004B018 00000005");
}

TEST(DataBytes, AreTheStandards) {
  constexpr PayloadType kRaw = PayloadType::RawData;
  constexpr PayloadType kFile = PayloadType::File;
  ExpectBytes(DataLeader{kRaw, 0x1122'3344'5566'7788, 9, ""}, "0000 0002 1122334455667788 0000000000000009");
  ExpectBytes(DataLeader{Chunked(kRaw), 1, 9, ""}, "0000 4002 0000000000000001 0000000000000009");
  ExpectBytes(DataLeader{kFile, 1, 9, "a.b"}, "0000 0003 0000000000000001 0000000000000009 61 2E 62 00");
  ExpectBytes(DataLeader{kFile, 1, 9, ""}, "0000 0003 0000000000000001 0000000000000009 00");
  ExpectBytes(DataTrailer{Chunked(kFile)}, "0000 4003");
}

// So the types of one leader or trailer do not pass for those of the other.
TEST(StreamPartBytes, OfAnotherTypeAreRefused) {
  const std::vector<std::uint8_t> image = Hex("0000 0001" + std::string(64, '0'));
  const std::vector<std::uint8_t> file = Hex("0000 0003" + std::string(64, '0'));
  const auto reads = []<class Part>(Part, ByteView bytes) {
    ByteReader in(bytes);
    return Part::Decode(in).has_value();
  };
  EXPECT_FALSE(reads(ImageLeader{}, file) || reads(ImageTrailer{}, file));
  EXPECT_FALSE(reads(DataLeader{}, image) || reads(DataTrailer{}, image));
}

TEST(TestPackets, HoldTheStandardsTestData) {
  std::vector<std::uint8_t> packet(24, 0xAB);
  FillTestPacket(packet);
  EXPECT_EQ(packet, Hex("0000000000000000 FF E9 E2 F1 EE F7 ED E0 F0 F8 FC 7E BF 49 B2 D9"));
}

}  // namespace
}  // namespace Tarn
