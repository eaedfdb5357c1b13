#pragma once

/// Packets in tests, written as the standard's tables show them.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "camera/base/byte_stream.h"

namespace Tarn {

/// Bytes from hexadecimal text; spaces are for the reader.
inline std::vector<std::uint8_t> Hex(const std::string& text) {
  std::string digits = text;
  std::erase(digits, ' ');
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

template <class Part>
std::vector<std::uint8_t> Encoded(const Part& part) {
  std::vector<std::uint8_t> bytes(1000);
  ByteWriter out(bytes);
  part.Encode(out);
  bytes.resize(out.Size());
  return bytes;
}

/// The part at the begin of `bytes`, none of which may be missing.
/// \param context  what Decode wants to know of the part
template <class Part, class... Context>
Part Decoded(const std::vector<std::uint8_t>& bytes, Context... context) {
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    ByteReader cut(ByteView(bytes).first(n));
    EXPECT_FALSE(Part::Decode(cut, context...)) << n << " bytes of " << testing::PrintToString(bytes);
  }
  ByteReader in(bytes);
  const auto part = Part::Decode(in, context...);
  EXPECT_TRUE(part) << testing::PrintToString(bytes);
  EXPECT_TRUE(in.Rest().empty());
  return part.value_or(Part{});
}

/// That the part is written as these bytes, and that what they are read as is written as them again.
template <class Part>
void ExpectBytes(const Part& part, const std::string& hex) {
  EXPECT_EQ(Encoded(part), Hex(hex)) << hex;
  EXPECT_EQ(Encoded(Decoded<Part>(Hex(hex))), Hex(hex)) << hex;
}

}  // namespace Tarn
