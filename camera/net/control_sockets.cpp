#include "camera/net/control_sockets.h"

#include <system_error>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "camera/net/interface_list.h"
#include "camera/net/socket_address.h"
#include "camera/net/socket_options.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kLimitedBroadcast = 0xFFFF'FFFF;

OwnedFd UdpSocket() noexcept {
  return OwnedFd(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool Enable(const OwnedFd& socket, int level, int option) noexcept {
  return SetOption(socket.Get(), level, option, 1);
}

bool Bind(const OwnedFd& socket, Endpoint to) noexcept {
  sockaddr_in address = ToSocketAddress(to);
  return ::bind(socket.Get(), Generic(address), sizeof address) == 0;
}

OwnedFd UnicastSocket(Endpoint local) {
  OwnedFd socket = UdpSocket();
  // No address is shared: with SO_REUSEADDR a second device would take over the traffic of the first.
  if (!socket || !Enable(socket, SOL_SOCKET, SO_BROADCAST) || !Enable(socket, SOL_SOCKET, SO_TIMESTAMPNS) ||
      !Bind(socket, local)) {
    throw std::system_error(
        errno, std::generic_category(),
        "cannot bind " + DottedAddress(local.address) + " port " + std::to_string(local.port));
  }
  SendBeforeStreams(socket.Get());
  return socket;
}

/// Empty when it cannot be had.
OwnedFd BroadcastSocket(Endpoint heard, const Interface& interface) noexcept {
  OwnedFd socket = UdpSocket();
  if (!socket || !Enable(socket, SOL_SOCKET, SO_REUSEADDR) || !Enable(socket, IPPROTO_IP, IP_PKTINFO))
    return {};
  // Spares us the datagrams of other interfaces. Old kernels refuse it to ordinary users; Receive sorts them
  // out then.
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_BINDTODEVICE, interface.name.c_str(),
               static_cast<socklen_t>(interface.name.size()));
  return Bind(socket, heard) ? std::move(socket) : OwnedFd();
}

Endpoint LocalName(const OwnedFd& socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(socket.Get(), Generic(address), &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot read a socket's address");
  }
  return FromSocketAddress(address);
}

/// What the system tells beside a datagram; empty when it did not.
template <class Fact>
std::optional<Fact> FactOf(msghdr& message, int level, int type) noexcept {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != level || part->cmsg_type != type) continue;
    Fact fact{};
    std::memcpy(&fact, CMSG_DATA(part), sizeof fact);
    return fact;
  }
  return std::nullopt;
}

/// Number of the interface through which a datagram came; 0 when the system did not tell.
unsigned ArrivalInterface(msghdr& message) noexcept {
  const auto info = FactOf<in_pktinfo>(message, IPPROTO_IP, IP_PKTINFO);
  return info ? static_cast<unsigned>(info->ipi_ifindex) : 0;
}

/// When the system received a datagram, by its wall clock; now when it does not tell, or when that clock was set
/// back meanwhile.
Instant ArrivalTime(msghdr& message) noexcept {
  const Instant now = Now();
  const auto stamp = FactOf<timespec>(message, SOL_SOCKET, SCM_TIMESTAMPNS);
  if (!stamp) return now;
  timespec wall{};
  ::clock_gettime(CLOCK_REALTIME, &wall);
  const Nanoseconds waited =
      std::chrono::seconds(wall.tv_sec - stamp->tv_sec) + Nanoseconds(wall.tv_nsec - stamp->tv_nsec);
  return now - std::max(waited, Nanoseconds(0));
}

/// Nobody sends from such an address, and the answer would go to many.
bool IsForged(Endpoint source) noexcept { return source.port == 0 || source.address >> 28 >= 0xE; }

}  // namespace

ControlSockets::ControlSockets(std::uint32_t address, std::uint16_t port) {
  sockets_[0] = UnicastSocket({address, port});
  local_ = LocalName(sockets_[0]);
  const InterfaceList interfaces;
  const Interface* own = interfaces.InterfaceFor(address);
  if (own == nullptr) return;
  interface_ = own->index;
  if (own->broadcast != 0) sockets_[1] = BroadcastSocket({own->broadcast, local_.port}, *own);
  sockets_[2] = BroadcastSocket({kLimitedBroadcast, local_.port}, *own);
}

std::optional<ControlSockets::Received> ControlSockets::Receive(int fd, MutableByteView buffer) noexcept {
  // Bounded, so that a flood on another interface can't hold the caller.
  for (int tries = 0; tries < 64; ++tries) {
    sockaddr_in source{};
    iovec target{buffer.data(), buffer.size()};
    alignas(cmsghdr) std::array<std::uint8_t, 128> control{};
    msghdr message{};
    message.msg_name = &source;
    message.msg_namelen = sizeof source;
    message.msg_iov = &target;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = ::recvmsg(fd, &message, MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return std::nullopt;
    if (size < 0) continue;  // an error left over from an earlier datagram, such as a client's closed port

    const bool broadcast = fd != sockets_[0].Get();
    if (broadcast && ArrivalInterface(message) != interface_) continue;
    const Endpoint from = FromSocketAddress(source);
    if (IsForged(from)) continue;
    return Received{buffer.first(static_cast<std::size_t>(size)), from, broadcast, ArrivalTime(message)};
  }
  return std::nullopt;
}

void ControlSockets::Send(ByteView bytes, Endpoint to) noexcept {
  sockaddr_in address = ToSocketAddress(to);
  iovec part{const_cast<std::uint8_t*>(bytes.data()), bytes.size()};
  alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof(in_pktinfo))> control{};
  msghdr message{};
  message.msg_name = &address;
  message.msg_namelen = sizeof address;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (to.address == kLimitedBroadcast) {
    // No route says through which interface that goes.
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_ifindex = static_cast<int>(interface_);
    info.ipi_spec_dst.s_addr = htonl(local_.address);
    std::memcpy(CMSG_DATA(header), &info, sizeof info);
  }
  ::sendmsg(sockets_[0].Get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace Tarn
