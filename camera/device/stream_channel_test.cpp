#include "camera/device/stream_channel.h"

#include <gtest/gtest.h>

#include "camera/device/stream_channel_fixture.h"

namespace Tarn {
namespace {

constexpr std::uint16_t kPacketSizes[] = {576, 1500, 9000, 16000};

StreamHeader HeaderOf(const Bytes& datagram) {
  ByteReader in(datagram);
  return StreamHeader::Decode(in).value_or(StreamHeader{});
}

/// The datagrams of a block, put together by copying.
std::vector<Bytes> Reference(const ImageLeader& image, ByteView payload, std::uint64_t id,
                             const StreamConfig& config) {
  std::vector<Bytes> datagrams;
  const auto add = [&](StreamFormat format, auto&& body) {
    StreamHeader header;
    header.format = format;
    header.extended = config.extended_ids;
    header.block_id = id;
    header.packet_id = static_cast<std::uint32_t>(datagrams.size());
    Bytes bytes(65536);
    ByteWriter out(bytes);
    header.Encode(out);
    body(out);
    bytes.resize(out.Size());
    datagrams.push_back(std::move(bytes));
  };
  add(StreamFormat::Leader, [&](ByteWriter& out) { image.Encode(out); });
  const std::size_t full = config.packet_size - 28u - (config.extended_ids ? 20 : 8);
  for (std::size_t at = 0; at < payload.size(); at += full) {
    const ByteView data = payload.subspan(at, std::min(full, payload.size() - at));
    add(StreamFormat::Payload, [&](ByteWriter& out) { out.PutBytes(data); });
  }
  add(StreamFormat::Trailer, [&](ByteWriter& out) { ImageTrailer{image.type, image.size_y}.Encode(out); });
  return datagrams;
}

TEST_F(StreamChannelTest, BothDriversSendTheDatagramsOfTheStandard) {
  const Bytes pixels = Pattern(400'000);
  for (const StreamDriver driver : {StreamDriver::Socket, StreamDriver::Filter}) {
    for (const bool extended : {false, true}) {
      for (const std::uint16_t packet_size : kPacketSizes) {
        SCOPED_TRACE(testing::Message() << "packets of " << packet_size << ", extended " << extended);
        config.extended_ids = extended;
        config.packet_size = packet_size;
        Open(0, driver);
        const std::size_t full = packet_size - 28u - (extended ? 20 : 8);
        std::uint64_t id = 0;
        const auto send = [&](ImageBlock&& block, ByteView payload) {
          const auto expected = Reference(block.image, payload, ++id, config);
          SendAll(std::move(block));
          ASSERT_EQ(receiver.Arrived(), expected) << payload.size() << " bytes";
          EXPECT_EQ(receiver.FromPort(), channel->SourcePort());
        };
        for (const std::size_t size : {std::size_t{1}, full, full + 1, 64 * full, pixels.size()}) {
          const ByteView payload = ByteView(pixels).first(std::min(size, pixels.size()));
          send(Block(payload), payload);
        }
        ImageBlock planes = Block({});
        planes.payload = {};
        Bytes payload;
        for (const std::uint8_t* base = pixels.data(); base != pixels.data() + 270'000; base += 90'000) {
          planes.payload.Append({base, 200, 256, 300});
          for (int row = 0; row < 300; ++row)
            payload.insert(payload.end(), base + row * 256, base + row * 256 + 200);
        }
        send(std::move(planes), payload);
        EXPECT_EQ(channel->Driver(), driver);
        EXPECT_EQ(channel->Counters().frames, 6u);
        EXPECT_EQ(channel->Counters().failed_sends, 0u);
      }
    }
  }
}

TEST_F(StreamChannelTest, RefusedBlocksStayTheSenders) {
  Open(2);
  const Bytes pixels = Pattern(10'000);
  channel->StopRunning();
  EXPECT_EQ(channel->Send(Block(pixels, owners.For(0))), SendResult::NotRunning);
  channel->BeginRunning(0);
  for (const Endpoint& incomplete : {Endpoint{kLoopback, 0}, Endpoint{0, 5000}}) {
    config.destination = incomplete;
    channel->Configure(config);
    EXPECT_EQ(channel->Send(Block(pixels, owners.For(1))), SendResult::NoDestination);
    channel->FireTestPacket();
  }
  config.destination = receiver.Address();
  config.packet_size = 60;
  channel->Configure(config);
  EXPECT_EQ(channel->Send(Block(pixels, owners.For(2))), SendResult::TooLarge);
  channel->Close();
  EXPECT_EQ(channel->Send(Block(pixels, owners.For(3))), SendResult::Closed);
  EXPECT_TRUE(owners.Told().empty());
  EXPECT_TRUE(receiver.Arrived().empty());
}

TEST_F(StreamChannelTest, ResendsTheVeryPacketsOrSaysThatTheyAreGone) {
  const Bytes pixels = Pattern(20'000);
  for (const bool extended : {false, true}) {
    for (const bool extended_status : {false, true}) {
      config.packet_size = 1500;
      config.extended_ids = extended;
      config.extended_status = extended_status;
      Open(2);
      SendAll(Block(pixels));  // is gone after two more
      const auto count = static_cast<std::uint32_t>(receiver.Arrived().size());
      for (int i = 0; i < 2; ++i) SendAll(Block(pixels));
      const auto sent = receiver.Arrived();
      const struct {
        std::uint64_t block;
        std::uint32_t first, last;
        std::uint16_t flags;
      } rows[] = {{3, 2, 4, 1},
                  {3, 0, 0, 1},
                  {3, count - 1, count - 1, 1},
                  {2, 5, count, 5},  // more than there is
                  {2, 0, 0xFFFFFFFF, 1}};
      for (const auto& row : rows) {
        Ask(row.block, row.first, row.last);
        for (std::uint32_t id = row.first; id <= std::min(row.last, count - 1); ++id) {
          Bytes expected = sent[(row.block - 2) * count + id];
          if (extended_status) StoreBe<std::uint16_t>(expected.data(), 0x0100);
          if (extended) StoreBe(expected.data() + 2, row.flags);
          EXPECT_EQ(receiver.Next(), expected) << row.block << '/' << id;
        }
      }
      const auto refused = [&](std::uint64_t block, std::uint32_t packet, std::uint16_t status) {
        Ask(block, packet, packet + 1000);
        const Bytes answer = receiver.Next();
        EXPECT_EQ(answer.size(), extended ? 20u : 8u) << block;
        EXPECT_EQ(HeaderOf(answer).status, extended_status ? status : 0x800C) << block;
        EXPECT_EQ(HeaderOf(answer).block_id, block);
        EXPECT_EQ(HeaderOf(answer).packet_id, packet);
      };
      refused(1, 3, 0x8011);
      refused(4, 3, 0x8010);
      refused(3, count, 0x8012);
      channel->Resend({{kLoopback + 1, 5000}, 3, 1, 1, extended});
      channel->Resend({receiver.Address(), 3, 1, 1, !extended});
      Ask(3, 4, 2);
      config.packet_size = 1000;  // what is kept is cut in another way
      channel->Configure(config);
      refused(3, 1, 0x8011);
      EXPECT_TRUE(receiver.Arrived().empty()) << "a stranger's request, ids of the other width, no range";
    }
  }
}

TEST_F(StreamChannelTest, WhatIsNotSentYetIsOnItsWay) {
  const Bytes pixels = Pattern(1'000'000);
  for (const bool extended_status : {false, true}) {
    config.extended_status = extended_status;
    config.pace.bytes_per_second = 1'000'000;
    Open(2);
    ASSERT_EQ(channel->Send(Block(pixels)), SendResult::Accepted);
    const Bytes leader = receiver.Next();
    Ask(1, 600, 600);
    bool answered = false;
    for (int i = 0; i < 100; ++i) answered = answered || HeaderOf(receiver.Next()).status != 0;
    // Without the newer codes an answer would say that it never comes.
    EXPECT_EQ(answered, extended_status);
    channel->Close();  // still sends from these pixels
  }
}

TEST_F(StreamChannelTest, ABlockSaysThatTheOneBeforeWasDropped) {
  const Bytes pixels = Pattern(1'000'000);
  config.extended_ids = true;
  config.pace.bytes_per_second = 1'000'000;
  Open(2);
  ASSERT_EQ(channel->Send(Block(pixels)), SendResult::Accepted);
  channel->StopRunning();
  ASSERT_TRUE(Eventually([&] { return channel->Counters().dropped_blocks == 1; }));
  receiver.Arrived();
  channel->BeginRunning(0);
  const Bytes small = Pattern(5000);
  for (const int flags : {2, 0}) {
    SendAll(Block(small));
    for (const Bytes& datagram : receiver.Arrived()) EXPECT_EQ(HeaderOf(datagram).flags, flags);
  }
  Ask(1, 0, 0xFFFFFFFF);  // the part that was sent is not enough to put an image together
  EXPECT_EQ(HeaderOf(receiver.Next()).status, 0x800C);
}

TEST_F(StreamChannelTest, ManyRequestsAreNoFlood) {
  Open(2);
  const Bytes pixels = Pattern(100'000);
  SendAll(Block(pixels));
  const std::size_t packets = receiver.Arrived().size();
  // Never the same range twice, so that only the budget of the block can end it.
  for (std::uint32_t i = 0; channel->Counters().resent_packets < 2 * packets && i < 100'000; ++i)
    Ask(1, 0, 0xFFFFFF + i);
  for (std::uint32_t i = 0; i < 1000; ++i) Ask(1, 0, 0xFFFFFFF + i);
  channel->Close();
  EXPECT_LE(channel->Counters().resent_packets, 3 * packets);
  EXPECT_GE(channel->Counters().resent_packets, 2 * packets);
}

}  // namespace
}  // namespace Tarn
