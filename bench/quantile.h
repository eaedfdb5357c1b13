#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Tarn {

/// The value below which that part of the values lies, from 0 to 1; 0 when there are none. Reorders them.
template <typename Number>
double Quantile(std::vector<Number>& values, double part) {
  if (values.empty()) return 0;
  const auto index = static_cast<std::size_t>(part * static_cast<double>(values.size() - 1));
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(index);
  std::nth_element(values.begin(), at, values.end());
  return static_cast<double>(*at);
}

}  // namespace Tarn
