// Every decoder of the stream protocol on the same bytes: none may read past their end, and the fields that a
// header was read to are those that its encoded form is read to.

#include <algorithm>
#include <cstdlib>

#include "camera/wire/gvsp.h"

namespace {

using namespace Tarn;

void Require(bool holds) {
  if (!holds) std::abort();
}

template <class Part>
bool ReadsBack(const Part& part) {
  std::uint8_t buffer[128];
  ByteWriter out(buffer);
  part.Encode(out);
  Require(out.Ok());
  ByteReader in(out.Written());
  std::uint8_t again[128];
  ByteWriter out_again(again);
  const auto read = Part::Decode(in);
  if (!read || !in.Rest().empty()) return false;
  read->Encode(out_again);
  return std::ranges::equal(out.Written(), out_again.Written());
}

/// What `Part` decodes is encoded to bytes that decode to the same.
template <class Part>
void Check(ByteView bytes) {
  ByteReader in(bytes);
  if (const auto part = Part::Decode(in)) Require(ReadsBack(*part));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView bytes(data, size);
  Check<StreamHeader>(bytes);
  Check<ImageLeader>(bytes);
  Check<DataLeader>(bytes);
  Check<ImageTrailer>(bytes);
  Check<DataTrailer>(bytes);
  Check<ChunkFields>(bytes);
  return 0;
}
