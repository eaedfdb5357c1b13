#include "camera/net/control_sockets.h"

#include <system_error>

#include <cerrno>
#include <cstring>
#include <string>

#include "camera/net/interface_list.h"
#include "camera/net/socket_address.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kLimitedBroadcast = 0xFFFF'FFFF;

OwnedFd UdpSocket() noexcept {
  return OwnedFd(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool Enable(const OwnedFd& socket, int level, int option) noexcept {
  const int on = 1;
  return ::setsockopt(socket.Get(), level, option, &on, sizeof on) == 0;
}

bool Bind(const OwnedFd& socket, Endpoint to) noexcept {
  sockaddr_in address = ToSocketAddress(to);
  return ::bind(socket.Get(), Generic(address), sizeof address) == 0;
}

OwnedFd UnicastSocket(Endpoint local) {
  OwnedFd socket = UdpSocket();
  // No address is shared: with SO_REUSEADDR a second device would take over the traffic of the first. Nothing
  // is sent to broadcast addresses: the answer to a command with a forged source would go to everybody.
  if (!socket || !Bind(socket, local)) {
    throw std::system_error(
        errno, std::generic_category(),
        "cannot bind " + DottedAddress(local.address) + " port " + std::to_string(local.port));
  }
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

/// Number of the interface through which a datagram came; 0 when the system did not tell.
unsigned ArrivalInterface(msghdr& message) noexcept {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_PKTINFO) continue;
    in_pktinfo info{};
    std::memcpy(&info, CMSG_DATA(part), sizeof info);
    return static_cast<unsigned>(info.ipi_ifindex);
  }
  return 0;
}

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
    return Received{buffer.first(static_cast<std::size_t>(size)), FromSocketAddress(source), broadcast,
                    Now()};
  }
  return std::nullopt;
}

void ControlSockets::Send(ByteView bytes, Endpoint to) noexcept {
  sockaddr_in address = ToSocketAddress(to);
  ::sendto(sockets_[0].Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL, Generic(address),
           sizeof address);
}

}  // namespace Tarn
