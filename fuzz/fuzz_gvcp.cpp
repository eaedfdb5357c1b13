// Every decoder of the control protocol on the same bytes: none may read past their end, and what a header
// was read from is what it is written as.

#include <cstdlib>

#include "camera/wire/gvcp.h"

namespace {

using namespace Tarn;

/// The encoded form of what was decoded must be the bytes it came from.
template <class Header>
void CheckBack(const Header& header, ByteView bytes) {
  std::uint8_t buffer[Header::kSize];
  ByteWriter out(buffer);
  header.Encode(out);
  if (!out.Ok() || !std::ranges::equal(out.Written(), bytes.first(Header::kSize))) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView bytes(data, size);
  ByteReader command_bytes(bytes);
  if (const auto header = CommandHeader::Decode(command_bytes)) CheckBack(*header, bytes);
  ByteReader ack_bytes(bytes);
  if (const auto header = AckHeader::Decode(ack_bytes)) CheckBack(*header, bytes);
  for (const bool extended : {false, true}) {
    ByteReader in(bytes);
    const auto resend = ResendCommand::Decode(in, extended);
    const std::size_t needed = extended ? 20 : 12;
    if (resend.has_value() != (size >= needed)) std::abort();
    const bool whole = resend && resend->last_packet == ResendCommand::kToTheEnd;
    if (resend && !extended && !whole && resend->last_packet > 0x00FF'FFFF) std::abort();
  }
  for (const bool scheduled : {false, true}) {
    ByteReader in(bytes);
    const auto action = ActionCommand::Decode(in, scheduled);
    const std::size_t needed = scheduled ? 20 : 12;
    if (action.has_value() != (size >= needed)) std::abort();
    if (action && action->time.has_value() != scheduled) std::abort();
  }
  ByteReader force_bytes(bytes);
  const auto force = ForceIpCommand::Decode(force_bytes);
  if (force.has_value() != (size >= 56) || (force && force->mac >> 48 != 0)) std::abort();
  return 0;
}
