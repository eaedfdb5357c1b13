// A receiver of stream packets that only counts: frames that came whole, packets, and what was odd.
//
// usage: drain address receive_buffer_bytes
// Prints the port first. For each line on standard input it reads on until nothing has come for a while, then
// answers with a line of what came since the last answer: packets, frames whose packets came without a gap,
// times that a block id was not the next one, times that a leader's timestamp did not rise, highest block id.

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

#include "camera/engine/stream/block_ids.h"
#include "camera/wire/gvsp.h"

namespace Tarn {
namespace {

constexpr int kQuietMilliseconds = 50;

class Counts {
 public:
  void Take(ByteView datagram) {
    ByteReader in(datagram);
    const std::optional<StreamHeader> header = StreamHeader::Decode(in);
    if (!header) return;
    ++packets_;
    if (header->format == StreamFormat::Leader) {
      Begin(*header);
      TakeTimestamp(in);
    }
    if (header->block_id == block_ && header->packet_id == next_packet_) ++next_packet_;
    if (header->format == StreamFormat::Trailer && header->packet_id + 1 == next_packet_) ++whole_frames_;
  }

  void Answer() {
    std::printf("%llu %llu %llu %llu %llu\n", packets_, whole_frames_, id_slips_, clock_slips_,
                highest_block_);
    std::fflush(stdout);
    packets_ = whole_frames_ = id_slips_ = clock_slips_ = highest_block_ = 0;
  }

 private:
  void Begin(const StreamHeader& header) {
    const bool wraps = !header.extended && block_ == BlockIds::kMaxStandard;
    if (block_ != 0 && header.block_id != (wraps ? 1 : block_ + 1)) ++id_slips_;
    block_ = header.block_id;
    if (block_ > highest_block_) highest_block_ = block_;
    next_packet_ = 0;
  }

  void TakeTimestamp(ByteReader& in) {
    const std::optional<ImageLeader> leader = ImageLeader::Decode(in);
    if (!leader) return;
    if (leader->timestamp <= timestamp_) ++clock_slips_;
    timestamp_ = leader->timestamp;
  }

  unsigned long long packets_ = 0;
  unsigned long long whole_frames_ = 0;
  unsigned long long id_slips_ = 0;
  unsigned long long clock_slips_ = 0;
  unsigned long long highest_block_ = 0;
  std::uint64_t block_ = 0;
  std::uint32_t next_packet_ = 0;
  std::uint64_t timestamp_ = 0;
};

/// Reads what is there, up to a batch of datagrams.
class Receiver {
 public:
  explicit Receiver(int fd) : fd_(fd), buffers_(kBatch * kDatagramBytes) {
    for (std::size_t i = 0; i < kBatch; ++i) {
      pieces_[i] = {&buffers_[i * kDatagramBytes], kDatagramBytes};
      messages_[i].msg_hdr.msg_iov = &pieces_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
  }

  void Read(Counts& counts) {
    const int count = ::recvmmsg(fd_, messages_.data(), kBatch, MSG_DONTWAIT | MSG_TRUNC, nullptr);
    for (int i = 0; i < count; ++i) {
      const auto index = static_cast<std::size_t>(i);
      const std::size_t size = std::min<std::size_t>(messages_[index].msg_len, kDatagramBytes);
      counts.Take(ByteView(&buffers_[index * kDatagramBytes], size));
    }
  }

 private:
  static constexpr std::size_t kBatch = 64;
  /// Enough for every header; the rest of a packet is thrown away unread.
  static constexpr std::size_t kDatagramBytes = 128;

  const int fd_;
  std::vector<std::uint8_t> buffers_;
  std::array<iovec, kBatch> pieces_{};
  std::array<mmsghdr, kBatch> messages_{};
};

bool Readable(int fd, int milliseconds) {
  pollfd wait{fd, POLLIN, 0};
  return ::poll(&wait, 1, milliseconds) > 0;
}

void Serve(int fd) {
  Receiver receiver(fd);
  Counts counts;
  for (;;) {
    std::array<pollfd, 2> waits{{{fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    ::poll(waits.data(), waits.size(), -1);
    if (waits[0].revents != 0) receiver.Read(counts);
    if (waits[1].revents == 0) continue;
    std::array<char, 64> line;
    if (::read(STDIN_FILENO, line.data(), line.size()) <= 0) return;
    while (Readable(fd, kQuietMilliseconds)) receiver.Read(counts);
    counts.Answer();
  }
}

}  // namespace
}  // namespace Tarn

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  const int buffer_bytes = std::atoi(argv[2]);
  // The forced form needs a right; without it the system cuts the wish down.
  if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buffer_bytes, sizeof buffer_bytes) != 0) {
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer_bytes, sizeof buffer_bytes);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t size = sizeof address;
  if (::inet_pton(AF_INET, argv[1], &address.sin_addr) != 1 ||
      ::bind(fd, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    std::perror("drain");
    return 1;
  }
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  Tarn::Serve(fd);
}
