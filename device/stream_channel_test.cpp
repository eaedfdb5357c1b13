#include "device/stream_channel.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

namespace Tarn {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kLoopback = 0x7F000001;
constexpr std::uint16_t kPacketSizes[] = {576, 1500, 9000, 16000};

/// A client's stream socket.
class Receiver {
 public:
  Receiver() : fd_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    const int size = 8 << 20;
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(kLoopback);
    socklen_t length = sizeof address;
    ::bind(fd_, reinterpret_cast<const sockaddr*>(&address), length);
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
    endpoint_ = {kLoopback, ntohs(address.sin_port)};
  }
  ~Receiver() { ::close(fd_); }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  Endpoint Address() const { return endpoint_; }

  /// The next datagram; empty after `patience` without one.
  Bytes Next(std::chrono::milliseconds patience = 2000ms) {
    pollfd poll_fd{fd_, POLLIN, 0};
    if (::poll(&poll_fd, 1, static_cast<int>(patience.count())) != 1) return {};
    Bytes bytes(65536);
    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t count =
        ::recvfrom(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    from_port_ = ntohs(from.sin_port);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }
  /// What has arrived; over loopback that is everything that was sent before the call.
  std::vector<Bytes> Arrived() {
    std::vector<Bytes> all;
    for (Bytes bytes = Next(0ms); !bytes.empty(); bytes = Next(0ms)) all.push_back(std::move(bytes));
    return all;
  }
  std::uint16_t FromPort() const { return from_port_; }

 private:
  int fd_;
  Endpoint endpoint_;
  std::uint16_t from_port_ = 0;
};

StreamHeader HeaderOf(const Bytes& datagram) {
  ByteReader in(datagram);
  return StreamHeader::Decode(in).value_or(StreamHeader{});
}

Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return bytes;
}

