#include "camera/engine/stream/pacer.h"

#include <algorithm>

namespace Tarn {
namespace {

constexpr std::size_t kGroupBytes = Pacer::kBurstBytes / 2;

}  // namespace

void Pacer::Configure(Nanoseconds packet_delay, std::uint64_t bytes_per_second) noexcept {
  const Nanoseconds delay = std::max(packet_delay, Nanoseconds{0});
  if (delay != delay_ || bytes_per_second != rate_) due_ = {};  // that was seconds ahead by the longest delay
  delay_ = delay;
  rate_ = bytes_per_second;
}

std::size_t Pacer::GroupPackets(std::size_t packet_size) const noexcept {
  std::size_t packets = kGroupBytes / packet_size;
  if (delay_.count() != 0) {
    packets = std::min(packets, static_cast<std::size_t>(kDelayGroup / delay_));
  }
  return std::max<std::size_t>(packets, 1);
}

void Pacer::Sent(Instant now, std::size_t packets, std::size_t bytes) noexcept {
  const Nanoseconds duration = Duration(packets, bytes);
  // A lone packet with a long delay must not be followed at once by the next, so the allowance is bounded in
  // time.
  const Nanoseconds allowance = packets > 1 ? duration : std::min(duration, kDelayGroup);
  due_ = std::max(due_, now - allowance) + duration;
}

Nanoseconds Pacer::Duration(std::size_t packets, std::size_t bytes) const noexcept {
  const Nanoseconds delays = delay_ * static_cast<std::int64_t>(packets);
  if (rate_ == 0) return delays;
  // A group has at most 64 KiB, so the product stays far below 2^63.
  const auto share = static_cast<std::uint64_t>(bytes) * 1'000'000'000 / rate_;
  return std::max(delays, Nanoseconds{static_cast<std::int64_t>(share)});
}

}  // namespace Tarn
