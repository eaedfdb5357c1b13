// The raw baseline as a program: sends blocks when told how many, and says what that cost.
//
// usage: bare_sender Socket|Filter packet_size image_bytes destination port
// For each number on standard input it sends that many blocks and answers with a line of CPU seconds and wall
// seconds.

#include <arpa/inet.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "bench/bare_block.h"

namespace {

double CpuSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[5])));
  if (::inet_pton(AF_INET, argv[4], &peer.sin_addr) != 1) return 2;
  const std::vector<std::uint8_t> image(static_cast<std::size_t>(std::atol(argv[3])), 0x5A);
  const auto packet_size = static_cast<std::size_t>(std::atoi(argv[2]));
  Tarn::BareBlock block(image, packet_size, std::string_view(argv[1]) == "Filter", peer);

  long count = 0;
  while (std::scanf("%ld", &count) == 1) {
    const auto begin = std::chrono::steady_clock::now();
    const double cpu = CpuSeconds();
    for (long i = 0; i < count; ++i) block.Send();
    const double used = CpuSeconds() - cpu;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
    std::printf("%.9f %.9f\n", used, wall.count());
    std::fflush(stdout);
  }
}
