#pragma once

/// The raw baseline of the stream benchmarks: one block's datagrams, prepared once, sent again and again.

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "camera/net/datagram_batch.h"
#include "camera/wire/gvsp.h"

namespace Tarn {

/// What a program without threads, settings, clock or resends would do to send an image: the same packets as
/// the stream channel's, of the same sizes and gathered in the same way, from a socket with the same options,
/// with as few system calls. Nothing is computed while it sends, not even the block id.
class BareBlock {
 public:
  /// \param trains  equal packets joined for the kernel to cut apart, as many as it takes
  /// \param image   borrowed
  BareBlock(const std::vector<std::uint8_t>& image, std::size_t packet_size, bool trains,
            const sockaddr_in& peer);
  ~BareBlock();
  BareBlock(const BareBlock&) = delete;
  BareBlock& operator=(const BareBlock&) = delete;

  /// From now on another image of the same size is sent, with the same headers.
  /// \param image  borrowed
  void Show(const std::vector<std::uint8_t>& image) noexcept;
  void Send() noexcept;
  std::size_t Packets() const noexcept { return packets_; }

 private:
  struct alignas(cmsghdr) SegmentSize {
    std::array<std::uint8_t, CMSG_SPACE(2)> bytes;
  };

  StreamHeader Header(StreamFormat format) const;  // of the next packet
  void Begin(std::size_t size, std::size_t max_segments);
  void AddPiece(const std::uint8_t* bytes, std::size_t size);
  void SealTrains();

  const int socket_;
  const std::size_t full_;  // image bytes in a packet
  std::uint32_t packets_ = 0;
  std::size_t message_count_ = 0;
  std::size_t piece_count_ = 0;
  std::array<std::uint8_t, StreamHeader::kStandardSize + ImageLeader::kSize> leader_{};
  std::array<std::uint8_t, StreamHeader::kStandardSize + ImageTrailer::kSize> trailer_{};
  std::vector<std::uint8_t> headers_;  // of the data packets
  std::vector<mmsghdr> messages_;
  std::vector<Train> trains_;  // of each message
  std::vector<SegmentSize> controls_;
  std::vector<iovec> pieces_;
};

}  // namespace Tarn
