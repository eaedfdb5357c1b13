#include "camera/engine/control/source_budget.h"

#include <algorithm>

namespace Tarn {

bool SourceBudget::Take(std::uint32_t source, std::uint32_t units, Instant now) {
  // The upper bits of a product with an odd number depend on all bits of the factors below them.
  Instant& full_again = full_again_[(source * secret_ * 0x9E37'79B9'7F4A'7C15u) >> (64 - kSlotBits)];
  const Instant then = std::max(full_again, now) + per_unit_ * units;
  if (then - now > burst_) return false;
  full_again = then;
  return true;
}

}  // namespace Tarn
