#pragma once

/// Endpoints as the socket calls take them.

#include <netinet/in.h>
#include <sys/socket.h>

#include "camera/base/endpoint.h"

namespace Tarn {

inline sockaddr_in ToSocketAddress(Endpoint endpoint) noexcept {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(endpoint.address);
  address.sin_port = htons(endpoint.port);
  return address;
}

inline Endpoint FromSocketAddress(const sockaddr_in& address) noexcept {
  return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

/// The generic form, which the calls ask for.
inline sockaddr* Generic(sockaddr_in& address) noexcept { return reinterpret_cast<sockaddr*>(&address); }

}  // namespace Tarn
