#include "camera/wire/gvsp.h"

namespace Tarn {
namespace {

constexpr std::uint8_t kExtendedBit = 0x80;
constexpr std::uint8_t kFormatMask = 0x0F;

bool IsData(PayloadType type) {
  const PayloadType plain = WithoutChunks(type);
  return plain == PayloadType::RawData || plain == PayloadType::File;
}

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
  if (!in.Ok() || WithoutChunks(l.type) != PayloadType::Image) return std::nullopt;
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
  if (!in.Ok() || WithoutChunks(t.type) != PayloadType::Image) return std::nullopt;
  return t;
}

void ImageTrailer::Encode(ByteWriter& out) const noexcept {
  out.PutZeros(2);
  out.Put(static_cast<std::uint16_t>(type));
  out.Put(size_y);
}

std::optional<DataLeader> DataLeader::Decode(ByteReader& in) noexcept {
  DataLeader l;
  in.Skip(2);
  l.type = PayloadType{in.Take<std::uint16_t>()};
  l.timestamp = in.Take<std::uint64_t>();
  l.payload_size = in.Take<std::uint64_t>();
  if (!in.Ok() || !IsData(l.type)) return std::nullopt;
  if (WithoutChunks(l.type) != PayloadType::File) return l;
  const ByteView rest = in.Rest();
  const auto* text = reinterpret_cast<const char*>(rest.data());
  const std::size_t end = std::string_view(text, rest.size()).find('\0');
  if (end > kMaxFileName) return std::nullopt;  // also without any zero
  l.file_name = {text, end};
  in.Skip(end + 1);
  return l;
}

void DataLeader::Encode(ByteWriter& out) const noexcept {
  out.PutZeros(2);
  out.Put(static_cast<std::uint16_t>(type));
  out.Put(timestamp);
  out.Put(payload_size);
  if (WithoutChunks(type) != PayloadType::File) return;
  out.PutBytes(ByteView(reinterpret_cast<const std::uint8_t*>(file_name.data()), file_name.size()));
  out.PutZeros(1);
}

std::optional<DataTrailer> DataTrailer::Decode(ByteReader& in) noexcept {
  DataTrailer t;
  in.Skip(2);
  t.type = PayloadType{in.Take<std::uint16_t>()};
  if (!in.Ok() || !IsData(t.type)) return std::nullopt;
  return t;
}

void DataTrailer::Encode(ByteWriter& out) const noexcept {
  out.PutZeros(2);
  out.Put(static_cast<std::uint16_t>(type));
}

std::optional<ChunkFields> ChunkFields::Decode(ByteReader& in) noexcept {
  ChunkFields f;
  f.data_bytes = in.Take<std::uint32_t>();
  f.layout_id = in.Take<std::uint32_t>();
  if (!in.Ok()) return std::nullopt;
  return f;
}

void ChunkFields::Encode(ByteWriter& out) const noexcept {
  out.Put(data_bytes);
  out.Put(layout_id);
}

void ChunkTag::Encode(ByteWriter& out) const noexcept {
  out.Put(id);
  out.Put(length);
}

void FillTestPacket(MutableByteView packet) noexcept {
  constexpr std::uint16_t kStart = 0xFFFF;
  constexpr std::uint16_t kPolynomial = 0x8016;
  std::uint16_t state = kStart;
  for (std::size_t i = 0; i < packet.size(); ++i) {
    if (i < StreamHeader::kStandardSize) {
      packet[i] = 0;
      continue;
    }
    packet[i] = static_cast<std::uint8_t>(state);
    state = static_cast<std::uint16_t>((state >> 1) ^ ((state & 1) != 0 ? kPolynomial : 0));
  }
}

}  // namespace Tarn
