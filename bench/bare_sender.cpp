// The raw baseline as a program: sends blocks when told how many, and says what that cost.
//
// usage: bare_sender Socket|Filter packet_size image_bytes images destination port
// Has so many images in memory, and sends one after the other. For each number on standard input it sends that many blocks and answers with a line of CPU seconds and wall
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
  if (argc != 7) return 2;
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[6])));
  if (::inet_pton(AF_INET, argv[5], &peer.sin_addr) != 1) return 2;
  const auto image_bytes = static_cast<std::size_t>(std::atol(argv[3]));
  const std::vector<std::vector<std::uint8_t>> images(static_cast<std::size_t>(std::atol(argv[4])),
                                                      std::vector<std::uint8_t>(image_bytes, 0x5A));
  if (images.empty()) return 2;
  const auto packet_size = static_cast<std::size_t>(std::atoi(argv[2]));
  Tarn::BareBlock block(images[0], packet_size, std::string_view(argv[1]) == "Filter", peer);

  long count = 0;
  std::size_t next = 0;
  while (std::scanf("%ld", &count) == 1) {
    const auto begin = std::chrono::steady_clock::now();
    const double cpu = CpuSeconds();
    for (long i = 0; i < count; ++i) {
      if (images.size() > 1) block.Show(images[next++ % images.size()]);
      block.Send();
    }
    const double used = CpuSeconds() - cpu;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
    std::printf("%.9f %.9f\n", used, wall.count());
    std::fflush(stdout);
  }
}
