#pragma once

/// Time as the engine sees it: handed in, never asked for.

#include <chrono>
#include <cstdint>

namespace Tarn {

/// A point on the monotonic clock, nanoseconds.
using Instant = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;
using Nanoseconds = std::chrono::nanoseconds;

inline Instant Now() noexcept { return std::chrono::steady_clock::now(); }

}  // namespace Tarn
