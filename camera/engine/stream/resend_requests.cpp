#include "camera/engine/stream/resend_requests.h"

#include <algorithm>

namespace Tarn {
namespace {

/// True when both ask for packets of one block, to be sent to one place.
bool SameBlock(const ResendRequest& a, const ResendRequest& b) {
  return a.block_id == b.block_id && a.extended == b.extended && a.requester == b.requester;
}

bool Contains(const ResendRequest& all, const ResendRequest& part) {
  return SameBlock(all, part) && all.first <= part.first && part.last <= all.last;
}

bool Touch(const ResendRequest& a, const ResendRequest& b) {
  return SameBlock(a, b) && std::uint64_t{a.first} <= std::uint64_t{b.last} + 1 &&
         std::uint64_t{b.first} <= std::uint64_t{a.last} + 1;
}

}  // namespace

ResendRequests::Taken ResendRequests::Push(const ResendRequest& request, Instant now) noexcept {
  if (LeftJustNow(request, now)) return Taken::Repeated;
  for (std::size_t i = 0; i < count_; ++i) {
    if (Contains(At(i), request)) return Taken::Repeated;
  }
  for (std::size_t i = taken_; i < count_; ++i) {
    ResendRequest& waiting = At(i);
    if (!Touch(waiting, request)) continue;
    waiting.first = std::min(waiting.first, request.first);
    waiting.last = std::max(waiting.last, request.last);
    return Taken::Queued;
  }
  if (count_ == kCapacity) return Taken::Dropped;
  At(count_++) = request;
  return Taken::Queued;
}

std::optional<ResendRequest> ResendRequests::Take() noexcept {
  if (Empty()) return std::nullopt;
  return At(taken_++);
}

void ResendRequests::Finish(std::size_t count, Instant now) noexcept {
  for (count = std::min(count, taken_); count != 0; --count) {
    answered_[next_answered_] = {At(0), now};
    next_answered_ = (next_answered_ + 1) % answered_.size();
    head_ = (head_ + 1) % kCapacity;
    --count_;
    --taken_;
  }
}

void ResendRequests::Clear() noexcept {
  count_ = 0;
  taken_ = 0;
  answered_ = {};
}

bool ResendRequests::LeftJustNow(const ResendRequest& request, Instant now) const noexcept {
  return std::any_of(answered_.begin(), answered_.end(), [&](const Answered& answered) {
    return answered.when != Instant{} && now - answered.when < kOnItsWay &&
           Contains(answered.request, request);
  });
}

}  // namespace Tarn
