#pragma once

/// Holds resend requests until somebody sends, and drops what would be a waste or a flood.

#include <array>
#include <cstddef>
#include <optional>

#include "camera/base/clock.h"
#include "camera/engine/stream/stream_config.h"

namespace Tarn {

/// Bounded first-in, first-out queue without allocation.
/// Threads: one at a time.
class ResendQueue {
 public:
  static constexpr std::size_t kCapacity = 64;
  /// A client that asks again within this time has not waited for the first answer, or its request was
  /// duplicated on the way. Clients repeat after 20 ms and more.
  static constexpr Nanoseconds kRepeatWindow{3'000'000};

  /// Returns false when the request was dropped: the queue is full, or all its packets were asked for just
  /// now.
  bool Push(const ResendRequest& request, Instant now) noexcept;

  std::optional<ResendRequest> Pop() noexcept;
  bool Empty() const noexcept { return count_ == 0; }
  void Clear() noexcept { count_ = 0; }

 private:
  struct Seen {
    ResendRequest request;
    Instant when{};
  };

  bool IsRepeat(const ResendRequest& request, Instant now) const noexcept;

  std::array<ResendRequest, kCapacity> queue_{};
  std::size_t head_ = 0;
  std::size_t count_ = 0;
  std::array<Seen, kCapacity> seen_{};  // the latest requests, oldest overwritten
  std::size_t next_seen_ = 0;
};

}  // namespace Tarn
