#include "wire/gvsp.h"

namespace Tarn {
namespace {

constexpr std::uint8_t kExtendedBit = 0x80;
constexpr std::uint8_t kFormatMask = 0x0F;

}  // namespace

std::optional<StreamHeader> StreamHeader::Decode(ByteReader& in) noexcept {
  StreamHeader h;
  h.status = in.Take<std::uint16_t>();
  const auto second = in.Take<std::uint16_t>();
  const auto format = in.Take<std::uint8_t>();
  h.format = StreamFormat{static_cast<std::uint8_t>(format & kFormatMask)};
  h.extended = (format & kExtendedBit) != 0;
  if (h.extended) {
    h.flags = second;
    in.Skip(3);
    h.block_id = in.Take<std::uint64_t>();
    h.packet_id = in.Take<std::uint32_t>();
  } else {
    h.block_id = second;
    h.packet_id = static_cast<std::uint32_t>(in.Take<std::uint8_t>()) << 16;
    h.packet_id |= in.Take<std::uint16_t>();
  }
  if (!in.Ok()) return std::nullopt;
  return h;
}

void StreamHeader::Encode(ByteWriter& out) const noexcept {
  out.Put(status);
  if (extended) {
    out.Put(flags);
    out.Put(static_cast<std::uint8_t>(kExtendedBit | static_cast<std::uint8_t>(format)));
    out.PutZeros(3);
    out.Put(block_id);
    out.Put(packet_id);
  } else {
    out.Put(static_cast<std::uint16_t>(block_id));
    out.Put(static_cast<std::uint32_t>(format) << 24 | (packet_id & kMaxStandardPacketId));
  }
}

std::optional<ImageLeader> ImageLeader::Decode(ByteReader& in) noexcept {
  ImageLeader l;
  in.Skip(2);
  l.type = PayloadType{in.Take<std::uint16_t>()};
  l.timestamp = in.Take<std::uint64_t>();
  l.pixel_format = in.Take<std::uint32_t>();
  l.size_x = in.Take<std::uint32_t>();
  l.size_y = in.Take<std::uint32_t>();
  l.offset_x = in.Take<std::uint32_t>();
  l.offset_y = in.Take<std::uint32_t>();
  l.padding_x = in.Take<std::uint16_t>();
  l.padding_y = in.Take<std::uint16_t>();
  if (!in.Ok() || l.type != PayloadType::Image) return std::nullopt;
  return l;
}

void ImageLeader::Encode(ByteWriter& out) const noexcept {
  out.PutZeros(2);  // field id and count of interlaced images; reserved
  out.Put(static_cast<std::uint16_t>(type));
  out.Put(timestamp);
  out.Put(pixel_format);
  out.Put(size_x);
  out.Put(size_y);
  out.Put(offset_x);
  out.Put(offset_y);
  out.Put(padding_x);
  out.Put(padding_y);
}

std::optional<ImageTrailer> ImageTrailer::Decode(ByteReader& in) noexcept {
  ImageTrailer t;
  in.Skip(2);
  t.type = PayloadType{in.Take<std::uint16_t>()};
  t.size_y = in.Take<std::uint32_t>();
  if (!in.Ok() || t.type != PayloadType::Image) return std::nullopt;
  return t;
}

void ImageTrailer::Encode(ByteWriter& out) const noexcept {
  out.PutZeros(2);
  out.Put(static_cast<std::uint16_t>(type));
  out.Put(size_y);
}

}  // namespace Tarn
