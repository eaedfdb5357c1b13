#pragma once

/// The stream protocol's packets: headers, leaders and trailers, chunk tags, test packets.
///
/// Source: GigE Vision, stream protocol.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "camera/base/byte_stream.h"

namespace Tarn {

/// Content of a stream packet, low four bits of the format byte.
enum class StreamFormat : std::uint8_t { Leader = 1, Trailer = 2, Payload = 3 };

/// What a block is. Each type is also met with the bit of ChunkedBit: chunks follow the data then.
enum class PayloadType : std::uint16_t { Image = 0x0001, RawData = 0x0002, File = 0x0003 };

inline constexpr std::uint16_t kChunkedBit = 0x4000;
constexpr PayloadType Chunked(PayloadType type) {
  return PayloadType{static_cast<std::uint16_t>(static_cast<std::uint16_t>(type) | kChunkedBit)};
}
constexpr PayloadType WithoutChunks(PayloadType type) {
  return PayloadType{static_cast<std::uint16_t>(static_cast<std::uint16_t>(type) & ~kChunkedBit)};
}
constexpr bool HasChunks(PayloadType type) { return type != WithoutChunks(type); }

/// In front of the stream header, part of a packet's size.
inline constexpr std::size_t kIpv4HeaderSize = 20;
inline constexpr std::size_t kUdpHeaderSize = 8;
inline constexpr std::size_t kDatagramOverhead = kIpv4HeaderSize + kUdpHeaderSize;

/// Status field of a stream packet; 0 is success.
namespace StreamStatus {
inline constexpr std::uint16_t kSuccess = 0x0000;
inline constexpr std::uint16_t kResent = 0x0100;              ///< success of a resend, extended codes only
inline constexpr std::uint16_t kUnavailable = 0x800C;         ///< the only refusal without extended codes
inline constexpr std::uint16_t kNotYetAvailable = 0x8010;     ///< extended codes: not produced yet
inline constexpr std::uint16_t kThisAndEarlierGone = 0x8011;  ///< extended codes
inline constexpr std::uint16_t kGone = 0x8012;                ///< extended codes: this one only
}  // namespace StreamStatus

/// In front of every stream packet, in one of two forms. All integers big-endian.
///
///    0        2          4        5                          8
///    | status | block id | format | packet id                |
///
///    0        2       4        5          8          16          20
///    | status | flags | format | reserved | block id | packet id |     format has bit 0x80 set
struct StreamHeader {
  static constexpr std::size_t kStandardSize = 8;
  static constexpr std::size_t kExtendedSize = 20;
  static constexpr std::uint16_t kResendFlag = 0x0001;
  static constexpr std::uint16_t kAfterDropFlag = 0x0002;  ///< the block before was not sent to its end
  static constexpr std::uint16_t kBeyondBlockFlag =
      0x0004;  ///< of a resend: more was asked for than there is
  static constexpr std::uint32_t kMaxStandardPacketId = 0x00FF'FFFF;

  std::uint16_t status = StreamStatus::kSuccess;
  std::uint16_t flags = 0;  ///< extended form only
  StreamFormat format{};    ///< 0 in test packets
  bool extended = false;
  std::uint64_t block_id = 0;   ///< 16 bits in the standard form; 0 in test packets
  std::uint32_t packet_id = 0;  ///< 24 bits in the standard form

  std::size_t Size() const noexcept { return extended ? kExtendedSize : kStandardSize; }
  static std::optional<StreamHeader> Decode(ByteReader& in) noexcept;
  void Encode(ByteWriter& out) const noexcept;
};

/// Body of a leader packet for an image.
///
///    0       1          2      4           12             16       20       24         28         32 34 |
///    field | reserved | type | timestamp | pixel format | size x | size y | offset x | offset y | padding x
///    | padding y |
struct ImageLeader {
  static constexpr std::size_t kSize = 36;

  PayloadType type = PayloadType::Image;
  std::uint64_t timestamp = 0;     ///< ticks, when the image was taken
  std::uint32_t pixel_format = 0;  ///< PFNC value
  std::uint32_t size_x = 0;        ///< pixels
  std::uint32_t size_y = 0;        ///< lines
  std::uint32_t offset_x = 0;      ///< pixels
  std::uint32_t offset_y = 0;      ///< lines
  std::uint16_t padding_x = 0;     ///< bytes after each line, part of the data
  std::uint16_t padding_y = 0;     ///< bytes after the last line, part of the data

  static std::optional<ImageLeader> Decode(ByteReader& in) noexcept;
  void Encode(ByteWriter& out) const noexcept;
};

/// Body of a leader packet for raw data or a file.
///
///    0          2      4           12            20
///    | reserved | type | timestamp | size of all data | file name, with a zero at its end; files only |
struct DataLeader {
  static constexpr std::size_t kSize = 20;         ///< without the file name
  static constexpr std::size_t kMaxFileName = 63;  ///< bytes, without the zero; our own limit

  PayloadType type = PayloadType::RawData;
  std::uint64_t timestamp = 0;     ///< ticks
  std::uint64_t payload_size = 0;  ///< bytes of all data packets, those of chunks included
  std::string_view file_name;      ///< of files; at most kMaxFileName bytes

  /// The file name of the result is a view of `in`.
  static std::optional<DataLeader> Decode(ByteReader& in) noexcept;
  void Encode(ByteWriter& out) const noexcept;
};

/// Body of a trailer packet for an image; ChunkFields follow in types with chunks.
///
///    0          2      4        8
///    | reserved | type | size y |
struct ImageTrailer {
  static constexpr std::size_t kSize = 8;

  PayloadType type = PayloadType::Image;
  std::uint32_t size_y = 0;  ///< lines really sent

  static std::optional<ImageTrailer> Decode(ByteReader& in) noexcept;
  void Encode(ByteWriter& out) const noexcept;
};

/// Body of a trailer packet for raw data or a file; ChunkFields follow in types with chunks.
///
///    0          2      4
///    | reserved | type |
struct DataTrailer {
  static constexpr std::size_t kSize = 4;

  PayloadType type = PayloadType::RawData;

  static std::optional<DataTrailer> Decode(ByteReader& in) noexcept;
  void Encode(ByteWriter& out) const noexcept;
};

/// End of the trailer of a block with chunks.
///
///    0                   4                 8
///    | size of all data | chunk layout id |
struct ChunkFields {
  static constexpr std::size_t kSize = 8;

  std::uint32_t data_bytes = 0;  ///< of all data packets; a client finds the last chunk's tag at their end
  std::uint32_t layout_id = 0;   ///< as long as it stays, chunks of the same ids lie at the same places

  static std::optional<ChunkFields> Decode(ByteReader& in) noexcept;
  void Encode(ByteWriter& out) const noexcept;
};

/// Stands behind the data of each chunk.
///
///    0    4        8
///    | id | length |
struct ChunkTag {
  static constexpr std::size_t kSize = 8;

  std::uint32_t id = 0;
  std::uint32_t length = 0;  ///< bytes of the chunk, without this tag

  void Encode(ByteWriter& out) const noexcept;
};

/// Fills a test packet of the stream: a standard header of zeros, then the test data that clients can check.
/// Source: GigE Vision, test data generator: a 16-bit register shifted right, its low byte at each step.
void FillTestPacket(MutableByteView packet) noexcept;

}  // namespace Tarn
