#pragma once

/// Datagrams gathered from pieces of memory, many for one system call, joined to trains where allowed.

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "camera/base/endpoint.h"

namespace Tarn {

/// Datagrams that one segmented send carries. The kernel cuts them apart again.
struct Train {
  /// Source: Linux, UDP_MAX_SEGMENTS before 6.9; newer kernels take more.
  static constexpr std::size_t kMaxSegments = 64;
  /// Source: IPv4, what a total length of 65535 leaves for UDP payload.
  static constexpr std::size_t kMaxBytes = 65535 - 20 - 8;

  std::size_t segments = 0;
  std::size_t bytes = 0;
  std::size_t first_size = 0;
  std::size_t last_size = 0;
};

/// True when a datagram of `size` bytes may join a train of up to `max_segments`.
///
/// The kernel cuts the train at equal steps, so all of these must hold:
///   [1] the train stays within the segment limit,
///   [2] and within what one UDP send may carry;
///   [3] no shorter datagram has joined yet (it ends the train),
///   [4] and this one is no longer than the others.
constexpr bool FitsTrain(const Train& train, std::size_t size, std::size_t max_segments) noexcept {
  return train.segments != 0 && train.segments < max_segments &&  // [1]
         train.bytes + size <= Train::kMaxBytes &&                // [2]
         train.last_size == train.first_size &&                   // [3]
         size <= train.first_size;                                // [4]
}

/// Filled by Begin and Add, sent by SendBatch, used again after Clear. Allocates nothing.
/// Owns: nothing; all pieces must stay until the batch was sent.
/// Threads: one at a time.
class DatagramBatch {
 public:
  static constexpr std::size_t kMaxMessages = 64;
  /// Source: Linux, UIO_MAXIOV for one message; shared by all messages here.
  static constexpr std::size_t kMaxPieces = 1024;

  /// \param max_segments  datagrams in a train; 1: no trains
  void Clear(std::size_t max_segments) noexcept {
    max_segments_ = max_segments;
    message_count_ = 0;
    piece_count_ = 0;
  }

  /// Where the datagrams go instead of the socket's peer.
  void SetDestination(const Endpoint& destination) noexcept;
  void ClearDestination() noexcept { has_destination_ = false; }

  /// Starts a datagram of `size` bytes in at most `max_pieces` pieces. Returns false when it finds no room.
  bool Begin(std::size_t size, std::size_t max_pieces) noexcept {
    if (max_pieces > kMaxPieces - piece_count_) return false;
    if (message_count_ == 0 || !FitsTrain(trains_[message_count_ - 1], size, max_segments_)) {
      if (message_count_ == kMaxMessages) return false;
      StartMessage();
      trains_[message_count_ - 1].first_size = size;
    }
    Train& train = trains_[message_count_ - 1];
    ++train.segments;
    train.bytes += size;
    train.last_size = size;
    return true;
  }

  /// The next piece of the datagram begun last.
  void Add(const std::uint8_t* bytes, std::size_t size) noexcept {
    // The kernel only reads; the structure serves both directions.
    pieces_[piece_count_++] = {const_cast<std::uint8_t*>(bytes), size};
    ++messages_[message_count_ - 1].msg_hdr.msg_iovlen;
  }

  bool Empty() const noexcept { return message_count_ == 0; }
  std::size_t MessageCount() const noexcept { return message_count_; }
  const Train& TrainAt(std::size_t message) const noexcept { return trains_[message]; }

  /// The messages as the system call takes them, valid until the next change.
  mmsghdr* Seal() noexcept;

 private:
  struct alignas(cmsghdr) SegmentSize {
    std::array<std::uint8_t, CMSG_SPACE(sizeof(std::uint16_t))> bytes{};
  };

  void StartMessage() noexcept;

  std::array<iovec, kMaxPieces> pieces_;
  std::array<mmsghdr, kMaxMessages> messages_;
  std::array<Train, kMaxMessages> trains_;
  std::array<SegmentSize, kMaxMessages> controls_{};
  std::size_t message_count_ = 0;
  std::size_t piece_count_ = 0;
  std::size_t max_segments_ = 1;
  sockaddr_in destination_{};
  bool has_destination_ = false;
};

}  // namespace Tarn
