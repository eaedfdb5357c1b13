#include "bench/receiver.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace Tarn {
namespace {

constexpr std::int64_t kQuietNanoseconds = 50'000'000;

/// Reads what is there, up to a batch of datagrams.
class Receiver {
 public:
  explicit Receiver(int fd) : fd_(fd) {}

  /// False when nothing was there.
  bool Read(PacketSink& sink) {
    for (std::size_t i = 0; i < kBatch; ++i) {
      pieces_[i] = {heads_[i].data(), kHeadBytes};
      msghdr& header = messages_[i].msg_hdr;
      header = {};
      header.msg_name = &sources_[i];
      header.msg_namelen = sizeof sources_[i];
      header.msg_iov = &pieces_[i];
      header.msg_iovlen = 1;
      header.msg_control = controls_[i].bytes.data();
      header.msg_controllen = controls_[i].bytes.size();
    }
    const int count = ::recvmmsg(fd_, messages_.data(), kBatch, MSG_DONTWAIT | MSG_TRUNC, nullptr);
    for (int i = 0; i < count; ++i) {
      const auto index = static_cast<std::size_t>(i);
      const std::size_t size = messages_[index].msg_len;
      const ByteView head(heads_[index].data(), std::min(size, kHeadBytes));
      sink.Take({sources_[index], head, size, Stamp(messages_[index].msg_hdr)});
    }
    return count > 0;
  }

 private:
  static constexpr std::size_t kBatch = 64;
  static constexpr std::size_t kHeadBytes = 128;

  struct alignas(cmsghdr) Control {
    std::array<std::uint8_t, CMSG_SPACE(sizeof(timespec))> bytes;
  };

  static std::int64_t Stamp(msghdr& header) {
    const cmsghdr* const control = CMSG_FIRSTHDR(&header);
    if (!control || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_TIMESTAMPNS) return 0;
    timespec stamp;
    std::memcpy(&stamp, CMSG_DATA(control), sizeof stamp);
    return std::int64_t{stamp.tv_sec} * 1'000'000'000 + stamp.tv_nsec;
  }

  const int fd_;
  std::array<std::array<std::uint8_t, kHeadBytes>, kBatch> heads_;
  std::array<sockaddr_in, kBatch> sources_;
  std::array<Control, kBatch> controls_;
  std::array<iovec, kBatch> pieces_;
  std::array<mmsghdr, kBatch> messages_;
};

using Waits = std::array<pollfd, 2>;

void Wait(Waits& waits, std::optional<std::int64_t> nanoseconds) {
  timespec limit{};
  if (nanoseconds) limit = {*nanoseconds / 1'000'000'000, *nanoseconds % 1'000'000'000};
  ::ppoll(waits.data(), waits.size(), nanoseconds ? &limit : nullptr, nullptr);
}

/// Until nothing has come for a while.
void ReadOut(int fd, Receiver& receiver, PacketSink& sink) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::nanoseconds kQuiet(kQuietNanoseconds);
  for (Clock::time_point last = Clock::now(); Clock::now() - last < kQuiet;) {
    Waits waits{{{fd, POLLIN, 0}, {-1, 0, 0}}};
    Wait(waits, std::min(sink.Tick().value_or(kQuietNanoseconds), kQuietNanoseconds));
    if (receiver.Read(sink)) last = Clock::now();
  }
}

void Serve(int fd, PacketSink& sink) {
  Receiver receiver(fd);
  for (;;) {
    Waits waits{{{fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    Wait(waits, sink.Tick());
    if (waits[0].revents != 0) receiver.Read(sink);
    if (waits[1].revents == 0) continue;
    std::array<char, 64> line;
    if (::read(STDIN_FILENO, line.data(), line.size()) <= 0) return;
    ReadOut(fd, receiver, sink);
    sink.Answer();
    std::fflush(stdout);
  }
}

}  // namespace

int RunReceiver(int argc, char** argv, Stamps stamps, PacketSink& sink) {
  if (argc < 3) return 2;
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  const int buffer_bytes = std::atoi(argv[2]);
  // The forced form needs a right; without it the system cuts the wish down.
  if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buffer_bytes, sizeof buffer_bytes) != 0) {
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer_bytes, sizeof buffer_bytes);
  }
  const int stamped = stamps == Stamps::On;
  ::setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &stamped, sizeof stamped);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t size = sizeof address;
  if (::inet_pton(AF_INET, argv[1], &address.sin_addr) != 1 ||
      ::bind(fd, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    std::perror(argv[0]);
    return 1;
  }
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  Serve(fd, sink);
  ::close(fd);
  return 0;
}

}  // namespace Tarn
