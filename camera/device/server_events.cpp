#include "camera/device/server_events.h"

namespace Tarn {

std::uint64_t ServerEvents::Register(ServerEvent event, Listener listener, void* context) {
  const std::lock_guard lock(mutex_);
  entries_.push_back({event, listener, context});
  return entries_.size();
}

void ServerEvents::Post(ServerEvent event) {
  const MutexLock lock(posting_);
  posted_.push_back(event);
}

bool ServerEvents::TakePosted(ServerEvent& event) {
  const MutexLock lock(posting_);
  if (posted_.empty()) return false;
  event = posted_.front();
  posted_.pop_front();
  return true;
}

void ServerEvents::Notify() {
  const std::lock_guard lock(mutex_);
  if (notifying_) return;
  notifying_ = true;
  for (ServerEvent event; TakePosted(event);) {
    // By index: a listener may register another one.
    for (std::size_t i = 0; open_ && i < entries_.size(); ++i) {
      if (entries_[i].event == event) entries_[i].listener(entries_[i].context);
    }
  }
  notifying_ = false;
}

void ServerEvents::Open() {
  const std::lock_guard lock(mutex_);
  open_ = true;
}

void ServerEvents::Close() {
  const std::lock_guard lock(mutex_);
  open_ = false;
}

}  // namespace Tarn
