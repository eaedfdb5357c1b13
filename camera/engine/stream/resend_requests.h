#pragma once

/// Holds requests for packets until somebody sends, as few ranges as they make up.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "camera/base/clock.h"
#include "camera/engine/stream/stream_config.h"

namespace Tarn {

/// First come, first served; ranges of a block that touch each other become one. Bounded, allocates nothing.
/// Threads: one at a time.
class ResendRequests {
 public:
  static constexpr std::size_t kCapacity = 512;
  /// What was asked for while its answer was on the way is not sent twice. Longer would hurt: there are clients that ask
  /// three times within two milliseconds, and then give the frame up.
  static constexpr Nanoseconds kOnItsWay{100'000};

  enum class Taken {
    Queued,
    Repeated,  ///< all of it is queued, or left just now
    Dropped,   ///< there is no place
  };
  Taken Push(const ResendRequest& request, Instant now) noexcept;

  /// The next range, to be answered from now on; empty when there is none.
  std::optional<ResendRequest> Take() noexcept;

  /// The answers to the `count` ranges that were taken first left at `now`.
  void Finish(std::size_t count, Instant now) noexcept;

  /// Ranges that wait to be taken.
  bool Empty() const noexcept { return count_ == taken_; }
  void Clear() noexcept;

 private:
  struct Answered {
    ResendRequest request;
    Instant when{};
  };

  ResendRequest& At(std::size_t index) noexcept { return queue_[(head_ + index) % kCapacity]; }
  bool LeftJustNow(const ResendRequest& request, Instant now) const noexcept;

  std::array<ResendRequest, kCapacity>
      queue_{};  // in order of arrival, from head_ on; the first are being answered
  std::size_t head_ = 0;
  std::size_t count_ = 0;
  std::size_t taken_ = 0;
  std::array<Answered, 64> answered_{};  // the latest, oldest overwritten
  std::size_t next_answered_ = 0;
};

}  // namespace Tarn
