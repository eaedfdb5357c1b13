// The floor of a command's round trip: sends back every datagram that comes, until an empty one does.
//
// usage: udp_echo address
// Prints the port first.

#include <arpa/inet.h>
#include <sys/socket.h>

#include <array>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (::inet_pton(AF_INET, argv[1], &address.sin_addr) != 1 || ::bind(fd, generic, size) != 0 ||
      ::getsockname(fd, generic, &size) != 0) {
    std::perror("udp_echo");
    return 1;
  }
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);

  std::array<char, 2048> datagram;
  for (;;) {
    size = sizeof address;
    const ssize_t received = ::recvfrom(fd, datagram.data(), datagram.size(), 0, generic, &size);
    if (received == 0) return 0;
    if (received > 0) ::sendto(fd, datagram.data(), static_cast<std::size_t>(received), 0, generic, size);
  }
}
