#include "camera/net/message_socket.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>

#include <cerrno>

#include "camera/net/socket_address.h"
#include "camera/net/socket_options.h"

namespace Tarn {

MessageSocket::MessageSocket(std::uint32_t local_address)
    : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
  sockaddr_in local = ToSocketAddress({local_address, 0});
  socklen_t size = sizeof local;
  if (!fd_ || ::bind(fd_.Get(), Generic(local), size) != 0 ||
      ::getsockname(fd_.Get(), Generic(local), &size) != 0) {
    throw std::system_error(errno, std::generic_category(),
                            "event socket on " + DottedAddress(local_address));
  }
  local_port_ = FromSocketAddress(local).port;
  // A wish: without it the system's routes choose where groups are reached.
  static_cast<void>(SetOption(fd_.Get(), IPPROTO_IP, IP_MULTICAST_IF, local.sin_addr));
  SendBeforeStreams(fd_.Get());
}

void MessageSocket::Send(ByteView bytes, Endpoint to) noexcept {
  sockaddr_in address = ToSocketAddress(to);
  ::sendto(fd_.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL, Generic(address),
           sizeof address);
}

std::optional<MessageSocket::Received> MessageSocket::Receive(MutableByteView buffer) noexcept {
  sockaddr_in source{};
  socklen_t length = sizeof source;
  const ssize_t size =
      ::recvfrom(fd_.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT, Generic(source), &length);
  if (size < 0) return std::nullopt;
  return Received{buffer.first(static_cast<std::size_t>(size)), FromSocketAddress(source)};
}

}  // namespace Tarn
