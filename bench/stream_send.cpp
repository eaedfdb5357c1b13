// How close the stream channel comes to a bare loop that sends the same datagrams.
//
// Prints, for each driver, packet size and image size, the bytes per CPU second of both and their ratio, as
// the median of several rounds of one run. Over loopback, to a socket that nobody reads: what does not fit
// its buffer is dropped by the kernel after the whole way through the stack, on the sender's account.

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "device/stream_channel.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kLoopback = 0x7F000001;
constexpr int kRounds = 9;
constexpr std::size_t kBytesPerRound = std::size_t{256} << 20;

double CpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// A socket on loopback, closed at the end.
struct LoopbackSocket {
  int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};

  LoopbackSocket() {
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(kLoopback);
    socklen_t size = sizeof address;
    ::bind(fd, reinterpret_cast<const sockaddr*>(&address), size);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  }
  ~LoopbackSocket() { ::close(fd); }
  LoopbackSocket(const LoopbackSocket&) = delete;
  LoopbackSocket& operator=(const LoopbackSocket&) = delete;
};

/// The datagrams of one block, headers and all, ready for sendmmsg; only the block id would change.
class BareBlock {
 public:
  BareBlock(const std::vector<std::uint8_t>& image, std::size_t packet_size, bool trains,
            const sockaddr_in& peer)
      : headers_(8 * (image.size() / (packet_size - 36) + 1)) {
    ::connect(sender_.fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
    const std::size_t full = packet_size - 36;
    const std::size_t per_train = trains ? std::min<std::size_t>(64, 65507 / (full + 8)) : 1;
    const std::size_t packets = (image.size() + full - 1) / full;
    messages_.resize(2 + (packets + per_train - 1) / per_train);
    pieces_.resize(2 + 2 * packets);
    controls_.resize(messages_.size());
    std::size_t message = 0, piece = 0;
    const auto start = [&] {
      messages_[message] = {};
      messages_[message].msg_hdr.msg_iov = &pieces_[piece];
      return &messages_[message++].msg_hdr;
    };
    const auto add = [&](msghdr* header, const std::uint8_t* bytes, std::size_t size) {
      pieces_[piece++] = {const_cast<std::uint8_t*>(bytes), size};
      ++header->msg_iovlen;
    };
    add(start(), ends_.data(), 44);
    for (std::size_t i = 0; i < packets;) {
      msghdr* const header = start();
      for (std::size_t n = 0; n < per_train && i < packets; ++n, ++i) {
        add(header, &headers_[8 * i], 8);
        add(header, &image[i * full], std::min(full, image.size() - i * full));
      }
      if (header->msg_iovlen > 2) SetSegment(*header, controls_[message - 1], full + 8);
    }
    add(start(), ends_.data(), 16);
  }

  void Send() {
    for (std::size_t next = 0; next < messages_.size();) {
      const auto count = static_cast<unsigned>(std::min<std::size_t>(messages_.size() - next, 64));
      const int taken = ::sendmmsg(sender_.fd, &messages_[next], count, 0);
      next += taken > 0 ? static_cast<std::size_t>(taken) : 1;
    }
  }

 private:
  struct alignas(cmsghdr) Control {
    std::array<std::uint8_t, CMSG_SPACE(2)> bytes;
  };

  static void SetSegment(msghdr& header, Control& control, std::size_t size) {
    header.msg_control = control.bytes.data();
    header.msg_controllen = control.bytes.size();
    cmsghdr* const c = CMSG_FIRSTHDR(&header);
    c->cmsg_level = SOL_UDP;
    c->cmsg_type = UDP_SEGMENT;
    c->cmsg_len = CMSG_LEN(2);
    const auto value = static_cast<std::uint16_t>(size);
    std::memcpy(CMSG_DATA(c), &value, 2);
  }

  LoopbackSocket sender_;
  std::vector<std::uint8_t> headers_;
  std::array<std::uint8_t, 64> ends_{};
  std::vector<mmsghdr> messages_;
  std::vector<iovec> pieces_;
  std::vector<Control> controls_;
};

double BytesPerCpuSecond(std::size_t image_size, const std::function<void()>& send) {
  const std::size_t blocks = std::min<std::size_t>(kBytesPerRound / image_size, 8000);
  const double start = CpuSeconds();
  for (std::size_t i = 0; i < blocks; ++i) send();
  return static_cast<double>(blocks * image_size) / (CpuSeconds() - start);
}

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + kRounds / 2, values.end());
  return values[kRounds / 2];
}

void Compare(StreamDriver driver, std::uint16_t packet_size, std::size_t image_size, std::size_t depth) {
  const std::vector<std::uint8_t> image(image_size, 0x5A);
  const LoopbackSocket sink;
  BareBlock bare(image, packet_size, driver == StreamDriver::Filter, sink.address);

  StreamOptions options;
  options.local_address = kLoopback;
  options.driver = driver;
  options.interface_mtu = 65536;
  options.resend_depth = depth;
  StreamChannel channel(options);
  StreamConfig config;
  config.destination = {kLoopback, ntohs(sink.address.sin_port)};
  config.packet_size = packet_size;
  channel.Configure(config);
  channel.ChannelOpened();
  channel.SetRunning(true);
  const auto send = [&] {
    ImageBlock block;
    block.payload = PayloadLayout::Contiguous(image);
    channel.Send(std::move(block));
  };

  std::vector<double> ours, raw;
  for (int round = 0; round < kRounds; ++round) {  // in turn, so that both see the same machine
    raw.push_back(BytesPerCpuSecond(image_size, [&] { bare.Send(); }));
    ours.push_back(BytesPerCpuSecond(image_size, send));
  }
  std::printf("%-7s %6u %9zu %6zu %12.3f %12.3f %7.3f\n",
              driver == StreamDriver::Filter ? "Filter" : "Socket", packet_size, image_size, depth,
              Median(raw) / 1e9, Median(ours) / 1e9, Median(ours) / Median(raw));
  std::fflush(stdout);
}

}  // namespace
}  // namespace Tarn

int main() {
  using Tarn::StreamDriver;
  std::printf("driver  packet     image resend  bare GB/cpu  ours GB/cpu   ratio\n");
  for (const StreamDriver driver : {StreamDriver::Filter, StreamDriver::Socket}) {
    for (const std::uint16_t packet_size : {std::uint16_t{1500}, std::uint16_t{9000}}) {
      for (const std::size_t image_size : {std::size_t{4} << 20, std::size_t{4096}}) {
        for (const std::size_t depth : {std::size_t{0}, std::size_t{8}}) {
          Tarn::Compare(driver, packet_size, image_size, depth);
        }
      }
    }
  }
}
