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
    Bytes bytes(SampleBytesOf(View()));
    std::uint8_t* to = bytes.data();
    const std::size_t together = order == SampleOrder::kPlanar ? 1 : plane_count;
    for (std::size_t first = 0; first < plane_count; first += together) {
      for (std::size_t pixel = 0; pixel < width * height; ++pixel) {
        const auto x = static_cast<std::ptrdiff_t>(pixel % width);
        const auto y = static_cast<std::ptrdiff_t>(pixel / width);
        for (std::size_t p = first; p < first + together; ++p) {
          to = std::copy_n(planes[p].base + x * x_increment + y * y_increment, sample_bytes, to);
        }
      }
    }
    return bytes;
  }
};

/// Whole and by slices, as packets take it; no slice has more pieces than the layout says.
void ExpectBytes(const PayloadLayout& layout, const Bytes& expected) {
  ASSERT_EQ(layout.Size(), expected.size());
  for (const std::size_t most : {std::size_t{1}, std::size_t{63}, std::size_t{250}, expected.size()}) {
    Bytes bytes;
    for (std::size_t offset = 0; offset < expected.size(); offset += most) {
      const std::size_t length = std::min(most, expected.size() - offset);
      std::size_t pieces = 0;
      layout.ForEachPiece(offset, length, [&](const std::uint8_t* at, std::size_t count) {
        bytes.insert(bytes.end(), at, at + count);
        ++pieces;
      });
      ASSERT_LE(pieces, layout.MaxPieces(length)) << length << " bytes from " << offset;
    }
    EXPECT_EQ(bytes, expected) << "by " << most << " bytes";
  }
}

TEST(ImageLayout, CopiesOnlyWhatDoesNotLieAsTheWireHasItAndRefusesOtherShapes) {
  enum Outcome { kSentAsItLies, kCopied, kRefused };
  const struct {
    const char* what;
    ImageFormat format;
    TestImage image;
    Outcome outcome;
  } rows[] = {
      {"contiguous", {kMono8, 150, 40}, {150, 40, 1, 1, 150}, kSentAsItLies},
      {"padded rows", {kMono8, 150, 40}, {150, 40, 1, 1, 256}, kSentAsItLies},
      {"upside down", {kMono8, 150, 40}, {150, 40, 1, 1, -150}, kSentAsItLies},
      {"rows too short to gather", {kMono8, 30, 40}, {30, 40, 1, 1, 256}, kCopied},
      {"mirrored", {kMono8, 150, 40}, {150, 40, 1, -1, 150}, kCopied},
      {"16-bit words", {kMono12, 150, 40}, {150, 40, 2, 2, 300}, kSentAsItLies},
      {"interleaved colours", {kRgb8, 150, 40}, {150, 40, 1, 3, 450, 3, 1}, kSentAsItLies},
      {"planes sent interleaved", {kRgb8, 150, 40}, {150, 40, 1, 1, 150, 3, 6000}, kCopied},
      {"planes sent as planes", {kRgb8Planar, 150, 40}, {150, 40, 1, 1, 150, 3, 6000}, kSentAsItLies},
      {"padded planes", {kRgb8Planar, 150, 40}, {150, 40, 1, 1, 200, 3, 9000}, kSentAsItLies},
      {"interleaved sent as planes", {kRgb8Planar, 150, 40}, {150, 40, 1, 3, 450, 3, 1}, kCopied},
      {"rows of packed pixels", {kMono12p, 150, 40}, {225, 40, 1, 1, 256}, kSentAsItLies},
      {"lines that end inside a byte", {kMono12p, 7, 5}, {53, 1, 1, 1, 0}, kSentAsItLies},
      {"all in one row", {kMono8, 64, 48}, {3072, 1, 1, 1, 3072}, kSentAsItLies},
      {"rows of colours", {kRgb8, 64, 48}, {192, 48, 1, 1, 192}, kSentAsItLies},
      {"lines of planes", {kRgb8Planar, 64, 48}, {64, 144, 1, 1, 64}, kSentAsItLies},
      {"planes side by side", {kRgb8, 64, 48}, {64, 144, 1, 1, 64}, kRefused},
      {"colours for bytes", {kMono8, 64, 48}, {16, 64, 1, 3, 48, 3, 1}, kRefused},
      {"words for bytes", {kMono8, 64, 48}, {64, 24, 2, 2, 128}, kRefused},
      {"samples of three bytes", {kRgb8, 64, 48}, {64, 48, 3, 3, 192}, kRefused},
      {"turned", {kMono8, 64, 48}, {48, 64, 1, 1, 48}, kRefused},
      {"other rows", {kMono8, 64, 48}, {32, 96, 1, 1, 32}, kRefused},
      {"a line too few", {kMono8, 150, 41}, {150, 40, 1, 1, 150}, kRefused},
  };
  for (auto row : rows) {
    SCOPED_TRACE(row.what);
    if (row.outcome == kRefused) {
      EXPECT_THROW(ViewImage(row.image.View(), row.format), EngineError);
      continue;
    }
    const auto view = ViewImage(row.image.View(), row.format);
    EXPECT_EQ(view.has_value(), row.outcome == kSentAsItLies);
    if (view) ExpectBytes(*view, row.image.Reference(row.format.Order()));
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

void ExpectGathered(TestImage image) {
  for (const SampleOrder order : {SampleOrder::kInterleaved, SampleOrder::kPlanar}) {
    Bytes gathered(SampleBytesOf(image.View()) + 1, 0xA5);
    GatherImage(image.View(), order, MutableByteView(gathered).first(gathered.size() - 1));
    EXPECT_EQ(gathered.back(), 0xA5) << "wrote too far";
    gathered.pop_back();
    EXPECT_TRUE(gathered == image.Reference(order))
        << image.width << "x" << image.height << ", " << image.plane_count << " planes of "
        << image.sample_bytes << " bytes, steps " << image.x_increment << " " << image.y_increment << " "
        << image.plane_step << (order == SampleOrder::kPlanar ? ", planar" : ", interleaved");
  }
}

/// Sizes with whole tiles and remainders, lines longer than a tile, and less than a vector.
TEST(ImageLayout, GathersEveryShapeSampleBySample) {
  const std::size_t sizes[][2] = {{69, 67}, {4112, 1}, {3, 5}};
  for (const auto& [width, height] : sizes) {
    for (const std::size_t sample_bytes : {1u, 2u, 4u, 8u}) {
      for (const std::size_t planes : {1u, 2u, 3u, 4u, 5u}) {
        for (const std::string_view nesting : {"yxp", "pyx", "ypx", "xyp", "pxy"}) {
          for (unsigned mirrored = 0; mirrored < 8; ++mirrored) {
            const TestImage image{width, height, sample_bytes, 0, 0, planes};
            ExpectGathered(NestedImage(nesting, image, mirrored / 2 + 1, mirrored));
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace Tarn