/// The datagrams of a block, put together by copying.
std::vector<Bytes> Reference(const ImageLeader& image, ByteView payload, std::uint64_t id,
                             std::size_t packet_size, bool extended) {
  std::vector<Bytes> datagrams;
  const auto add = [&](StreamFormat format, auto&& body) {
    StreamHeader header;
    header.format = format;
    header.extended = extended;
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
  const std::size_t full = packet_size - 28 - (extended ? 20 : 8);
  for (std::size_t at = 0; at < payload.size(); at += full) {
    add(StreamFormat::Payload,
        [&](ByteWriter& out) { out.PutBytes(payload.subspan(at, std::min(full, payload.size() - at))); });
  }
  add(StreamFormat::Trailer, [&](ByteWriter& out) { ImageTrailer{image.type, image.size_y}.Encode(out); });
  return datagrams;
}

/// Records who was told, in which order.
class Owners {
 public:
  BlockOwner For(int number) {
    return {[](void* context) {
              const auto* note = static_cast<Note*>(context);
              const std::lock_guard lock(note->owners->mutex_);
              note->owners->told_.push_back(note->number);
            },
            &notes_.emplace(number, Note{this, number}).first->second};
  }
  std::vector<int> Told() {
    const std::lock_guard lock(mutex_);
    return told_;
  }

 private:
  struct Note {
    Owners* owners;
    int number;
  };
  std::map<int, Note> notes_;
  std::mutex mutex_;
  std::vector<int> told_;
};

template <class Condition>
bool Eventually(Condition&& condition) {
  for (const auto deadline = std::chrono::steady_clock::now() + 10s;
       std::chrono::steady_clock::now() < deadline;) {
    if (condition()) return true;
    std::this_thread::sleep_for(1ms);
  }
  return condition();
}

class StreamChannelTest : public ::testing::Test {
 protected:
  void Open(std::size_t depth, StreamDriver driver = StreamDriver::Socket) {
    StreamOptions options;
    options.local_address = kLoopback;
    options.driver = driver;
    options.interface_mtu = 65536;
    options.resend_depth = depth;
    channel = std::make_unique<StreamChannel>(options);
    config.destination = receiver.Address();
    config.resend_client = kLoopback;
    channel->Configure(config);
    channel->ChannelOpened();
    channel->SetRunning(true);
  }

  ImageBlock Block(ByteView payload, BlockOwner owner = {}) {
    ImageBlock block;
    block.image.size_x = 100;
    block.image.size_y = static_cast<std::uint32_t>(payload.size() / 100);
    block.image.pixel_format = 0x01080001;
    block.payload = PayloadLayout::Contiguous(payload);
    block.owner = std::move(owner);
    return block;
  }

  /// Sends a block, and waits until it is out: the loop may be at work on orders and take it along.
  void SendAll(ImageBlock&& block) {
    const std::uint64_t frames = channel->Counters().frames;
    ASSERT_EQ(channel->Send(std::move(block)), SendResult::Accepted);
    ASSERT_TRUE(Eventually([&] { return channel->Counters().frames == frames + 1; }));
  }

  void Ask(std::uint64_t block, std::uint32_t first, std::uint32_t last) {
    channel->Resend({receiver.Address(), block, first, last, config.extended_ids});
  }

  Owners owners;  // outlive the channel
  Receiver receiver;
  StreamConfig config;
  std::unique_ptr<StreamChannel> channel;
};

TEST_F(StreamChannelTest, BothDriversSendTheDatagramsOfTheStandard) {
  const Bytes pixels = Pattern(400'000);
  for (const StreamDriver driver : {StreamDriver::Socket, StreamDriver::Filter}) {
    for (const bool extended : {false, true}) {
      for (const std::uint16_t packet_size : kPacketSizes) {
        config.extended_ids = extended;
        config.packet_size = packet_size;
        Open(0, driver);
        EXPECT_EQ(channel->Driver(), driver);
        const std::size_t full = packet_size - std::size_t{28} - (extended ? 20 : 8);
        std::uint64_t id = 0;
        for (const std::size_t size : {std::size_t{1}, full, full + 1, 64 * full, std::size_t{400'000}}) {
          const ByteView payload = ByteView(pixels).first(std::min(size, pixels.size()));
          ImageBlock block = Block(payload);
          const auto expected = Reference(block.image, payload, ++id, packet_size, extended);
          ASSERT_EQ(channel->Send(std::move(block)), SendResult::Accepted);
          ASSERT_EQ(receiver.Arrived(), expected) << size << " bytes in packets of " << packet_size;
          EXPECT_EQ(receiver.FromPort(), channel->SourcePort());
        }
        EXPECT_EQ(channel->Driver(), driver);
        EXPECT_EQ(channel->Counters().frames, 5u);
        EXPECT_EQ(channel->Counters().failed_sends, 0u);
      }
    }
  }
}

TEST_F(StreamChannelTest, GathersRowsAndPlanes) {
  const Bytes memory = Pattern(300'000);
  for (const StreamDriver driver : {StreamDriver::Socket, StreamDriver::Filter}) {
    Open(0, driver);
    ImageBlock block = Block({});
    block.payload = {};
    Bytes payload;
    for (std::size_t plane = 0; plane < 3; ++plane) {
      const std::uint8_t* base = memory.data() + plane * 90'000;
      block.payload.Append({base, 200, 256, 300});
      for (std::size_t row = 0; row < 300; ++row)
        payload.insert(payload.end(), base + row * 256, base + row * 256 + 200);
    }
    const auto expected = Reference(block.image, payload, 1, config.packet_size, false);
    ASSERT_EQ(channel->Send(std::move(block)), SendResult::Accepted);
    EXPECT_EQ(receiver.Arrived(), expected);
  }
}

TEST_F(StreamChannelTest, TellsTheOwnerBeforeReturningWithoutResend) {
  Open(0);
  const Bytes pixels = Pattern(10'000);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(channel->Send(Block(pixels, owners.For(i))), SendResult::Accepted);
    EXPECT_EQ(owners.Told().size(), static_cast<std::size_t>(i + 1));
  }
}

TEST_F(StreamChannelTest, RefusedBlocksStayTheSenders) {
  Open(2);
  const Bytes pixels = Pattern(10'000);
  channel->SetRunning(false);
  EXPECT_EQ(channel->Send(Block(pixels, owners.For(0))), SendResult::NotRunning);
  channel->SetRunning(true);
  for (const Endpoint& incomplete : {Endpoint{kLoopback, 0}, Endpoint{0, 5000}}) {
    config.destination = incomplete;
    channel->Configure(config);
    EXPECT_EQ(channel->Send(Block(pixels, owners.For(1))), SendResult::NoDestination);
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

TEST_F(StreamChannelTest, BlockIdsGoOnOverStopsAndRestartWithTheChannel) {
  Open(0);
  const Bytes pixels = Pattern(100);
  const auto next_id = [&] {
    channel->Send(Block(pixels));
    const auto arrived = receiver.Arrived();
    return arrived.empty() ? 0 : HeaderOf(arrived.back()).block_id;
  };
  EXPECT_EQ(next_id(), 1u);
  EXPECT_EQ(next_id(), 2u);
  channel->SetRunning(false);
  channel->SetRunning(true);
  EXPECT_EQ(next_id(), 3u);
  channel->ChannelOpened();
  EXPECT_EQ(next_id(), 1u);
}

TEST_F(StreamChannelTest, TestPacketHasExactlyTheAskedSize) {
  Open(0);
  for (const std::uint16_t size : kPacketSizes) {
    config.packet_size = size;
    channel->Configure(config);
    channel->FireTestPacket();
    EXPECT_EQ(receiver.Next(), Bytes(size - std::size_t{28})) << size;
    EXPECT_EQ(receiver.FromPort(), channel->SourcePort());
  }
  config.destination.port = 0;
  channel->Configure(config);
  channel->FireTestPacket();
  channel->Close();
  EXPECT_TRUE(receiver.Arrived().empty());
}

TEST_F(StreamChannelTest, ResendsTheVeryPacketsOrSaysThatTheyAreGone) {
  const Bytes pixels = Pattern(20'000);
  for (const bool extended : {false, true}) {
    for (const bool extended_status : {false, true}) {
      config.extended_ids = extended;
      config.extended_status = extended_status;
      Open(2);
      for (int i = 0; i < 3; ++i) SendAll(Block(pixels));
      auto sent = receiver.Arrived();
      sent.erase(sent.begin(),
                 sent.begin() + static_cast<std::ptrdiff_t>(sent.size() / 3));  // block 1 is gone
      const std::size_t count = sent.size() / 2;
      for (Bytes& datagram : sent) {
        if (extended_status) StoreBe<std::uint16_t>(datagram.data(), 0x0100);
        if (extended) StoreBe<std::uint16_t>(datagram.data() + 2, 1);
      }
      const auto trailer = static_cast<std::uint32_t>(count - 1);
      const struct {
        std::uint64_t block;
        std::uint32_t first, last;
      } rows[] = {{3, 2, 4}, {3, 0, 0}, {3, trailer, trailer}, {2, 5, 0xFFFFFF}, {2, 0, 0xFFFFFFFF}};
      for (const auto& row : rows) {
        Ask(row.block, row.first, row.last);
        for (std::uint32_t id = row.first; id <= std::min(row.last, trailer); ++id) {
          EXPECT_EQ(receiver.Next(), sent[(row.block - 2) * count + id]) << row.block << '/' << id;
        }
      }
      const struct {
        std::uint64_t block;
        std::uint32_t first;
        std::uint16_t status;
      } gone[] = {{1, 3, 0x8011}, {4, 3, 0x8010}, {3, trailer + 1, 0x8012}};
      for (const auto& row : gone) {
        Ask(row.block, row.first, row.first + 1000);
        const Bytes answer = receiver.Next();
        EXPECT_EQ(answer.size(), extended ? 20u : 8u) << row.block;
        EXPECT_EQ(HeaderOf(answer).status, extended_status ? row.status : 0x800C) << row.block;
        EXPECT_EQ(HeaderOf(answer).block_id, row.block);
        EXPECT_EQ(HeaderOf(answer).packet_id, row.first);
      }
      channel->Resend({{kLoopback + 1, 5000}, 3, 1, 1, extended});
      channel->Close();
      EXPECT_TRUE(receiver.Arrived().empty()) << "a stranger's request, or more than was asked for";
    }
  }
}

TEST_F(StreamChannelTest, ManyRequestsAreNoFlood) {
  Open(2);
  const Bytes pixels = Pattern(100'000);
  SendAll(Block(pixels));
  const std::size_t packets = receiver.Arrived().size();
  // Never the same range twice, so that only the budget of the block can end it.
  for (std::uint32_t i = 0; i < 2000; ++i) {
    Ask(1, 0, 0xFFFFFF + i);
    if (i % 20 == 0) std::this_thread::sleep_for(1ms);
  }
  channel->SetRunning(false);
  ASSERT_TRUE(Eventually([&, last = std::uint64_t{0}]() mutable {
    std::this_thread::sleep_for(20ms);
    return std::exchange(last, channel->Counters().packets) == channel->Counters().packets;
  }));
  EXPECT_LE(channel->Counters().resent_packets, 3 * packets);
  EXPECT_GE(channel->Counters().resent_packets, 2 * packets);
}

TEST_F(StreamChannelTest, KeptBlocksOfAnotherPacketSizeAreGone) {
  Open(4);
  const Bytes pixels = Pattern(20'000);
  SendAll(Block(pixels, owners.For(1)));
  receiver.Arrived();
  config.packet_size = 1000;
  channel->Configure(config);
  Ask(1, 1, 1);
  EXPECT_EQ(HeaderOf(receiver.Next()).status, 0x800C);
  EXPECT_TRUE(Eventually([&] { return owners.Told().size() == 1; }));
}

TEST_F(StreamChannelTest, EveryBlockBecomesWholeAlthoughPacketsAreLost) {
  config.bytes_per_second = 200'000'000;
  Open(8, StreamDriver::Filter);
  const Bytes pixels = Pattern(300'000);
  std::mt19937 random(7);
  for (std::uint64_t id = 1; id <= 20; ++id) {
    ImageBlock block = Block(pixels);
    const auto expected = Reference(block.image, pixels, id, config.packet_size, false);
    ASSERT_EQ(channel->Send(std::move(block)), SendResult::Accepted);
    std::map<std::uint32_t, Bytes> got;
    const auto receive = [&](std::chrono::milliseconds patience) {
      for (Bytes bytes = receiver.Next(patience); !bytes.empty(); bytes = receiver.Next(patience)) {
        const StreamHeader header = HeaderOf(bytes);
        if (header.block_id == id && random() % 10 != 0) got.emplace(header.packet_id, std::move(bytes));
      }
    };
    for (int round = 0; round < 30 && got.size() < expected.size(); ++round) {
      receive(20ms);
      for (std::uint32_t i = 0; i < expected.size(); ++i) {
        if (!got.contains(i)) Ask(id, i, i);
        if (i % 32 == 31) std::this_thread::sleep_for(1ms);  // the queue of requests is short on purpose
      }
    }
    ASSERT_EQ(got.size(), expected.size()) << "block " << id;
    for (std::uint32_t i = 0; i < expected.size(); ++i) ASSERT_EQ(got[i], expected[i]) << id << '/' << i;
  }
}

TEST_F(StreamChannelTest, StopDropsWhatIsBeingSent) {
  const Bytes pixels = Pattern(2'000'000);
  for (const std::size_t depth : {0u, 4u}) {
    for (const bool long_delay : {false, true}) {
      Owners told;
      config.bytes_per_second = long_delay ? 0 : 1'000'000;  // a block takes two seconds
      config.packet_delay = long_delay ? Nanoseconds{60s} : Nanoseconds{0};
      Open(depth);
      std::thread sender([&] { EXPECT_EQ(channel->Send(Block(pixels, told.For(1))), SendResult::Accepted); });
      receiver.Next();
      channel->SetRunning(false);
      sender.join();
      EXPECT_TRUE(Eventually([&] { return channel->Counters().dropped_blocks == 1; }));
      if (depth == 0) {
        EXPECT_EQ(told.Told().size(), 1u);
      }
      channel->Close();
      EXPECT_EQ(told.Told().size(), 1u);
      EXPECT_EQ(channel->Counters().frames, 0u);
      receiver.Arrived();
    }
  }
}

TEST_F(StreamChannelTest, AcquisitionThatEndsByItselfLosesNothing) {
  config.bytes_per_second = 50'000'000;
  Open(4);
  const Bytes pixels = Pattern(500'000);
  ASSERT_EQ(channel->Send(Block(pixels)), SendResult::Accepted);
  ASSERT_EQ(channel->Send(Block(pixels)), SendResult::Accepted);
  channel->EndRunning();
  EXPECT_EQ(channel->Send(Block(pixels)), SendResult::NotRunning);
  EXPECT_TRUE(Eventually([&] { return channel->Counters().frames == 2; }));
  EXPECT_EQ(channel->Counters().dropped_blocks, 0u);
}

TEST_F(StreamChannelTest, ASenderWithPacingDoesNotWaitUntilThreeBlocksAreOnTheirWay) {
  config.bytes_per_second = 1'000'000;
  Open(8);
  const Bytes pixels = Pattern(2'000'000);
  for (int i = 1; i <= 3; ++i) ASSERT_EQ(channel->Send(Block(pixels, owners.For(i))), SendResult::Accepted);
  EXPECT_EQ(channel->Counters().frames, 0u) << "a block takes two seconds, so none was waited for";
  std::atomic<bool> returned{false};
  std::thread fourth([&] {
    channel->Send(Block(pixels, owners.For(4)));
    returned = true;
  });
  channel->Close();  // lets the fourth go
  fourth.join();
  EXPECT_TRUE(returned);
  auto told = owners.Told();
  if (told.size() == 4) told.pop_back();  // taken before the channel was closed, or refused
  EXPECT_EQ(told, (std::vector{1, 2, 3}));
}

/// The caller holds a lock all the time, and owners need it: as with an interpreter lock.
TEST_F(StreamChannelTest, OwnersMayNeedALockThatTheSenderHolds) {
  struct Told {
    std::recursive_mutex lock;
    std::vector<std::uint64_t> blocks;
  } told;
  struct Note {
    Told* told;
    std::uint64_t number;
  };
  const Bytes pixels = Pattern(30'000);
  std::vector<Note> notes;
  for (std::uint64_t i = 0; i < 500; ++i) notes.push_back({&told, i});
  config.bytes_per_second = 100'000'000;
  Open(3);
  for (Note& note : notes) {
    {
      const std::lock_guard lock(told.lock);
      BlockOwner owner(
          [](void* context) {
            const auto* n = static_cast<const Note*>(context);
            const std::lock_guard inner(n->told->lock);
            n->told->blocks.push_back(n->number);
          },
          &note);
      ASSERT_EQ(channel->Send(Block(pixels, std::move(owner))), SendResult::Accepted);
      ASSERT_LE(note.number - told.blocks.size(), 100u) << "blocks pile up";
    }
    if (note.number % 50 == 0) Ask(note.number, 1, 5);
  }
  channel->Close();
  ASSERT_EQ(told.blocks.size(), notes.size());
  for (std::uint64_t i = 0; i < notes.size(); ++i) ASSERT_EQ(told.blocks[i], i);
}

TEST_F(StreamChannelTest, EveryOwnerIsToldOnceWhateverHappensMeanwhile) {
  const Bytes pixels = Pattern(50'000);
  for (const std::size_t depth : {0u, 3u}) {
    for (const std::uint64_t rate : {std::uint64_t{0}, std::uint64_t{50'000'000}}) {
      config.bytes_per_second = rate;
      Open(depth, StreamDriver::Filter);
      std::array<std::atomic<int>, 600> told{};
      std::array<std::atomic<bool>, 600> accepted{};
      std::atomic<int> next{0};
      std::vector<std::thread> threads;
      for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
          for (std::size_t i; (i = static_cast<std::size_t>(next++)) < told.size();) {
            BlockOwner owner([](void* context) { ++*static_cast<std::atomic<int>*>(context); }, &told[i]);
            accepted[i] = channel->Send(Block(pixels, std::move(owner))) == SendResult::Accepted;
          }
        });
      }
      for (std::uint32_t i = 0; static_cast<std::size_t>(next) < told.size(); ++i) {
        Ask(i, i % 30, i % 30 + 5);
        if (i % 7 == 0) channel->FireTestPacket();
        if (i % 11 == 0) channel->SetRunning(i % 2 == 0);
        if (i % 13 == 0) channel->ChannelOpened();
        if (i % 17 == 0) {
          config.packet_size = i % 2 == 0 ? 1500 : 4000;
          channel->Configure(config);
        }
        std::this_thread::sleep_for(100us);
      }
      channel->SetRunning(true);
      for (std::thread& thread : threads) thread.join();
      channel->Close();
      for (std::size_t i = 0; i < told.size(); ++i) ASSERT_EQ(told[i], accepted[i] ? 1 : 0) << i;
      receiver.Arrived();
    }
  }
}

TEST_F(StreamChannelTest, OwnersMayCloseAndDestroyTheChannel) {
  struct Closer {
    std::shared_ptr<StreamChannel> channel;
    bool close;
    std::atomic<int>* told;
  };
  const Bytes pixels = Pattern(50'000);
  for (const bool close : {false, true}) {
    for (const std::size_t depth : {0u, 1u}) {
      config.bytes_per_second = 10'000'000;
      Open(depth);
      std::shared_ptr<StreamChannel> shared(std::move(channel));
      std::atomic<int> told{0};
      Closer closer{shared, close, &told};
      BlockOwner first(
          [](void* context) {
            auto* self = static_cast<Closer*>(context);
            if (self->close) self->channel->Close();
            self->channel.reset();
            ++*self->told;
          },
          &closer);
      ASSERT_EQ(shared->Send(Block(pixels, std::move(first))), SendResult::Accepted);
      if (depth != 0) {
        BlockOwner second([](void* context) { ++*static_cast<std::atomic<int>*>(context); }, &told);
        ASSERT_EQ(shared->Send(Block(pixels, std::move(second))), SendResult::Accepted);
        ASSERT_TRUE(Eventually([&] { return told != 0; })) << "the first leaves the store";
      }
      shared.reset();
      EXPECT_TRUE(Eventually([&] { return told == (depth == 0 ? 1 : 2); }));
    }
  }
}

}  // namespace
}  // namespace Tarn
