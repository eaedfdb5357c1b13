#pragma once

/// For tests: a stream channel on loopback, a client's socket, owners who take notes.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "camera/device/stream_channel.h"
#include "camera/net/owned_fd.h"
#include "camera/net/socket_address.h"

namespace Tarn {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kLoopback = 0x7F000001;

/// A client's stream socket.
class Receiver {
 public:
  Receiver() {
    const int size = 8 << 20;
    ::setsockopt(fd_.Get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    sockaddr_in address = ToSocketAddress({kLoopback, 0});
    socklen_t length = sizeof address;
    ::bind(fd_.Get(), Generic(address), length);
    ::getsockname(fd_.Get(), Generic(address), &length);
    endpoint_ = FromSocketAddress(address);
  }

  Endpoint Address() const { return endpoint_; }

  /// The next datagram; empty after `patience` without one.
  Bytes Next(std::chrono::milliseconds patience = 2000ms) {
    pollfd poll_fd{fd_.Get(), POLLIN, 0};
    if (::poll(&poll_fd, 1, static_cast<int>(patience.count())) != 1) return {};
    Bytes bytes(65536);
    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t count = ::recvfrom(fd_.Get(), bytes.data(), bytes.size(), 0, Generic(from), &length);
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
  OwnedFd fd_{::socket(AF_INET, SOCK_DGRAM, 0)};
  Endpoint endpoint_;
  std::uint16_t from_port_ = 0;
};

inline Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return bytes;
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
  for (const Instant end = Now() + 10s; Now() < end; std::this_thread::sleep_for(1ms)) {
    if (condition()) return true;
  }
  return condition();
}

/// Sends a block, and waits until it is out: the pump may be at work on orders and take it along.
inline void SendAllOf(StreamChannel& channel, ImageBlock&& block) {
  const auto done = [&] { return channel.Counters().frames + channel.Counters().dropped_blocks; };
  const std::uint64_t before = done();
  ASSERT_EQ(channel.Send(std::move(block)), SendResult::Accepted);
  ASSERT_TRUE(Eventually([&] { return done() == before + 1; }));
}

class StreamChannelTest : public ::testing::Test {
 protected:
  ~StreamChannelTest() override {
    if (channel) channel->Close();
  }
  void Open(std::size_t depth, StreamDriver driver = StreamDriver::Socket) {
    if (channel) channel->Close();
    StreamOptions options;
    options.local_address = kLoopback;
    options.driver = driver;
    options.resend_depth = depth;
    channel = StreamChannel::Open(options);
    config.destination = receiver.Address();
    config.resend_client = kLoopback;
    channel->Configure(config);
    channel->ChannelOpened();
    channel->BeginRunning(0);
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

  void SendAll(ImageBlock&& block) { SendAllOf(*channel, std::move(block)); }

  void Ask(std::uint64_t block, std::uint32_t first, std::uint32_t last) {
    channel->Resend({receiver.Address(), block, first, last, config.extended_ids});
  }

  Owners owners;  // outlive the channel
  Receiver receiver;
  StreamConfig config;
  std::shared_ptr<StreamChannel> channel;
};

}  // namespace Tarn
