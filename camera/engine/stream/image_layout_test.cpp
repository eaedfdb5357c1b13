#include "camera/engine/stream/image_layout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/engine/stream/gather.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kMono8 = 0x01080001, kMono12 = 0x01100005, kMono12p = 0x010C0047;
constexpr std::uint32_t kRgb8 = 0x02180014, kRgb8Planar = 0x02180021;

using Bytes = std::vector<std::uint8_t>;

constexpr std::ptrdiff_t kMiddle = 800'000;

/// Bytes on both sides of kMiddle, where images start.
const Bytes& Memory() {
  static const Bytes memory = [] {
    Bytes bytes(2 * kMiddle);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 13 + i / 255);
    return bytes;
  }();
  return memory;
}

struct TestImage {
  std::size_t width, height, sample_bytes;
  std::ptrdiff_t x_increment, y_increment;
  std::size_t plane_count = 1;
  std::ptrdiff_t plane_step = 0;

  std::vector<PlaneMemory> planes{};

  ImageMemory View() {
    planes.clear();
    const std::uint8_t* base = Memory().data() + kMiddle;
    for (std::size_t p = 0; p < plane_count; ++p, base += plane_step) {
      planes.push_back({base, x_increment, y_increment});
    }
    return {width, height, sample_bytes, planes};
  }

  /// Sample by sample, in the wire's order.
  Bytes Reference(SampleOrder order) {
    const ImageMemory view = View();
    Bytes bytes(SampleBytesOf(view));
    std::uint8_t* to = bytes.data();
    const auto put_line = [&](std::size_t y, std::size_t begin, std::size_t end) {
      for (std::size_t x = 0; x < width; ++x) {
        for (std::size_t p = begin; p < end; ++p) {
          const std::uint8_t* at = planes[p].base + static_cast<std::ptrdiff_t>(x) * x_increment +
                                   static_cast<std::ptrdiff_t>(y) * y_increment;
          to = std::copy_n(at, sample_bytes, to);
        }
      }
    };
    const std::size_t count = order == SampleOrder::kPlanar ? 1 : plane_count;
    for (std::size_t p = 0; p < plane_count; p += count) {
      for (std::size_t y = 0; y < height; ++y) put_line(y, p, p + count);
    }
    return bytes;
  }
};

Bytes AllBytes(const PayloadLayout& payload) {
  Bytes bytes;
  payload.ForEachPiece(0, payload.Size(), [&](const std::uint8_t* at, std::size_t count) {
    bytes.insert(bytes.end(), at, at + count);
  });
  return bytes;
}

struct LaidOut {
  Bytes bytes;
  bool copied = false;
};

/// The payload of an image: of a view, or put in order.
LaidOut LayOut(const ImageMemory& image, const ImageFormat& format) {
  LaidOut out;
  if (const auto view = ViewImage(image, format)) {
    out.bytes = AllBytes(*view);
  } else {
    out.copied = true;
    out.bytes.resize(SampleBytesOf(image));
    GatherImage(image, format.Order(), out.bytes);
  }
  return out;
}

TEST(ImageLayout, CopiesOnlyWhatDoesNotLieAsTheWireHasIt) {
  const struct {
    const char* what;
    std::uint32_t format;
    TestImage image;
    bool copied;
  } rows[] = {
      {"contiguous", kMono8, {150, 40, 1, 1, 150}, false},
      {"padded rows", kMono8, {150, 40, 1, 1, 256}, false},
      {"upside down", kMono8, {150, 40, 1, 1, -150}, false},
      {"padded rows too short to gather", kMono8, {30, 40, 1, 1, 256}, true},
      {"mirrored", kMono8, {150, 40, 1, -1, 150}, true},
      {"16-bit words", kMono12, {150, 40, 2, 2, 300}, false},
      {"interleaved colours", kRgb8, {150, 40, 1, 3, 450, 3, 1}, false},
      {"planes sent interleaved", kRgb8, {150, 40, 1, 1, 150, 3, 6000}, true},
      {"planes sent as planes", kRgb8Planar, {150, 40, 1, 1, 150, 3, 6000}, false},
      {"padded planes", kRgb8Planar, {150, 40, 1, 1, 200, 3, 9000}, false},
      {"interleaved sent as planes", kRgb8Planar, {150, 40, 1, 3, 450, 3, 1}, true},
  };
  for (auto row : rows) {
    const ImageFormat format{row.format, row.image.width, row.image.height};
    const LaidOut out = LayOut(row.image.View(), format);
    EXPECT_EQ(out.bytes, row.image.Reference(format.Order())) << row.what;
    EXPECT_EQ(out.copied, row.copied) << row.what;
  }
}

