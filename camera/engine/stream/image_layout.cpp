#include "camera/engine/stream/image_layout.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "camera/base/engine_error.h"

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

std::size_t PixelBytes(const ImageMemory& image) { return image.planes.size() * image.sample_bytes; }

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
  const PlaneMemory& first = image.planes.front();
  for (std::size_t p = 0; p < image.planes.size(); ++p) {
    const PlaneMemory& plane = image.planes[p];
    if (plane.base != first.base + p * image.sample_bytes || plane.y_increment != first.y_increment)
      return false;
    if (plane.x_increment != static_cast<std::ptrdiff_t>(PixelBytes(image)) && image.width > 1) return false;
  }
  return true;
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

/// The image as it lies in memory; false when that is not the wire's order.
bool View(const ImageMemory& image, bool planar, PayloadLayout& layout) {
  if (!planar) {
    return HasInterleavedRows(image) &&
           AppendRows(layout, image.planes.front(), image.width * PixelBytes(image), image.height);
  }
  return HasPlanarRows(image) &&
         std::all_of(image.planes.begin(), image.planes.end(), [&](const PlaneMemory& p) {
           return AppendRows(layout, p, image.width * image.sample_bytes, image.height);
         });
}

/// Copies the samples of one line of a plane, `step` bytes apart in the target.
template <std::size_t kBytes>
void CopyLine(const ImageMemory& image, const PlaneMemory& plane, std::size_t y, std::uint8_t* to,
              std::size_t step) {
  const std::uint8_t* from = plane.base + static_cast<std::ptrdiff_t>(y) * plane.y_increment;
  for (std::size_t x = 0; x < image.width; ++x, to += step) {
    std::memcpy(to, from + static_cast<std::ptrdiff_t>(x) * plane.x_increment, kBytes);
  }
}

using CopyLineFunction = decltype(&CopyLine<1>);

/// Null for sample sizes that no image has.
CopyLineFunction CopyLineFor(std::size_t sample_bytes) {
  switch (sample_bytes) {
    case 1:
      return &CopyLine<1>;
    case 2:
      return &CopyLine<2>;
    case 4:
      return &CopyLine<4>;
    case 8:
      return &CopyLine<8>;
    default:
      return nullptr;
  }
}

void Gather(const ImageMemory& image, bool planar, CopyLineFunction copy_line, MutableByteView out) {
  const std::size_t step = planar ? image.sample_bytes : PixelBytes(image);
  const std::size_t line = image.width * step;
  for (std::size_t p = 0; p < image.planes.size(); ++p) {
    std::uint8_t* first = out.data() + (planar ? p * line * image.height : p * image.sample_bytes);
    for (std::size_t y = 0; y < image.height; ++y) {
      copy_line(image, image.planes[p], y, first + y * line, step);
    }
  }
}

/// Whether the image has the format's pixels, or its bytes; see LayOutImage.
bool Fits(const ImageMemory& image, const ImageFormat& format) {
  if (SampleBytesOf(image) != format.PayloadBytes()) return false;
  const bool same_width = image.width == format.width;
  const bool same_height = image.height == format.height;
  if (same_width && same_height) return true;
  if (image.planes.size() != 1 || image.sample_bytes != 1) return false;
  return same_height || image.height == 1 || (IsPlanar(format.pixel_format) && same_width);
}

/// False when the image cannot be sent, whatever is expected of it.
bool LayOut(const ImageMemory& image, bool planar_format, ImageBlock& block) {
  const CopyLineFunction copy_line = CopyLineFor(image.sample_bytes);
  if (image.planes.empty() || !copy_line) return false;
  // One plane is one run of bytes in any format; several are taken for colour components.
  const bool planar = planar_format && image.planes.size() > 1;
  block.staging.clear();
  block.payload = {};
  if (View(image, planar, block.payload)) return true;
  block.staging.resize(SampleBytesOf(image));
  Gather(image, planar, copy_line, block.staging);
  block.payload = PayloadLayout::Contiguous(block.staging);
  return true;
}

}  // namespace

std::size_t ImageFormat::PayloadBytes() const noexcept {
  return (width * height * BitsPerPixel(pixel_format) + 7) / 8;
}

std::size_t SampleBytesOf(const ImageMemory& image) noexcept {
  return PixelBytes(image) * image.width * image.height;
}

void LayOutImage(const ImageMemory& image, const ImageFormat& format, ImageBlock& block) {
  if (!Fits(image, format) || !LayOut(image, IsPlanar(format.pixel_format), block))
    RefuseImage(image, format);
}

void LayOutBytes(const ImageMemory& image, ImageBlock& block) {
  if (LayOut(image, false, block)) return;
  throw EngineError(
      Failure::kInvalidArgument,
      "images with samples of " + std::to_string(image.sample_bytes * 8) + " bits cannot be sent");
}

}  // namespace Tarn
