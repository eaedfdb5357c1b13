#include "camera/engine/stream/packetiser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace Tarn {
namespace {

constexpr std::size_t kPacket = 576;

/// Borders of packets; that the headers are the standard's is for readers of the stream to say.
TEST(Packetiser, CutsThePayloadIntoNumberedPackets) {
  for (const bool extended : {false, true}) {
    const std::size_t full = kPacket - 28 - (extended ? 20 : 8);
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, full - 1, full, full + 1, 0x12345 * full}) {
      const Packetiser packets({}, size, 7, {kPacket, extended});
      ASSERT_EQ(packets.Count(), 2 + (size + full - 1) / full) << size;
      const DataHeader stamp = packets.DataHeaders(0x0100, 1);
      for (std::uint32_t id = 1; id < packets.TrailerId(); ++id) {
        const auto slice = packets.SliceOf(id);
        ASSERT_EQ(slice.offset, (id - 1) * full) << size;
        ASSERT_EQ(slice.size, std::min(full, size - slice.offset)) << size;
        std::array<std::uint8_t, StreamHeader::kExtendedSize> bytes;
        stamp.Write(bytes.data(), id);
        ByteReader in(bytes);
        ASSERT_EQ(StreamHeader::Decode(in)->packet_id, id);
      }
    }
  }
}

TEST(Packetiser, RefusesWhatCannotBeNumbered) {
  constexpr std::size_t kMost = (kPacket - 36) * 0xFF'FFFD;
  EXPECT_TRUE(Packetiser::Fits(kMost, {kPacket, false}));
  EXPECT_FALSE(Packetiser::Fits(kMost + 1, {kPacket, false}));
  EXPECT_TRUE(Packetiser::Fits(kMost + 1, {kPacket, true}));
  EXPECT_TRUE(Packetiser::Fits(1, {kMinPacket, true}));
  EXPECT_FALSE(Packetiser::Fits(1, {kMinPacket - 1, true}));
}

}  // namespace
}  // namespace Tarn