/// An image whose axes lie one within the other in the order `nesting`, the outermost first. Every `gap`-th
/// column of the memory belongs to it; each bit of `mirrored` turns an axis round.
TestImage NestedImage(std::string_view nesting, TestImage image, std::size_t gap, unsigned mirrored) {
  std::size_t step = image.sample_bytes;
  for (auto axis = nesting.rbegin(); axis != nesting.rend(); ++axis) {
    const auto number = std::string_view("xyp").find(*axis);
    const std::size_t lengths[] = {image.width, image.height, image.plane_count};
    std::ptrdiff_t* const increments[] = {&image.x_increment, &image.y_increment, &image.plane_step};
    if (*axis == 'x') step *= gap;
    *increments[number] = static_cast<std::ptrdiff_t>(step) * ((mirrored >> number & 1) != 0 ? -1 : 1);
    step *= lengths[number];
  }
  return image;
}

void ExpectGathered(TestImage image, SampleOrder order, const std::string& what) {
  Bytes gathered(SampleBytesOf(image.View()) + 1, 0xA5);
  GatherImage(image.View(), order, MutableByteView(gathered).first(gathered.size() - 1));
  EXPECT_EQ(gathered.back(), 0xA5) << what << ": wrote too far";
  gathered.pop_back();
  EXPECT_TRUE(gathered == image.Reference(order)) << what;
}

/// Sizes with whole tiles and remainders, lines longer than a tile, and less than a vector.
TEST(ImageLayout, GathersEveryShapeSampleBySample) {
  const std::size_t sizes[][2] = {{69, 67}, {4112, 1}, {3, 5}};
  for (const auto& [width, height] : sizes) {
    for (const std::size_t sample_bytes : {1u, 2u, 4u, 8u}) {
      for (const std::size_t planes : {1u, 2u, 3u, 4u, 5u}) {
        for (const std::string nesting : {"yxp", "pyx", "ypx", "xyp", "pxy"}) {
          for (unsigned mirrored = 0; mirrored < 8; ++mirrored) {
            const std::size_t gap = mirrored / 2 + 1;
            const TestImage image =
                NestedImage(nesting, {width, height, sample_bytes, 0, 0, planes}, gap, mirrored);
            const std::string what = std::to_string(width) + "x" + std::to_string(height) + ", " +
                                     std::to_string(planes) + " planes of " + std::to_string(sample_bytes) +
                                     " bytes, " + nesting + ", gap " + std::to_string(gap) + ", mirrored " +
                                     std::to_string(mirrored);
            ExpectGathered(image, SampleOrder::kInterleaved, what);
            ExpectGathered(image, SampleOrder::kPlanar, what + ", planar");
          }
        }
      }
    }
  }
}

TEST(ImageLayout, TakesPackedPixelsAsBytes) {
  TestImage packed{150 * 12 / 8, 40, 1, 1, 256};
  EXPECT_EQ(LayOut(packed.View(), {kMono12p, 150, 40}).bytes, packed.Reference(SampleOrder::kInterleaved));

  TestImage run{7 * 5 * 12 / 8 + 1, 1, 1, 1, 0};  // lines that end inside a byte
  EXPECT_EQ(LayOut(run.View(), {kMono12p, 7, 5}).bytes, run.Reference(SampleOrder::kInterleaved));
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
                    static_cast<std::ptrdiff_t>(row.sample_bytes)};
    const auto lay_out = [&] { LayOut(image.View(), {row.format, 64, 48}); };
    if (row.taken) {
      EXPECT_NO_THROW(lay_out()) << row.what;
    } else {
      EXPECT_THROW(lay_out(), EngineError) << row.what;
    }
  }
}

TEST(ImageLayout, RefusesOtherSizesAndNamesBoth) {
  TestImage image{150, 40, 1, 1, 150};
  const ImageFormat wanted[] = {{kMono8, 150, 41}, {kMono12, 150, 40}, {kRgb8, 150, 40}, {kMono12p, 150, 40}};
  for (const ImageFormat& format : wanted) {
    try {
      LayOut(image.View(), format);
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
