// Every decoder of the control protocol on the same bytes: none may read past their end, and what a header
// was read from is what it is written as.

#include "fuzz/fuzz.h"

namespace {

using namespace Tarn;

template <class Header>
void CheckHeader(ByteView bytes) {
  ByteReader in(bytes);
  const auto header = Header::Decode(in);
  if (header) Require(std::ranges::equal(Encoded(*header), bytes.first(Header::kSize)));
}

/// \return what was decoded, for which all of `needed` bytes must be there and no more
template <class Part, class... Context>
std::optional<Part> Decoded(ByteView bytes, std::size_t needed, Context... context) {
  ByteReader in(bytes);
  const auto part = Part::Decode(in, context...);
  Require(part.has_value() == (bytes.size() >= needed));
  return part;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView bytes(data, size);
  CheckHeader<CommandHeader>(bytes);
  CheckHeader<AckHeader>(bytes);
  const auto resend = Decoded<ResendCommand>(bytes, 12, false);
  Require(!resend || resend->last_packet == ResendCommand::kToTheEnd || resend->last_packet <= 0x00FF'FFFF);
  Decoded<ResendCommand>(bytes, 20, true);
  for (const bool scheduled : {false, true}) {
    const auto action = Decoded<ActionCommand>(bytes, scheduled ? 20 : 12, scheduled);
    Require(!action || action->time.has_value() == scheduled);
  }
  const auto force = Decoded<ForceIpCommand>(bytes, 56);
  Require(!force || force->mac >> 48 == 0);
  return 0;
}
