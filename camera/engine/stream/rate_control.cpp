#include "camera/engine/stream/rate_control.h"

#include <cmath>

namespace Tarn {

void RateControl::SetLimit(std::uint64_t bytes_per_second, bool adaptive) noexcept {
  limit_ = bytes_per_second;
  adaptive_ = adaptive;
  Decide();
}

void RateControl::Restart() noexcept {
  intervals_.fill(kUnknown);
  last_frame_ = {};
  missed_bytes_ = 0;
  frame_bytes_ = 0;
  share_ = 1;
  Decide();
}

void RateControl::FrameAccepted(Instant now, std::size_t wire_bytes, bool waited) noexcept {
  if (last_frame_ != Instant{}) {
    intervals_[next_interval_] = waited ? kUnknown : std::max(now - last_frame_, Nanoseconds{1});
    next_interval_ = (next_interval_ + 1) % intervals_.size();
  }
  last_frame_ = now;
  if (!LosesMany()) share_ = std::min(1.0, share_ + kIncrease);
  missed_bytes_ = 0;
  frame_bytes_ = wire_bytes;
  Decide();
}

void RateControl::PacketsMissed(Instant now, std::uint64_t bytes) noexcept {
  missed_bytes_ += std::min<std::uint64_t>(bytes, frame_bytes_);
  if (!LosesMany()) return;
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
  const bool known = interval != kUnknown;
  const double full =
      known ? RateOver(std::min(interval, kLongestFrame), kSpread) : static_cast<double>(limit_);
  const double least = known ? RateOver(interval, kLongestSpread) : 0;
  rate_ = static_cast<std::uint64_t>(std::ceil(std::max(full * share_, least)));
}

}  // namespace Tarn
