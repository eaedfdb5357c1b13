#pragma once

/// Copies images whose memory does not have the wire's order into that order.

#include "camera/base/bytes.h"
#include "camera/engine/stream/image_memory.h"

namespace Tarn {

/// The samples that GatherImage copies: those of 1, 2, 4 and 8 bytes.
bool CanGather(std::size_t sample_bytes) noexcept;

/// Writes the samples of `image` to `out` in the given order, line after line without gaps. What lies between
/// the samples of a line may be read, too. Allocates nothing.
/// Requires: CanGather(image.sample_bytes); SampleBytesOf(image) bytes in `out`, none of them the image's.
/// Threads: any.
void GatherImage(const ImageMemory& image, SampleOrder order, MutableByteView out) noexcept;

}  // namespace Tarn
