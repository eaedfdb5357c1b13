#pragma once

/// How much a source may cause before it has shown that it receives anything.
///
/// The address in a datagram is easily forged, and then the answer goes to somebody who never asked. An
/// answer that is no longer than its question gains the forger nothing; what is longer is counted here.

#include <array>
#include <cstdint>

#include "camera/base/clock.h"

namespace Tarn {

/// A token bucket for each source address, in a table whose size never changes. Addresses that fall on the
/// same place share a bucket: a forger who makes up addresses thereby gets a share of a fixed total, and
/// which addresses share is known to nobody outside.
///
/// Threads: one at a time.
class SourceBudget {
 public:
  /// \param burst  units that a source may use at once; one more comes every `per_unit`
  /// \param secret  a random number, decides which sources share a bucket
  SourceBudget(std::uint32_t burst, Nanoseconds per_unit, std::uint64_t secret)
      : burst_(per_unit * burst), per_unit_(per_unit), secret_(secret | 1) {}

  /// Whether there are `units` in the source's bucket.
  bool Has(std::uint32_t source, std::uint32_t units, Instant now) const;

  /// Takes `units` from the source's bucket; false, and nothing is taken, when there are not as many.
  bool Take(std::uint32_t source, std::uint32_t units, Instant now);

 private:
  static constexpr unsigned kSlotBits = 8;

  std::size_t SlotOf(std::uint32_t source) const;
  Instant FullAgain(std::uint32_t source, std::uint32_t units, Instant now) const;

  const Nanoseconds burst_;  ///< how far a bucket may be ahead of the clock
  const Nanoseconds per_unit_;
  const std::uint64_t secret_;
  std::array<Instant, 1u << kSlotBits> full_again_{};  ///< when the slot's bucket will have filled up
};

}  // namespace Tarn
