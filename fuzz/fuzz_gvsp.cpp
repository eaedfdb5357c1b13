// Every decoder of the stream protocol on the same bytes: none may read past their end, and the fields that a
// header was read to are those that its encoded form is read to.

#include <cstdlib>

#include "wire/gvsp.h"

namespace {

using namespace Tarn;

void Require(bool holds) {
  if (!holds) std::abort();
}

template <class Part>
std::optional<Part> ReadBack(const Part& part) {
  std::uint8_t buffer[64];
  ByteWriter out(buffer);
  part.Encode(out);
  Require(out.Ok());
  ByteReader in(out.Written());
  return Part::Decode(in);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView bytes(data, size);
  ByteReader header_bytes(bytes);
  if (const auto header = StreamHeader::Decode(header_bytes)) {
    const auto again = ReadBack(*header);
    Require(again && again->status == header->status && again->flags == header->flags &&
            again->format == header->format && again->extended == header->extended &&
            again->block_id == header->block_id && again->packet_id == header->packet_id);
    Require(header_bytes.Rest().size() == size - header->Size());
  }
  ByteReader leader_bytes(bytes);
  if (const auto leader = ImageLeader::Decode(leader_bytes)) {
    const auto again = ReadBack(*leader);
    Require(again && again->timestamp == leader->timestamp && again->pixel_format == leader->pixel_format &&
            again->size_x == leader->size_x && again->size_y == leader->size_y &&
            again->offset_x == leader->offset_x && again->offset_y == leader->offset_y &&
            again->padding_x == leader->padding_x && again->padding_y == leader->padding_y);
  }
  ByteReader trailer_bytes(bytes);
  if (const auto trailer = ImageTrailer::Decode(trailer_bytes)) {
    const auto again = ReadBack(*trailer);
    Require(again && again->size_y == trailer->size_y);
  }
  return 0;
}
