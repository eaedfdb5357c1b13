#include "camera/engine/stream/image_layout.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "camera/base/engine_error.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kMono8 = 0x01080001, kMono12 = 0x01100005, kMono12p = 0x010C0047;
constexpr std::uint32_t kRgb8 = 0x02180014, kRgb8Planar = 0x02180021;

using Bytes = std::vector<std::uint8_t>;

/// An image with planes `plane_step` bytes apart in memory that is filled with a pattern.
struct TestImage {
  std::size_t width, height, sample_bytes;
  std::ptrdiff_t x_increment, y_increment;
  std::size_t plane_count, plane_step;
  std::size_t start = 0;

  Bytes memory = [] {
    Bytes bytes(200'000);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 13 + i / 255);
    return bytes;
  }();
  std::vector<PlaneMemory> planes{};

  ImageMemory View() {
    planes.clear();
    for (std::size_t p = 0; p < plane_count; ++p) {
      planes.push_back({memory.data() + start + p * plane_step, x_increment, y_increment});
    }
    return {width, height, sample_bytes, planes};
  }

  /// Sample by sample, in the wire's order.
  Bytes Reference(bool planar) {
    const ImageMemory view = View();
    Bytes bytes;
    const auto put = [&](std::size_t p, std::size_t x, std::size_t y) {
      const PlaneMemory& plane = view.planes[p];
      const std::uint8_t* at = plane.base + static_cast<std::ptrdiff_t>(x) * plane.x_increment +
                               static_cast<std::ptrdiff_t>(y) * plane.y_increment;
      bytes.insert(bytes.end(), at, at + sample_bytes);
    };
    for (std::size_t outer = 0; outer < (planar ? plane_count : 1); ++outer) {
      for (std::size_t y = 0; y < height; ++y) {
        for (std::size_t x = 0; x < width; ++x) {
          for (std::size_t p = planar ? outer : 0; p < (planar ? outer + 1 : plane_count); ++p) put(p, x, y);
        }
      }
    }
    return bytes;
  }
};

Bytes AllBytes(const ImageBlock& block) {
  Bytes bytes;
  block.payload.ForEachPiece(0, block.payload.Size(), [&](const std::uint8_t* at, std::size_t count) {
    bytes.insert(bytes.end(), at, at + count);
  });
  return bytes;
}

TEST(ImageLayout, PayloadIsTheImageSampleBySampleAndCopiedOnlyWhereItMustBe) {
  const struct {
    const char* what;
    std::uint32_t format;
    TestImage image;
    bool copied;
  } rows[] = {
      {"contiguous", kMono8, {150, 40, 1, 1, 150, 1, 0}, false},
      {"padded rows", kMono8, {150, 40, 1, 1, 256, 1, 0}, false},
      {"upside down", kMono8, {150, 40, 1, 1, -150, 1, 0, 39 * 150}, false},
      {"padded rows too short to gather", kMono8, {30, 40, 1, 1, 256, 1, 0}, true},
      {"mirrored", kMono8, {150, 40, 1, -1, 150, 1, 0, 149}, true},
      {"every second column", kMono8, {150, 40, 1, 2, 300, 1, 0}, true},
      {"16-bit words", kMono12, {150, 40, 2, 2, 300, 1, 0}, false},
      {"interleaved colours", kRgb8, {150, 40, 1, 3, 450, 3, 1}, false},
      {"planes sent interleaved", kRgb8, {150, 40, 1, 1, 150, 3, 6000}, true},
      {"planes sent as planes", kRgb8Planar, {150, 40, 1, 1, 150, 3, 6000}, false},
      {"padded planes", kRgb8Planar, {150, 40, 1, 1, 200, 3, 9000}, false},
      {"interleaved sent as planes", kRgb8Planar, {150, 40, 1, 3, 450, 3, 1}, true},
  };
  for (auto row : rows) {
    ImageBlock block;
    LayOutImage(row.image.View(), {row.format, row.image.width, row.image.height}, block);
    EXPECT_EQ(AllBytes(block), row.image.Reference(row.format == kRgb8Planar)) << row.what;
    EXPECT_EQ(!block.staging.empty(), row.copied) << row.what;
  }
}

TEST(ImageLayout, TakesPackedPixelsAsBytes) {
  TestImage packed{150 * 12 / 8, 40, 1, 1, 256, 1, 0};
  ImageBlock block;
  LayOutImage(packed.View(), {kMono12p, 150, 40}, block);
  EXPECT_EQ(AllBytes(block), packed.Reference(false));

  TestImage run{7 * 5 * 12 / 8 + 1, 1, 1, 1, 0, 1, 0};  // lines that end inside a byte
  LayOutImage(run.View(), {kMono12p, 7, 5}, block);
  EXPECT_EQ(AllBytes(block), run.Reference(false));
}

TEST(ImageLayout, RefusesTheRightNumberOfBytesInAShapeThatContradicts) {
  struct Row {
    const char* what;
    std::uint32_t format;
    std::size_t width, height, sample_bytes, planes;
    bool taken;
  };
  const Row rows[] = {
      {"rows of bytes", kMono8, 64, 48, 1, 1, true},
      {"all in one row", kMono8, 3072, 1, 1, 1, true},
      {"colours", kMono8, 16, 64, 1, 3, false},
      {"words", kMono8, 64, 24, 2, 1, false},
      {"turned", kMono8, 48, 64, 1, 1, false},
      {"other rows", kMono8, 32, 96, 1, 1, false},
      {"rows of colours", kRgb8, 192, 48, 1, 1, true},
      {"planes side by side", kRgb8, 64, 144, 1, 1, false},
      {"lines of planes", kRgb8Planar, 64, 144, 1, 1, true},
  };
  for (const Row& row : rows) {
    const auto samples = static_cast<std::ptrdiff_t>(row.sample_bytes * row.planes);
    TestImage image{row.width,
                    row.height,
                    row.sample_bytes,
                    samples,
                    static_cast<std::ptrdiff_t>(row.width) * samples,
                    row.planes,
                    row.sample_bytes};
    ImageBlock block;
    const auto lay_out = [&] { LayOutImage(image.View(), {row.format, 64, 48}, block); };
    if (row.taken) {
      EXPECT_NO_THROW(lay_out()) << row.what;
    } else {
      EXPECT_THROW(lay_out(), EngineError) << row.what;
    }
  }
}

TEST(ImageLayout, RefusesOtherSizesAndNamesBoth) {
  TestImage image{150, 40, 1, 1, 150, 1, 0};
  const ImageFormat wanted[] = {{kMono8, 150, 41}, {kMono12, 150, 40}, {kRgb8, 150, 40}, {kMono12p, 150, 40}};
  for (const ImageFormat& format : wanted) {
    ImageBlock block;
    try {
      LayOutImage(image.View(), format, block);
      ADD_FAILURE() << std::hex << format.pixel_format;
    } catch (const EngineError& e) {
      const std::string text = e.what();
      EXPECT_NE(text.find("(" + std::to_string(format.PayloadBytes()) + " bytes) are expected"),
                std::string::npos)
          << text;
      EXPECT_NE(text.find("(6000 bytes) are given"), std::string::npos) << text;
    }
  }
}

}  // namespace
}  // namespace Tarn
