#pragma once

/// How the planes of an image make a colour.

#include <cstdint>

namespace Tarn {

/// Codes of the colour models; the guesses leave it to the reader to find the model from the planes.
enum class ColorModel : std::int32_t {
  RGBGuess = -2,
  MonoGuess = -1,
  Unknown = 0,
  Mono = 1,
  RGB = 2,
  YUV = 3,
  HSV = 4,
  YCbCr = 5,
};

constexpr bool IsColorModel(std::int64_t code) noexcept {
  return code >= static_cast<std::int64_t>(ColorModel::RGBGuess) &&
         code <= static_cast<std::int64_t>(ColorModel::YCbCr);
}

/// The model of an image that was made without one.
constexpr ColorModel ColorModelOfPlanes(std::int64_t planes) noexcept {
  return planes == 1 ? ColorModel::Mono : planes == 3 ? ColorModel::RGB : ColorModel::Unknown;
}

}  // namespace Tarn
