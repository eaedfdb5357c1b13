#include "camera/wire/pfnc.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Tarn {
namespace {

TEST(PixelFormats, AreFoundByValueAndByName) {
  struct Row {
    std::uint32_t value;
    const char* name;
    unsigned bits;
    unsigned components;
    PixelFamily family;
    bool planar;
  };
  // Ends of both orders, and one of each peculiar kind.
  const std::vector<Row> rows = {
      {0x01080001, "Mono8", 8, 1, PixelFamily::Mono, false},
      {0x010C0004, "Mono10Packed", 12, 1, PixelFamily::Mono, false},
      {0x010A0046, "Mono10p", 10, 1, PixelFamily::Mono, false},
      {0x01100010, "BayerGR12", 16, 1, PixelFamily::Bayer, false},
      {0x02180014, "RGB8", 24, 3, PixelFamily::RGB, false},
      {0x02180021, "RGB8_Planar", 24, 3, PixelFamily::RGB, true},
      {0x02200017, "BGRa8", 32, 4, PixelFamily::RGBa, false},
      {0x020C001E, "YUV411_8_UYYVYY", 12, 3, PixelFamily::YUV, false},
      {0x020C0112, "YCbCr420_8_YY_CbCr_Semiplanar", 12, 3, PixelFamily::YCbCr, true},
      {0x026000C0, "Coord3D_ABC32f", 96, 3, PixelFamily::Coord3D, false},
  };
  for (const Row& row : rows) {
    const auto by_value = FindPixelFormat(row.value);
    const auto by_name = FindPixelFormat(std::string_view(row.name));
    ASSERT_TRUE(by_value && by_name) << row.name;
    EXPECT_EQ(by_value->name, row.name);
    EXPECT_EQ(by_name->value, row.value);
    EXPECT_EQ(BitsPerPixel(row.value), row.bits) << row.name;
    EXPECT_EQ(by_value->components, row.components) << row.name;
    EXPECT_EQ(by_value->family, row.family) << row.name;
    EXPECT_EQ(by_value->IsPlanar(), row.planar) << row.name;
  }
}

TEST(PixelFormats, AreNotGuessed) {
  for (const std::uint32_t value : {0u, 1u, 0x01080000u, 0x81080001u, 0xFFFF'FFFFu}) {
    EXPECT_FALSE(FindPixelFormat(value)) << std::hex << value;
  }
  for (const std::string_view name : {"", "mono8", "Mono", "Mono8 ", "~"})
    EXPECT_FALSE(FindPixelFormat(name)) << name;
}

}  // namespace
}  // namespace Tarn
