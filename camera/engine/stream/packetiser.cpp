#include "camera/engine/stream/packetiser.h"

#include <limits>

namespace Tarn {
namespace {

std::size_t DataPackets(std::size_t payload_bytes, std::size_t data_bytes) {
  return payload_bytes / data_bytes + (payload_bytes % data_bytes != 0 ? 1 : 0);
}

}  // namespace

DataHeader::DataHeader(const StreamHeader& header) noexcept
    : format_(static_cast<std::uint32_t>(header.format) << 24), extended_(header.extended) {
  ByteWriter out(bytes_);
  header.Encode(out);
}

bool Packetiser::Fits(std::size_t payload_bytes, const PacketForm& form) noexcept {
  if (form.packet_size < kMinPacket) return false;
  // The largest id means "to the trailer" in resend requests, so no packet has it.
  const std::size_t max_packets =
      form.extended ? std::numeric_limits<std::uint32_t>::max() : StreamHeader::kMaxStandardPacketId;
  return DataPackets(payload_bytes, form.DataBytes()) <= max_packets - 2;
}

Packetiser::Packetiser(const BlockHead& head, std::size_t payload_bytes, std::uint64_t block_id,
                       const PacketForm& form) noexcept
    : head_(head),
      block_id_(block_id),
      form_(form),
      payload_bytes_(payload_bytes),
      data_bytes_(form.DataBytes()),
      data_packets_(static_cast<std::uint32_t>(DataPackets(payload_bytes, data_bytes_))) {}

StreamHeader Packetiser::Header(StreamFormat format, std::uint16_t status,
                                std::uint16_t flags) const noexcept {
  StreamHeader header;
  header.status = status;
  header.flags = flags;
  header.format = format;
  header.extended = form_.extended;
  header.block_id = block_id_;
  return header;
}

DataHeader Packetiser::DataHeaders(std::uint16_t status, std::uint16_t flags) const noexcept {
  return DataHeader(Header(StreamFormat::Payload, status, flags));
}

std::size_t Packetiser::EncodeEnd(std::uint32_t id, std::uint16_t status, std::uint16_t flags,
                                  MutableByteView out) const noexcept {
  const bool leader = id == 0;
  StreamHeader header = Header(leader ? StreamFormat::Leader : StreamFormat::Trailer, status, flags);
  header.packet_id = id;
  ByteWriter writer(out);
  header.Encode(writer);
  if (leader) {
    EncodeLeader(writer);
  } else {
    EncodeTrailer(writer);
  }
  return writer.Size();
}

void Packetiser::EncodeLeader(ByteWriter& out) const noexcept {
  const ImageLeader& image = head_.image;
  if (WithoutChunks(image.type) == PayloadType::Image) return image.Encode(out);
  DataLeader{image.type, image.timestamp, payload_bytes_, head_.file_name.data()}.Encode(out);
}

void Packetiser::EncodeTrailer(ByteWriter& out) const noexcept {
  const PayloadType type = head_.image.type;
  if (WithoutChunks(type) == PayloadType::Image) {
    ImageTrailer{type, head_.image.size_y}.Encode(out);
  } else {
    DataTrailer{type}.Encode(out);
  }
  if (!HasChunks(type)) return;
  ChunkFields{static_cast<std::uint32_t>(payload_bytes_), head_.chunk_layout_id}.Encode(out);
}

}  // namespace Tarn
