#include "camera/net/stream_socket.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>

#include <array>
#include <cerrno>
#include <memory>

#include "camera/net/socket_address.h"

namespace Tarn {
namespace {

/// Room for a few trains; the system cuts the wish down to its limit.
constexpr int kSendBufferBytes = 1 << 20;

void SetOption(int fd, int level, int name, int value) noexcept {
  // Wishes, not conditions: the socket sends without them too.
  static_cast<void>(::setsockopt(fd, level, name, &value, sizeof value));
}

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

}  // namespace

StreamSocket::StreamSocket(std::uint32_t local_address)
    : fd_(NewSocket()), local_port_(BindTo(fd_, local_address)) {
  SetOption(fd_.Get(), SOL_SOCKET, SO_SNDBUF, kSendBufferBytes);
  SetOption(fd_.Get(), SOL_SOCKET, SO_BROADCAST, 1);
  const in_addr interface = ToSocketAddress({local_address, 0}).sin_addr;
  static_cast<void>(::setsockopt(fd_.Get(), IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface));
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
  SetOption(fd_.Get(), IPPROTO_IP, IP_MTU_DISCOVER, on ? IP_PMTUDISC_PROBE : IP_PMTUDISC_DONT);
}

int StreamSocket::SendMessages(mmsghdr* messages, unsigned count) noexcept {
  return ::sendmmsg(fd_.Get(), messages, count, MSG_DONTWAIT | MSG_NOSIGNAL);
}

void StreamSocket::WaitWritable(std::chrono::milliseconds timeout) noexcept {
  pollfd poll_fd{fd_.Get(), POLLOUT, 0};
  static_cast<void>(::poll(&poll_fd, 1, static_cast<int>(timeout.count())));
}

bool SegmentationWorks(std::uint32_t local_address) noexcept {
  constexpr std::size_t kSegment = 64;
  try {
    StreamSocket sender(local_address);
    const OwnedFd receiver = NewSocket();
    if (!sender.SetPeer({local_address, BindTo(receiver, local_address)})) return false;
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
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace Tarn
