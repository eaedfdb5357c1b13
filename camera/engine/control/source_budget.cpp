#include "camera/engine/control/source_budget.h"

#include <algorithm>

namespace Tarn {

std::size_t SourceBudget::SlotOf(std::uint32_t source) const {
  // The upper bits of a product with an odd number depend on all bits of the factors below them.
  return (source * secret_ * 0x9E37'79B9'7F4A'7C15u) >> (64 - kSlotBits);
}

Instant SourceBudget::FullAgain(std::uint32_t source, std::uint32_t units, Instant now) const {
  return std::max(full_again_[SlotOf(source)], now) + per_unit_ * units;
}

bool SourceBudget::Has(std::uint32_t source, std::uint32_t units, Instant now) const {
  return FullAgain(source, units, now) - now <= burst_;
}

bool SourceBudget::Take(std::uint32_t source, std::uint32_t units, Instant now) {
  if (!Has(source, units, now)) return false;
  full_again_[SlotOf(source)] = FullAgain(source, units, now);
  return true;
}

}  // namespace Tarn
