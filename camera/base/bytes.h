#pragma once

/// Views of raw memory, and the two functions that know byte order.

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>

namespace Tarn {

using ByteView = std::span<const std::uint8_t>;
using MutableByteView = std::span<std::uint8_t>;

/// Big-endian unsigned integer at p.
/// Requires: sizeof(T) readable bytes.
template <class T>
constexpr T LoadBe(const std::uint8_t* p) noexcept {
  static_assert(std::is_unsigned_v<T>);
  // A fold, not a loop: compilers turn it into one load and one byte swap, and this runs per packet.
  return [p]<std::size_t... I>(std::index_sequence<I...>) {
    return static_cast<T>((... | (static_cast<std::uint64_t>(p[I]) << 8 * (sizeof(T) - 1 - I))));
  }
  (std::make_index_sequence<sizeof(T)>{});
}

/// Writes value big-endian at p.
/// Requires: sizeof(T) writable bytes.
template <class T>
constexpr void StoreBe(std::uint8_t* p, T value) noexcept {
  static_assert(std::is_unsigned_v<T>);
  [ p, value ]<std::size_t... I>(std::index_sequence<I...>) {
    (..., (p[I] = static_cast<std::uint8_t>(value >> 8 * (sizeof(T) - 1 - I))));
  }
  (std::make_index_sequence<sizeof(T)>{});
}

}  // namespace Tarn
