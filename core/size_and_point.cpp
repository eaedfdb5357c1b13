#include "core/size_and_point.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace Tarn {

std::int32_t RoundToInt32(double value) {
  using Limits = std::numeric_limits<std::int32_t>;
  const double rounded = std::round(value);
  // Written so that NaN fails as well.
  if (!(rounded >= Limits::min() && rounded <= Limits::max())) {
    throw std::overflow_error("number does not fit into 32 bits");
  }
  return static_cast<std::int32_t>(rounded);
}

}  // namespace Tarn
