#include "camera/engine/stream/image_layout.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "camera/base/engine_error.h"
#include "camera/engine/stream/gather.h"

namespace Tarn {
namespace {

/// Formats that go out plane after plane with one sample per pixel and plane.
/// Source: PFNC, names that end in _Planar, samples in whole bytes.
constexpr std::uint32_t kPlanarFormats[] = {0x0218'0021, 0x0230'0022, 0x0230'0023, 0x0230'0024, 0x0218'00B3,
                                            0x0210'00B5, 0x0230'00BA, 0x0220'00BC, 0x0260'00C1, 0x0240'00C3};

/// Shorter rows are copied: as many pieces would cost more than the copy, and could be more than one call
/// takes.
constexpr std::size_t kMinRowBytes = 128;

std::size_t BitsPerPixel(std::uint32_t pixel_format) { return pixel_format >> 16 & 0xFF; }

bool IsPlanar(std::uint32_t pixel_format) {
  return std::find(std::begin(kPlanarFormats), std::end(kPlanarFormats), pixel_format) !=
         std::end(kPlanarFormats);
}

[[noreturn]] void RefuseImage(const ImageMemory& image, const ImageFormat& format) {
  const auto size = [](std::size_t width, std::size_t height) {
    return std::to_string(width) + "x" + std::to_string(height);
  };
  throw EngineError(Failure::kInvalidArgument,
                    "the image does not fit the stream: " + size(format.width, format.height) +
                        " pixels of " + std::to_string(BitsPerPixel(format.pixel_format)) + " bits (" +
                        std::to_string(format.PayloadBytes()) + " bytes) are expected, " +
                        size(image.width, image.height) + " pixels of " +
                        std::to_string(image.planes.size()) + " x " + std::to_string(image.sample_bytes * 8) +
                        " bits (" + std::to_string(SampleBytesOf(image)) + " bytes) are given");
}

/// True when the samples of a line lie side by side, the planes innermost.
bool HasInterleavedRows(const ImageMemory& image) {
  const auto pixel = static_cast<std::ptrdiff_t>(image.PixelBytes());
  return HasWholePixels(image) && (image.width == 1 || image.planes.front().x_increment == pixel);
}

/// True when in each plane the samples of a line lie side by side.
bool HasPlanarRows(const ImageMemory& image) {
  return image.planes.size() <= PayloadLayout::kMaxPlanes &&
         std::all_of(image.planes.begin(), image.planes.end(), [&](const PlaneMemory& plane) {
           return image.width == 1 || plane.x_increment == static_cast<std::ptrdiff_t>(image.sample_bytes);
         });
}

bool AppendRows(PayloadLayout& layout, const PlaneMemory& plane, std::size_t row_bytes, std::size_t rows) {
  const bool touching = plane.y_increment == static_cast<std::ptrdiff_t>(row_bytes);
  if (rows > 1 && !touching && row_bytes < kMinRowBytes) return false;
  layout.Append({plane.base, row_bytes, plane.y_increment, rows});
  return true;
}

/// Nothing when the memory has not the wire's order.
std::optional<PayloadLayout> View(const ImageMemory& image, SampleOrder order) {
  const bool planar = order == SampleOrder::kPlanar;
  if (planar ? !HasPlanarRows(image) : !HasInterleavedRows(image)) return std::nullopt;
  const std::size_t row_bytes = image.width * (planar ? image.sample_bytes : image.PixelBytes());
  PayloadLayout layout;
  for (const PlaneMemory& plane : image.planes.first(planar ? image.planes.size() : 1)) {
    if (!AppendRows(layout, plane, row_bytes, image.height)) return std::nullopt;
  }
  return layout;
}

/// False for images that cannot be sent, whatever is expected of them.
bool HasSamples(const ImageMemory& image) { return !image.planes.empty() && CanGather(image.sample_bytes); }

/// Whether the image has the format's pixels, or its bytes; see ViewImage.
bool Fits(const ImageMemory& image, const ImageFormat& format) {
  if (SampleBytesOf(image) != format.PayloadBytes()) return false;
  const bool same_width = image.width == format.width;
  const bool same_height = image.height == format.height;
  if (same_width && same_height) return true;
  if (image.planes.size() != 1 || image.sample_bytes != 1) return false;
  return same_height || image.height == 1 || (IsPlanar(format.pixel_format) && same_width);
}

}  // namespace

std::size_t ImageFormat::PayloadBytes() const noexcept {
  return (width * height * BitsPerPixel(pixel_format) + 7) / 8;
}

SampleOrder ImageFormat::Order() const noexcept {
  return IsPlanar(pixel_format) ? SampleOrder::kPlanar : SampleOrder::kInterleaved;
}

std::optional<PayloadLayout> ViewImage(const ImageMemory& image, const ImageFormat& format) {
  if (!HasSamples(image) || !Fits(image, format)) RefuseImage(image, format);
  return View(image, format.Order());
}

std::optional<PayloadLayout> ViewBytes(const ImageMemory& image) {
  if (HasSamples(image)) return View(image, SampleOrder::kInterleaved);
  throw EngineError(
      Failure::kInvalidArgument,
      "images with samples of " + std::to_string(image.sample_bytes * 8) + " bits cannot be sent");
}

}  // namespace Tarn
