#include "camera/engine/stream/packetiser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "camera/engine/stream/payload_layout.h"

namespace Tarn {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return bytes;
}

Bytes SliceBytes(const PayloadLayout& layout, std::size_t offset, std::size_t size) {
  Bytes bytes;
  layout.ForEachPiece(offset, size, [&](const std::uint8_t* at, std::size_t count) {
    bytes.insert(bytes.end(), at, at + count);
  });
  return bytes;
}

TEST(Packetiser, EndsSayWhatTheBlockIs) {
  BlockHead head;
  head.image.timestamp = 5;
  head.image.size_y = 48;
  head.chunk_layout_id = 0xAB;
  std::string name(DataLeader::kMaxFileName, 'x');
  std::copy(name.begin(), name.end(), head.file_name.begin());
  const auto end = [&](PayloadType type, bool leader) {
    head.image.type = type;
    const Packetiser packets(head, 1000, 1, {576, true});
    Bytes bytes(Packetiser::kMaxEndSize);
    bytes.resize(packets.EncodeEnd(leader ? 0 : packets.TrailerId(), 0, 0, bytes));
    return Bytes(bytes.begin() + StreamHeader::kExtendedSize, bytes.end());
  };
  EXPECT_EQ(end(PayloadType::Image, true).size(), 36u);
  EXPECT_EQ(end(PayloadType::Image, false), (Bytes{0, 0, 0, 1, 0, 0, 0, 48}));
  EXPECT_EQ(end(Chunked(PayloadType::Image), false),
            (Bytes{0, 0, 0x40, 1, 0, 0, 0, 48, 0, 0, 3, 0xE8, 0, 0, 0, 0xAB}));
  EXPECT_EQ(end(PayloadType::RawData, true),
            (Bytes{0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 3, 0xE8}));
  EXPECT_EQ(end(PayloadType::RawData, false), (Bytes{0, 0, 0, 2}));
  EXPECT_EQ(end(PayloadType::File, true).size(), 20 + name.size() + 1);
  EXPECT_EQ(end(Chunked(PayloadType::File), false), (Bytes{0, 0, 0x40, 3, 0, 0, 3, 0xE8, 0, 0, 0, 0xAB}));
}

TEST(Packetiser, DataPacketsPutTogetherAreThePayload) {
  for (const bool extended : {false, true}) {
    const PacketForm form{576, extended};
    const std::size_t full = 576 - 28 - (extended ? 20 : 8);
    // Around the borders of packets; a payload without bytes has no data packet at all.
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, full - 1, full, full + 1, 5 * full}) {
      const Bytes payload = Pattern(size);
      const PayloadLayout layout = PayloadLayout::Contiguous(payload);
      const Packetiser packets({}, size, 1, form);
      ASSERT_EQ(packets.Count(), 2 + (size + full - 1) / full) << size;
      Bytes joined;
      for (std::uint32_t id = 1; id < packets.TrailerId(); ++id) {
        const auto slice = packets.SliceOf(id);
        ASSERT_EQ(slice.offset, (id - 1) * full) << size;
        ASSERT_NE(slice.size, 0u) << size;
        const Bytes part = SliceBytes(layout, slice.offset, slice.size);
        joined.insert(joined.end(), part.begin(), part.end());
      }
      EXPECT_EQ(joined, payload) << size;
    }
  }
}

TEST(Packetiser, StampedHeadersEqualEncodedOnes) {
  for (const bool extended : {false, true}) {
    const Packetiser packets({}, 100'000'000, extended ? 0x1'0000'0007 : 7, {576, extended});
    const DataHeader stamp = packets.DataHeaders(0x0100, 1);
    for (const std::uint32_t id : {1u, 0x1234u, packets.TrailerId() - 1}) {
      StreamHeader header;
      header.status = 0x0100;
      header.flags = 1;
      header.format = StreamFormat::Payload;
      header.extended = extended;
      header.block_id = packets.BlockId();
      header.packet_id = id;
      Bytes expected(header.Size());
      ByteWriter out(expected);
      header.Encode(out);
      Bytes stamped(header.Size());
      stamp.Write(stamped.data(), id);
      EXPECT_EQ(stamped, expected) << id;
    }
  }
}

TEST(Packetiser, RefusesWhatCannotBeNumbered) {
  const std::size_t full = 576 - 36;
  EXPECT_TRUE(Packetiser::Fits(full * 0xFF'FFFD, {576, false}));
  EXPECT_FALSE(Packetiser::Fits(full * 0xFF'FFFD + 1, {576, false}));
  EXPECT_TRUE(Packetiser::Fits(full * 0xFF'FFFD + 1, {576, true}));
  EXPECT_TRUE(Packetiser::Fits(1, {kMinPacket, true}));
  EXPECT_FALSE(Packetiser::Fits(1, {kMinPacket - 1, true}));
}

TEST(PayloadLayout, SlicesRowsAndPlanesAsIfCopied) {
  Bytes memory = Pattern(4000);
  struct Plane {
    std::size_t start, row, rows;
    std::ptrdiff_t stride;
  };
  const std::vector<std::vector<Plane>> layouts = {
      {{0, 100, 30, 128}},                                     // padded rows
      {{3840, 100, 30, -128}},                                 // bottom row first in memory
      {{0, 10, 7, 10}},                                        // rows that touch
      {{0, 64, 8, 100}, {1000, 32, 4, 50}, {2000, 17, 1, 0}},  // planes of different sizes
  };
  for (std::size_t l = 0; l < layouts.size(); ++l) {
    PayloadLayout layout;
    Bytes reference;
    for (const Plane& plane : layouts[l]) {
      layout.Append({memory.data() + plane.start, plane.row, plane.stride, plane.rows});
      for (std::size_t r = 0; r < plane.rows; ++r) {
        const std::uint8_t* row = memory.data() + plane.start + static_cast<std::ptrdiff_t>(r) * plane.stride;
        reference.insert(reference.end(), row, row + plane.row);
      }
    }
    ASSERT_EQ(layout.Size(), reference.size());
    for (const std::size_t length : {std::size_t{1}, std::size_t{63}, std::size_t{250}, reference.size()}) {
      for (std::size_t offset = 0; offset + length <= reference.size(); offset += length) {
        const auto from = reference.begin() + static_cast<std::ptrdiff_t>(offset);
        std::size_t pieces = 0;
        layout.ForEachPiece(offset, length, [&](const std::uint8_t*, std::size_t) { ++pieces; });
        ASSERT_EQ(SliceBytes(layout, offset, length), Bytes(from, from + static_cast<std::ptrdiff_t>(length)))
            << "layout " << l << ", " << length << " bytes from " << offset;
        ASSERT_LE(pieces, layout.MaxPieces(length)) << "layout " << l;
      }
    }
  }
}

}  // namespace
}  // namespace Tarn
