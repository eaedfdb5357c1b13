// Every decoder of the stream protocol on the same bytes: none may read past their end, and the fields that a
// header was read to are those that its encoded form is read to.

#include "camera/wire/gvsp.h"
#include "fuzz/fuzz.h"

namespace {

using namespace Tarn;

template <class Part>
void Check(ByteView bytes) {
  ByteReader in(bytes);
  const auto part = Part::Decode(in);
  if (!part) return;
  const std::vector<std::uint8_t> written = Encoded(*part);
  ByteReader again(written);
  const auto read = Part::Decode(again);
  Require(read && again.Rest().empty() && Encoded(*read) == written);
}

template <class... Part>
void CheckAll(ByteView bytes) {
  (Check<Part>(bytes), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CheckAll<StreamHeader, ImageLeader, DataLeader, ImageTrailer, DataTrailer, ChunkFields>({data, size});
  return 0;
}
