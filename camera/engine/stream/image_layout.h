#pragma once

/// Finds out whether an image lies in memory as it goes onto the wire.

#include <cstddef>
#include <cstdint>
#include <optional>

#include "camera/engine/stream/image_block.h"
#include "camera/engine/stream/image_memory.h"

namespace Tarn {

/// What the client expects.
struct ImageFormat {
  std::uint32_t pixel_format = 0;  ///< PFNC value
  std::size_t width = 0;           ///< pixels
  std::size_t height = 0;          ///< lines

  /// Bytes of payload. Lines follow each other without gaps, also in packed formats whose lines end inside a
  /// byte.
  std::size_t PayloadBytes() const noexcept;

  SampleOrder Order() const noexcept;
};

/// The payload of an image whose memory has the wire's order (whole, by rows, or by planes): a view of it.
/// Nothing when GatherImage has to bring the image into format.Order() first.
///
/// Taken are pixels, as many as the format has and each of its bits in whole bytes; and bytes, one plane of
/// 8-bit samples that together are the payload, as packed formats need them: as many rows as the format has
/// lines (lines of all planes in planar formats), or all in one row.
/// Throws: EngineError (kInvalidArgument) for every other image.
std::optional<PayloadLayout> ViewImage(const ImageMemory& image, const ImageFormat& format);

/// As ViewImage for an image whose samples are any bytes, interleaved, line after line: nothing is expected
/// of its size.
std::optional<PayloadLayout> ViewBytes(const ImageMemory& image);

}  // namespace Tarn
