#pragma once

/// Pixel formats by the GenICam Pixel Format Naming Convention (PFNC): what a 32-bit format value says, and
/// the names of the published ones.

#include <cstdint>
#include <optional>
#include <string_view>

namespace Tarn {

/// Groups of formats, by the beginning of the name.
enum class PixelFamily {
  Mono,
  Bayer,
  BiColor,
  Confidence,
  Coord3D,
  Data,
  RGB,
  RGBa,
  SingleColor,
  SparseColorFilter,
  YCbCr,
  YUV,
};

/// One published format.
struct PixelFormat {
  std::uint32_t value = 0;
  std::string_view name;    ///< a literal, zero-terminated
  unsigned components = 0;  ///< samples that make a full pixel: 1, or 2 to 4
  PixelFamily family{};

  /// True when each component has a plane of its own; formats with one plane for luma and one for chroma
  /// count too.
  bool IsPlanar() const noexcept { return name.ends_with("_Planar") || name.ends_with("_Semiplanar"); }
};

/// Bits that one pixel takes in memory and on the wire, 0 to 255: subsampled formats give the average, planar
/// ones the sum of the planes. Holds for values that are in no list too. Source: PFNC, bits 16 to 23 of the
/// value.
constexpr unsigned BitsPerPixel(std::uint32_t value) noexcept { return value >> 16 & 0xFF; }

/// The published format of a value or a name (case matters). Empty when there is none.
std::optional<PixelFormat> FindPixelFormat(std::uint32_t value) noexcept;
std::optional<PixelFormat> FindPixelFormat(std::string_view name) noexcept;

}  // namespace Tarn
