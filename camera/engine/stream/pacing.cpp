#include "camera/engine/stream/pacing.h"

#include <algorithm>

namespace Tarn {
namespace {

std::size_t PacketsIn(Nanoseconds group, Nanoseconds packet) {
  return packet >= group ? 1 : static_cast<std::size_t>(group / std::max(packet, Nanoseconds{1}));
}

}  // namespace

Nanoseconds DurationAt(const Pace& pace, std::size_t packets, std::size_t bytes) noexcept {
  const Nanoseconds delays = pace.packet_delay * static_cast<std::int64_t>(packets);
  if (pace.bytes_per_second == 0) return delays;
  // In floating point: an image of gigabytes at a byte per second is centuries.
  const double share = 1e9 * static_cast<double>(bytes) / static_cast<double>(pace.bytes_per_second);
  return std::max(delays, Nanoseconds{static_cast<std::int64_t>(std::min(share, 1e18))});
}

void ClockPacing::Set(const Pace& pace) noexcept {
  if (pace == pace_) return;
  pace_ = pace;
  if (packets_ != 0) Advance();
}

std::size_t ClockPacing::GroupPackets(std::size_t wire_bytes) const noexcept {
  const Nanoseconds packet = DurationAt(pace_, 1, wire_bytes);
  return PacketsIn(packet == pace_.packet_delay ? kDelayGroup : kGroup, packet);
}

void ClockPacing::Start(Instant now) noexcept { schedule_ = std::max(schedule_, now); }

void ClockPacing::Sent(Instant begin, std::size_t packets, std::size_t bytes) noexcept {
  from_ = std::max(schedule_, begin - kMadeUp);
  // Wake-ups are always a little late; where that counted, short groups would fall behind for good.
  meant_ = std::max(due_, begin - kLate);
  packets_ = packets;
  bytes_ = bytes;
  Advance();
}

void ClockPacing::Advance() noexcept {
  const Nanoseconds duration = DurationAt(pace_, packets_, bytes_);
  schedule_ = from_ + duration;
  due_ = std::max(schedule_, meant_ + duration * 4 / 5);
}

void KernelPacing::Set(const Pace& pace) noexcept {
  if (pace == pace_) return;
  pace_ = pace;
  schedule_ = {};  // what the discipline holds it still spreads
  tell_(pace.bytes_per_second != 0 ? pace.bytes_per_second : ~std::uint64_t{0});
}

std::size_t KernelPacing::GroupPackets(std::size_t wire_bytes) const noexcept {
  return PacketsIn(kAhead / 2, DurationAt(pace_, 1, wire_bytes));
}

void KernelPacing::Start(Instant now) noexcept { schedule_ = std::max(schedule_, now); }

void KernelPacing::Sent(Instant begin, std::size_t packets, std::size_t bytes) noexcept {
  schedule_ = std::max(schedule_, begin) + DurationAt(pace_, packets, bytes);
}

}  // namespace Tarn
