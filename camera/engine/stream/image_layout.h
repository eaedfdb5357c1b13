#pragma once

/// Finds out whether an image lies in memory as it goes onto the wire, and copies it into that order if not.

#include <cstddef>
#include <cstdint>
#include <span>

#include "camera/engine/stream/image_block.h"

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
};

/// What the client expects.
struct ImageFormat {
  std::uint32_t pixel_format = 0;  ///< PFNC value
  std::size_t width = 0;           ///< pixels
  std::size_t height = 0;          ///< lines

  /// Bytes of payload. Lines follow each other without gaps, also in packed formats whose lines end inside a
  /// byte.
  std::size_t PayloadBytes() const noexcept;
};

/// Sets payload and staging of `block`: a view of the image where its memory has the wire's order (whole, by
/// rows, or by planes), else a copy.
///
/// Taken are pixels, as many as the format has and each of its bits in whole bytes; and bytes, one plane of
/// 8-bit samples that together are the payload, as packed formats need them: as many rows as the format has
/// lines (lines of all planes in planar formats), or all in one row.
/// Throws: EngineError (kInvalidArgument) for every other image.
void LayOutImage(const ImageMemory& image, const ImageFormat& format, ImageBlock& block);

/// As LayOutImage for an image whose samples are any bytes, line after line: nothing is expected of its size.
void LayOutBytes(const ImageMemory& image, ImageBlock& block);

/// Bytes of all samples of an image.
std::size_t SampleBytesOf(const ImageMemory& image) noexcept;

}  // namespace Tarn
