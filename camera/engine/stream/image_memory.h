#pragma once

/// An image as it lies in the memory of the program.

#include <cstddef>
#include <cstdint>
#include <span>

namespace Tarn {

/// Where the samples of one plane lie: (x, y) at base + x * x_increment + y * y_increment.
struct PlaneMemory {
  const std::uint8_t* base = nullptr;
  std::ptrdiff_t x_increment = 0;  ///< bytes; may be negative
  std::ptrdiff_t y_increment = 0;  ///< bytes; may be negative
};

/// An image in memory; borrows everything. Samples are little-endian, as on the wire.
struct ImageMemory {
  std::size_t width = 0;   ///< pixels
  std::size_t height = 0;  ///< lines
  std::size_t sample_bytes =
      1;  ///< of a sample in memory; 2 for formats with 10 to 16 bits per sample in words
  std::span<const PlaneMemory> planes;

  /// Bytes of the samples of a pixel.
  std::size_t PixelBytes() const noexcept { return planes.size() * sample_bytes; }
};

/// Bytes of all samples of an image.
inline std::size_t SampleBytesOf(const ImageMemory& image) noexcept {
  return image.PixelBytes() * image.width * image.height;
}

/// True when the samples of each pixel lie side by side, in the order of the planes.
/// Requires: a plane at least.
inline bool HasWholePixels(const ImageMemory& image) noexcept {
  const PlaneMemory& first = image.planes.front();
  for (std::size_t p = 1; p < image.planes.size(); ++p) {
    const PlaneMemory& plane = image.planes[p];
    if (plane.base != first.base + p * image.sample_bytes || plane.y_increment != first.y_increment)
      return false;
    if (plane.x_increment != first.x_increment && image.width > 1) return false;
  }
  return true;
}

/// How the samples of an image follow each other on the wire. Images with one plane know no difference.
enum class SampleOrder {
  kInterleaved,  ///< pixel after pixel
  kPlanar,       ///< plane after plane
};

}  // namespace Tarn
