#pragma once

/// Images as the packed pixel formats have them: samples of 1 to 14 bits with none between them.

#include <cstdint>
#include <memory>

#include "camera/image/image_buffer.h"

namespace Tarn {

/// The payload of an image in a packed pixel format, as an image of 8-bit samples in one plane: a row for each
/// line, or all in one row where lines end inside a byte.
///
/// Formats are those whose names end in `p` (samples from their least significant bit on, one after the other
/// over the whole image), `p32` (three samples in 32 bits) and `Packed` (two samples in three bytes, their high
/// bits first).
/// \param image         unsigned integers of 8 or 16 bits at any steps in memory, a plane for each sample of a
///                      pixel; bits above those that the format takes are left out
/// \param pixel_format  PFNC value
/// Throws: EngineError (kInvalidArgument) that says what does not fit; std::bad_alloc.
std::unique_ptr<ImageBuffer> PackImage(const ImageBuffer& image, std::uint32_t pixel_format);

}  // namespace Tarn
