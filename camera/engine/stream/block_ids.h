#pragma once

/// Numbers the blocks of a stream channel.

#include <cstdint>

namespace Tarn {

/// From 1 upwards; ids of 16 bits go from 65535 to 1. Every accepted block takes a number, also one that is
/// dropped, so that the client can count losses.
/// Threads: one at a time.
class BlockIds {
 public:
  static constexpr std::uint64_t kMaxStandard = 0xFFFF;

  void Restart() noexcept { next_ = 1; }

  std::uint64_t Take(bool extended) noexcept {
    if (!extended && next_ > kMaxStandard) next_ = 1;
    return next_++;
  }

  /// True when `a` was given out before `b`. Ids of 16 bits are compared around the wrap.
  static bool Before(std::uint64_t a, std::uint64_t b, bool extended) noexcept {
    if (extended || a > kMaxStandard || b > kMaxStandard) return a < b;
    // 0 is no id, so a round has 65535.
    const std::uint64_t ahead = (b + kMaxStandard - a) % kMaxStandard;
    return ahead != 0 && ahead <= kMaxStandard / 2;
  }

 private:
  std::uint64_t next_ = 1;
};

}  // namespace Tarn
