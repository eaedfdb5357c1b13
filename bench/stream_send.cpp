// How close the stream channel comes to a bare loop that sends the same datagrams.
//
// Prints, for each driver, packet size and image size, the bytes per CPU second of both and their ratio, as
// the median of several rounds of one run. Over loopback, to a socket that nobody reads: what does not fit
// its buffer is dropped by the kernel after the whole way through the stack, on the sender's account.

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include "bench/bare_block.h"
#include "camera/device/stream_channel.h"

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
  options.resend_depth = depth;
  const auto shared = StreamChannel::Open(options);
  StreamChannel& channel = *shared;
  StreamConfig config;
  config.destination = {kLoopback, ntohs(sink.address.sin_port)};
  config.packet_size = packet_size;
  channel.Configure(config);
  channel.ChannelOpened();
  channel.BeginRunning(0);
  const auto send = [&] {
    ImageBlock block;
    block.payload = PayloadLayout::Contiguous(image);
    while (channel.Send(std::move(block)) == SendResult::NoPlace) {
    }
  };

  std::vector<double> ours, raw;
  for (int round = 0; round < kRounds; ++round) {  // in turn, so that both see the same machine
    raw.push_back(BytesPerCpuSecond(image_size, [&] { bare.Send(); }));
    ours.push_back(BytesPerCpuSecond(image_size, send));
  }
  shared->Close();
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
