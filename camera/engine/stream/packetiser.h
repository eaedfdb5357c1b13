#pragma once

/// Cuts a block into stream packets: a leader, slices of the payload, a trailer.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "camera/engine/stream/image_block.h"
#include "camera/wire/gvsp.h"

namespace Tarn {

/// Size and header form of the packets of a channel.
struct PacketForm {
  std::size_t packet_size = 0;  ///< bytes on the wire with IP, UDP and stream headers
  bool extended = false;

  std::size_t HeaderSize() const noexcept {
    return extended ? StreamHeader::kExtendedSize : StreamHeader::kStandardSize;
  }
  /// Bytes of payload in a full data packet.
  /// Requires: packet_size of at least kMinPacket.
  std::size_t DataBytes() const noexcept { return packet_size - kDatagramOverhead - HeaderSize(); }
  friend bool operator==(const PacketForm&, const PacketForm&) = default;
};

/// Below this the leader finds no room.
inline constexpr std::size_t kMinPacket =
    kDatagramOverhead + StreamHeader::kExtendedSize + DataLeader::kSize + DataLeader::kMaxFileName + 1;

/// Stamps the header of one data packet after the other; all but the packet id is prepared.
class DataHeader {
 public:
  explicit DataHeader(const StreamHeader& header) noexcept;

  /// Requires: the header's size in bytes at `at`.
  void Write(std::uint8_t* at, std::uint32_t packet_id) const noexcept {
    if (extended_) {
      std::memcpy(at, bytes_.data(), StreamHeader::kExtendedSize);
      StoreBe(at + 16, packet_id);
    } else {
      std::memcpy(at, bytes_.data(), 4);
      StoreBe(at + 4, format_ | packet_id);
    }
  }

 private:
  std::array<std::uint8_t, StreamHeader::kExtendedSize> bytes_{};
  std::uint32_t format_;  // of the standard form, above the packet id
  bool extended_;
};

/// The packets of one block. Knows numbers and sizes, not memory, sockets or time. The same block always
/// gives the same packets, so a resend is the same call once more and nothing has to be stored.
/// Threads: immutable; any thread.
class Packetiser {
 public:
  /// A part of the payload.
  struct Slice {
    std::size_t offset = 0;
    std::size_t size = 0;
  };

  /// Room for the start of any packet, see EncodeEnd.
  static constexpr std::size_t kMaxEndSize = kMinPacket - kDatagramOverhead;

  /// True when the packets can be numbered and the leader fits one.
  static bool Fits(std::size_t payload_bytes, const PacketForm& form) noexcept;

  /// Requires: Fits(payload_bytes, form).
  Packetiser(const BlockHead& head, std::size_t payload_bytes, std::uint64_t block_id,
             const PacketForm& form) noexcept;

  /// Packets in the block, leader and trailer included.
  std::uint32_t Count() const noexcept { return TrailerId() + 1; }
  std::uint32_t TrailerId() const noexcept { return data_packets_ + 1; }
  bool IsData(std::uint32_t id) const noexcept { return id != 0 && id <= data_packets_; }
  std::uint64_t BlockId() const noexcept { return block_id_; }
  const PacketForm& Form() const noexcept { return form_; }

  /// Payload in data packet `id`.
  /// Requires: IsData(id).
  Slice SliceOf(std::uint32_t id) const noexcept {
    const std::size_t offset = (id - 1) * data_bytes_;
    return {offset, id == data_packets_ ? payload_bytes_ - offset : data_bytes_};
  }

  /// Headers of data packets.
  /// \param flags  extended form only
  DataHeader DataHeaders(std::uint16_t status, std::uint16_t flags) const noexcept;

  /// Writes the whole leader (id 0) or trailer (id TrailerId()). Returns its size, at most kMaxEndSize.
  std::size_t EncodeEnd(std::uint32_t id, std::uint16_t status, std::uint16_t flags,
                        MutableByteView out) const noexcept;

 private:
  StreamHeader Header(StreamFormat format, std::uint16_t status, std::uint16_t flags) const noexcept;

  void EncodeLeader(ByteWriter& out) const noexcept;
  void EncodeTrailer(ByteWriter& out) const noexcept;

  BlockHead head_;
  std::uint64_t block_id_;
  PacketForm form_;
  std::size_t payload_bytes_;
  std::size_t data_bytes_;  // in a full data packet
  std::uint32_t data_packets_;
};

}  // namespace Tarn
