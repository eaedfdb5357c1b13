#pragma once

/// What the fuzz targets have in common.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "camera/wire/gvcp.h"

namespace Tarn {

/// Aborts, so that the fuzzer keeps the input.
inline void Require(bool holds) {
  if (!holds) std::abort();
}

/// Calls `take(how, bytes)` for each | how 8 | length 16 | bytes | of the input.
template <class Take>
void ForEachPiece(ByteView input, Take&& take) {
  ByteReader in(input);
  while (in.Rest().size() >= 3) {
    const unsigned how = in.Take<std::uint8_t>();
    const std::size_t length = in.Take<std::uint16_t>();
    take(how, in.TakeBytes(std::min(length, in.Rest().size())));
  }
}

template <class Part>
std::vector<std::uint8_t> Encoded(const Part& part) {
  std::vector<std::uint8_t> bytes(128);
  ByteWriter out(bytes);
  part.Encode(out);
  Require(out.Ok());
  bytes.resize(out.Size());
  return bytes;
}

/// The header of a control datagram that the device sent, which must be whole.
template <class Header>
Header HeaderOf(ByteView datagram) {
  ByteReader in(datagram);
  const auto header = Header::Decode(in);
  Require(header && header->length == in.Rest().size());
  Require(datagram.size() <= Header::kSize + kMaxControlPayload);
  return *header;
}

/// What a client answers to a command.
inline std::vector<std::uint8_t> AnswerTo(const CommandHeader& command) {
  const auto code = static_cast<std::uint16_t>(static_cast<std::uint16_t>(command.command) + 1);
  return Encoded(AckHeader{WireStatus::Success, code, 0, command.request_id});
}

}  // namespace Tarn
