#include "camera/engine/stream/rate_control.h"

#include <cmath>
#include <utility>

namespace Tarn {

void RateControl::SetLimit(std::uint64_t bytes_per_second, bool adaptive) noexcept {
  limit_ = bytes_per_second;
  adaptive_ = adaptive;
  Decide();
}

void RateControl::Restart() noexcept {
  intervals_ = {};
  last_frame_ = {};
  missed_ = false;
  behind_ = false;
  frame_bytes_ = 0;
  share_ = 1;
  Decide();
}

void RateControl::FrameAccepted(Instant now, std::size_t wire_bytes, bool behind) noexcept {
  if (last_frame_ != Instant{} && !behind) {
    intervals_[next_interval_] = now - last_frame_;
    next_interval_ = (next_interval_ + 1) % intervals_.size();
  }
  last_frame_ = now;
  frame_bytes_ = wire_bytes;
  behind_ = behind;
  if (!std::exchange(missed_, false)) share_ = std::min(1.0, share_ + kIncrease);
  Decide();
}

void RateControl::PacketsMissed(Instant now) noexcept {
  missed_ = true;
  if (last_decrease_ != Instant{} && now - last_decrease_ < kWindow) return;
  last_decrease_ = now;
  share_ = std::max(kLeast, share_ * kDecrease);
  Decide();
}

double RateControl::RateOver(Nanoseconds interval, double spread) const noexcept {
  const double seconds = static_cast<double>(interval.count()) / 1e9 * spread;
  return std::min(static_cast<double>(limit_), static_cast<double>(frame_bytes_) / seconds);
}

void RateControl::Decide() noexcept {
  rate_ = limit_;
  if (!adaptive_ || limit_ == 0) return;
  const Nanoseconds interval = Interval();
  const bool known = interval.count() > 0;
  const double full =
      known && !behind_ ? RateOver(std::min(interval, kLongestFrame), kSpread) : static_cast<double>(limit_);
  const double least = known ? RateOver(interval, kLongestSpread) : 0;
  rate_ = static_cast<std::uint64_t>(std::ceil(std::max(full * share_, least)));
}

}  // namespace Tarn
