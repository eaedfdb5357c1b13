#include "camera/device/release_queue.h"

#include <utility>

namespace Tarn {
namespace {

thread_local int owners_being_told = 0;

}  // namespace

void ReleaseQueue::Push(ImageBlock&& block) {
  const MutexLock lock(mutex_);
  blocks_.push_back(std::move(block));
}

bool ReleaseQueue::Empty() const {
  const MutexLock lock(mutex_);
  return blocks_.empty();
}

bool ReleaseQueue::TellNext() {
  ImageBlock block;
  {
    const MutexLock lock(mutex_);
    if (telling_ || blocks_.empty()) return false;
    telling_ = true;
    block = std::move(blocks_.front());
    blocks_.pop_front();
  }
  Tell(block);
  {
    const MutexLock lock(mutex_);
    telling_ = false;
  }
  told_.notify_all();
  return true;
}

void ReleaseQueue::Finish() {
  for (;;) {
    while (TellNext()) {
    }
    MutexLock lock(mutex_);
    if (!telling_ && blocks_.empty()) return;
    while (telling_) told_.wait(lock);
  }
}

void ReleaseQueue::Tell(ImageBlock& block) noexcept {
  ++owners_being_told;
  block.owner.Release();
  --owners_being_told;
}

bool ReleaseQueue::IsTelling() noexcept { return owners_being_told != 0; }

}  // namespace Tarn
