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
  if (last_frame_ != Instant{}) {
    intervals_[next_interval_] = std::min(now - last_frame_, kLongestFrame);
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

void RateControl::Decide() noexcept {
  rate_ = limit_;
  if (!adaptive_ || limit_ == 0) return;
  const auto limit = static_cast<double>(limit_);
  const Nanoseconds interval = Interval();
  if (behind_ || interval.count() <= 0) {
    rate_ = static_cast<std::uint64_t>(limit * share_);
    return;
  }
  const double mean = 1e9 * static_cast<double>(frame_bytes_) / static_cast<double>(interval.count());
  const double full = std::min(limit, mean / kSpread);
  rate_ =
      static_cast<std::uint64_t>(std::ceil(std::max(full * share_, std::min(limit, mean / kLongestSpread))));
}

}  // namespace Tarn
