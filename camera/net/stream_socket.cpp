#include "camera/net/stream_socket.h"

#include <linux/errqueue.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>

#include "camera/base/clock.h"
#include "camera/net/ethtool.h"
#include "camera/net/socket_address.h"
#include "camera/net/socket_options.h"

namespace Tarn {
namespace {

/// That are taken at a time.
constexpr int kMaxReports = 64;

/// Throws: std::system_error.
OwnedFd NewSocket() {
  OwnedFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd) throw std::system_error(errno, std::generic_category(), "stream socket");
  return fd;
}

/// Returns the port.
/// Throws: std::system_error.
std::uint16_t BindTo(const OwnedFd& fd, std::uint32_t address) {
  sockaddr_in local = ToSocketAddress({address, 0});
  socklen_t size = sizeof local;
  if (::bind(fd.Get(), Generic(local), size) != 0 || ::getsockname(fd.Get(), Generic(local), &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "stream socket on " + DottedAddress(address));
  }
  return FromSocketAddress(local).port;
}

/// The kernel throws away what comes in before it takes memory for it; reports take another way.
void ReceiveNothing(const OwnedFd& fd) noexcept {
  sock_filter keep_no_byte{BPF_RET | BPF_K, 0, 0, 0};
  static_cast<void>(SetOption(fd.Get(), SOL_SOCKET, SO_ATTACH_FILTER, sock_fprog{1, &keep_no_byte}));
}

/// The next report in the socket's error queue; empty when there is none.
std::optional<sock_extended_err> TakeReport(int fd) noexcept {
  alignas(cmsghdr) std::array<std::uint8_t, 256> control{};
  msghdr message{};
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  if (::recvmsg(fd, &message, MSG_ERRQUEUE | MSG_DONTWAIT) < 0) return std::nullopt;
  sock_extended_err report{};
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_RECVERR) continue;
    std::memcpy(&report, CMSG_DATA(part), sizeof report);
  }
  return report;
}

/// On sockets of its own between two addresses of this machine.
/// Throws: std::system_error.
bool TrainArrivesCut(std::uint32_t from, std::uint32_t to) {
  constexpr std::size_t kSegment = 64;
  StreamSocket sender(from);
  const OwnedFd receiver = NewSocket();
  if (!sender.SetPeer({to, BindTo(receiver, to)})) return false;
  const std::array<std::uint8_t, 2 * kSegment> bytes{};
  auto batch = std::make_unique<DatagramBatch>();
  batch->Clear(2);
  for (std::size_t i = 0; i < 2; ++i) {
    batch->Begin(kSegment, 1);
    batch->Add(bytes.data() + i * kSegment, kSegment);
  }
  const std::atomic<bool> stop{false};
  bool works = SendBatch(sender, *batch, stop).sent == 2;
  for (int i = 0; works && i < 2; ++i) {
    std::array<std::uint8_t, 4 * kSegment> received;
    pollfd poll_fd{receiver.Get(), POLLIN, 0};
    works = ::poll(&poll_fd, 1, 100) == 1 &&
            ::recv(receiver.Get(), received.data(), received.size(), 0) == static_cast<ssize_t>(kSegment);
  }
  return works;
}

}  // namespace

StreamSocket::StreamSocket(std::uint32_t local_address)
    : fd_(NewSocket()), local_port_(BindTo(fd_, local_address)) {
  const int fd = fd_.Get();
  static_cast<void>(SetOption(fd, SOL_SOCKET, SO_BROADCAST, 1));
  // Also makes the kernel tell of datagrams that its own queues had no room for, which else count as sent.
  static_cast<void>(SetOption(fd, IPPROTO_IP, IP_RECVERR, 1));
  static_cast<void>(SetOption(fd, IPPROTO_IP, IP_MULTICAST_IF, ToSocketAddress({local_address, 0}).sin_addr));
  ReceiveNothing(fd_);
  SetDontFragment(false);
}

bool StreamSocket::SetPeer(const Endpoint& peer) noexcept {
  // Connected, so that the kernel keeps the route instead of looking it up for every datagram. The port
  // survives a change of the peer, but not a disconnect.
  sockaddr_in address = ToSocketAddress(peer);
  return ::connect(fd_.Get(), Generic(address), sizeof address) == 0;
}

void StreamSocket::SetDontFragment(bool on) noexcept {
  // Probe rather than Do: what an ICMP message claims about the path must not change the packet size that the
  // client chose. The default mode would set the bit on some packets and not on trains.
  const int mode = on ? IP_PMTUDISC_PROBE : IP_PMTUDISC_DONT;
  static_cast<void>(SetOption(fd_.Get(), IPPROTO_IP, IP_MTU_DISCOVER, mode));
}

void StreamSocket::SetPacingRate(std::uint64_t bytes_per_second) noexcept {
  static_cast<void>(SetOption(fd_.Get(), SOL_SOCKET, SO_MAX_PACING_RATE, bytes_per_second));
}

void StreamSocket::SetBuffer(std::size_t bytes) noexcept {
  const int wish = static_cast<int>(std::min<std::size_t>(bytes, INT_MAX / 2));
  // Without the right to more, the system cuts the wish down to its limit.
  if (!SetOption(fd_.Get(), SOL_SOCKET, SO_SNDBUFFORCE, wish))
    static_cast<void>(SetOption(fd_.Get(), SOL_SOCKET, SO_SNDBUF, wish));
}

int StreamSocket::SendMessages(mmsghdr* messages, unsigned count) noexcept {
  return ::sendmmsg(fd_.Get(), messages, count, MSG_DONTWAIT | MSG_NOSIGNAL);
}

void StreamSocket::WaitWritable(std::chrono::microseconds timeout) noexcept {
  const Instant end = Now() + timeout;
  pollfd poll_fd{fd_.Get(), POLLOUT, 0};
  const timespec longest{0, std::chrono::nanoseconds(timeout).count()};
  const int ready = ::ppoll(&poll_fd, 1, &longest, nullptr);
  // A report that comes in ends the poll, but makes no room.
  if (ready > 0 && (poll_fd.revents & POLLOUT) == 0) std::this_thread::sleep_until(end);
}

void StreamSocket::Pause(std::chrono::microseconds time) noexcept { std::this_thread::sleep_for(time); }

bool StreamSocket::DrainErrors(NetworkReports& reports) noexcept {
  bool from_network = false;
  for (int count = 0; count < kMaxReports; ++count) {
    const std::optional<sock_extended_err> report = TakeReport(fd_.Get());
    if (!report) break;
    if (report->ee_origin == SO_EE_ORIGIN_ICMP) {
      from_network = true;
      // What a router claims about the size of packets is not taken up, see SetDontFragment.
      if (report->ee_errno != EMSGSIZE) ++reports.unreachable;
    } else if (report->ee_origin == SO_EE_ORIGIN_LOCAL && report->ee_errno == EMSGSIZE) {
      reports.mtu = report->ee_info;
    }
  }
  return from_network;
}

bool SegmentationWorks(const StreamRoute& route) noexcept {
  if (route.cuts_trains) return false;
  try {
    if (route.local) return TrainArrivesCut(route.source, route.destination);
    return SetOption(NewSocket().Get(), SOL_UDP, UDP_SEGMENT, 1000) && OffloadsChecksums(route.interface);
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace Tarn
