#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <stdexcept>

#include "core/size_and_point.h"
#include "gevserver/address_text.h"
#include "gevserver/pixel_format.h"

namespace Tarn::GevServer {
namespace {

TEST(LooseAddress, CountsWhateverItIsGiven) {
  // Any character is a digit, a fourth one counts as units, and what is too large spills into the next group.
  // In front of a dot is the units digit, a dot too, and that is two below zero.
  const std::pair<const char*, std::uint32_t> rows[] = {
      {"192.168.0.1", 0xC0A80001},     {"255.255.255.255", 0xFFFFFFFF}, {"", 0},   {"7", 7},
      {"0.0.0.1a", 10 + ('a' - '0')},  {"0.0.0.1234", 234 + 1},         {".5", 5}, {"0.0.0.300", 300},
      {"1..2", 2 - 2 * 256 + 10 * 256}};
  for (const auto& [text, number] : rows) EXPECT_EQ(LooseAddress(text), number) << text;
}

TEST(StrictAddress, TakesFourGroupsAndNothingElse) {
  EXPECT_EQ(StrictAddress("192.168.0.1"), 0xC0A80001);
  EXPECT_EQ(StrictAddress("010.0.0.255"), 0x0A0000FF);
  for (const char* text : {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.4 ", "1..2.3", "0001.2.3.4"})
    EXPECT_FALSE(StrictAddress(text)) << text;
}

TEST(PixelFormat, FollowsColourModelAndDataType) {
  using enum ColorModel;
  const std::pair<ColorModel, std::map<std::uint32_t, std::uint32_t>> rows[] = {
      {Mono, {{0x008, 0x01080001}, {0x009, 0x01100003}, {0x00C, 0x01100005}, {0x00D, 0x01100025}}},
      {Mono, {{0x010, 0x01100007}, {0x108, 0x01080002}, {0x808, 0x01080002}}},
      {Mono, {{0x10C, 0}, {0x011, 0}, {0x208, 0}}},
      {MonoGuess, {{0x001, 0x01080001}}},
      {RGB, {{0x008, 0x02180014}, {0x00B, 0x0230001A}, {0x00E, 0x0230005E}, {0x010, 0x02300033}, {0x108, 0}}},
      {RGBGuess, {{0x00A, 0x02300018}}},
      {YUV, {{0x008, 0x02180020}, {0x007, 0}}},
      {YCbCr, {{0x008, 0x0218005B}}},
      {HSV, {{0x008, 0}}},
      {Unknown, {{0x008, 0}}},
      {ColorModel{6}, {{0x008, 0}}},
      {ColorModel{-3}, {{0x008, 0}}}};
  for (const auto& [model, formats] : rows) {
    for (const auto& [type, format] : formats)
      EXPECT_EQ(PfncFormatOf(static_cast<std::int64_t>(model), DataType(type)), format)
          << static_cast<int>(model) << ", " << std::hex << type;
  }
}

TEST(RoundToInt32, RoundsHalvesAwayFromZeroAndRefusesWhatDoesNotFit) {
  EXPECT_EQ(RoundToInt32(639.5), 640);
  EXPECT_EQ(RoundToInt32(479.4), 479);
  EXPECT_EQ(RoundToInt32(-0.5), -1);
  EXPECT_EQ(RoundToInt32(2147483647.4), 2147483647);
  for (const double value : {2147483647.5, -2147483648.5, std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::infinity()}) {
    EXPECT_THROW(RoundToInt32(value), std::overflow_error) << value;
  }
}

}  // namespace
}  // namespace Tarn::GevServer
