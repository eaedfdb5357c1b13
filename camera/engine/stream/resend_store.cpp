#include "camera/engine/stream/resend_store.h"

#include <utility>

#include "camera/engine/stream/block_ids.h"

namespace Tarn {

std::optional<CutBlock> ResendStore::Keep(CutBlock&& block) {
  if (ring_.empty()) return std::move(block);
  std::optional<CutBlock> evicted;
  if (count_ == ring_.size()) evicted = TakeOldest();
  At(count_).emplace(std::move(block));
  ++count_;
  return evicted;
}

std::optional<CutBlock> ResendStore::TakeOldest() {
  if (count_ == 0) return std::nullopt;
  std::optional<CutBlock> oldest = std::exchange(ring_[head_], std::nullopt);
  head_ = (head_ + 1) % ring_.size();
  --count_;
  return oldest;
}

CutBlock* ResendStore::Find(std::uint64_t block_id) noexcept {
  // From the newest on: that is what clients ask for.
  for (std::size_t i = count_; i-- > 0;) {
    if (At(i)->packets.BlockId() == block_id) return &*At(i);
  }
  return nullptr;
}

std::uint16_t ResendStore::RefusalFor(std::uint64_t block_id, std::uint64_t newest,
                                      bool extended_ids) const noexcept {
  if (BlockIds::Before(newest, block_id, extended_ids)) return StreamStatus::kNotYetAvailable;
  const bool later_kept =
      count_ != 0 && BlockIds::Before(ring_[head_]->packets.BlockId(), block_id, extended_ids);
  return later_kept ? StreamStatus::kGone : StreamStatus::kThisAndEarlierGone;
}

}  // namespace Tarn
