#pragma once

/// Sizes and positions in pixels, fractions allowed.

#include <cstdint>

namespace Tarn {

/// Width and height; no range of its own.
struct Size2D {
  double width = 0.0;
  double height = 0.0;

  friend bool operator==(const Size2D&, const Size2D&) = default;
};

/// A position; no range of its own.
struct Point2D {
  double x = 0.0;
  double y = 0.0;

  friend bool operator==(const Point2D&, const Point2D&) = default;
};

/// The nearest whole number, halves away from zero.
/// Throws: std::overflow_error when it does not fit 32 bits or is no number.
std::int32_t RoundToInt32(double value);

}  // namespace Tarn
