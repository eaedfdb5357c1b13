#pragma once

/// Version of a camera description.

#include <compare>
#include <cstdint>
#include <string>

namespace Tarn {

/// Three numbers, ordered by the first that differs; "1.2.3" as text.
struct GenApiVersion {
  std::int64_t major_version = 0;
  std::int64_t minor_version = 0;
  std::int64_t sub_minor_version = 0;

  friend auto operator<=>(const GenApiVersion&, const GenApiVersion&) = default;

  std::string ToString() const {
    return std::to_string(major_version) + '.' + std::to_string(minor_version) + '.' +
           std::to_string(sub_minor_version);
  }
};

}  // namespace Tarn
