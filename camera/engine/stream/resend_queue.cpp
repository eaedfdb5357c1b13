#include "camera/engine/stream/resend_queue.h"

#include <algorithm>

namespace Tarn {

bool ResendQueue::Push(const ResendRequest& request, Instant now) noexcept {
  if (count_ == kCapacity || IsRepeat(request, now)) return false;
  seen_[next_seen_] = {request, now};
  next_seen_ = (next_seen_ + 1) % kCapacity;
  queue_[(head_ + count_) % kCapacity] = request;
  ++count_;
  return true;
}

std::optional<ResendRequest> ResendQueue::Pop() noexcept {
  if (count_ == 0) return std::nullopt;
  const ResendRequest request = queue_[head_];
  head_ = (head_ + 1) % kCapacity;
  --count_;
  return request;
}

bool ResendQueue::IsRepeat(const ResendRequest& request, Instant now) const noexcept {
  return std::any_of(seen_.begin(), seen_.end(), [&](const Seen& seen) {
    return seen.when != Instant{} && now - seen.when < kRepeatWindow &&
           seen.request.requester.address == request.requester.address &&
           seen.request.block_id == request.block_id && seen.request.first <= request.first &&
           seen.request.last >= request.last;
  });
}

}  // namespace Tarn
