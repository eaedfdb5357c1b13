#include "camera/wire/pfnc.h"

#include <gtest/gtest.h>

#include <tuple>

namespace Tarn {
namespace {

TEST(PixelFormats, AreFoundByValueAndByNameAndNotGuessed) {
  using enum PixelFamily;
  // Ends of both orders, and one of each peculiar kind.
  const std::tuple<std::uint32_t, std::string_view, unsigned, unsigned, PixelFamily, bool> rows[] = {
      {0x01080001, "Mono8", 8, 1, Mono, false},
      {0x010C0004, "Mono10Packed", 12, 1, Mono, false},
      {0x01100010, "BayerGR12", 16, 1, Bayer, false},
      {0x02180021, "RGB8_Planar", 24, 3, RGB, true},
      {0x020C0112, "YCbCr420_8_YY_CbCr_Semiplanar", 12, 3, YCbCr, true},
      {0x026000C0, "Coord3D_ABC32f", 96, 3, Coord3D, false},
  };
  for (const auto& row : rows) {
    for (const auto& found : {FindPixelFormat(std::get<0>(row)), FindPixelFormat(std::get<1>(row))}) {
      ASSERT_TRUE(found) << std::get<1>(row);
      EXPECT_EQ(std::tuple(found->value, found->name, BitsPerPixel(found->value), found->components,
                           found->family, found->IsPlanar()),
                row);
    }
  }
  for (const std::uint32_t value : {0u, 0x01080000u, 0xFFFF'FFFFu}) EXPECT_FALSE(FindPixelFormat(value));
  for (const std::string_view name : {"", "mono8", "Mono8 ", "~"}) EXPECT_FALSE(FindPixelFormat(name));
}

}  // namespace
}  // namespace Tarn
