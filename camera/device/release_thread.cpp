#include "camera/device/release_thread.h"

#include <chrono>
#include <new>
#include <utility>

namespace Tarn {
namespace {

/// A program that sends without a pause holds the interpreter lock, for which this thread waits milliseconds each time,
/// while the sender itself tells owners without waiting. So a sender that came by within this time is waited for.
constexpr std::chrono::microseconds kSenderGrace{500};

thread_local int owners_being_told = 0;

}  // namespace

void ReleaseThread::Push(BlockOwner&& owner) noexcept {
  try {
    const MutexLock lock(mutex_);
    waiting_.push_back(std::move(owner));
  } catch (const std::bad_alloc&) {
    Tell(owner);  // out of turn, but told
  }
}

void ReleaseThread::Wake() {
  const MutexLock lock(mutex_);
  if (!waiting_.empty()) changed_.notify_all();
}

void ReleaseThread::TellAll() {
  {
    const MutexLock lock(mutex_);
    sender_seen_ = Now();
    if (waiting_.empty()) return;
  }
  while (TellNext()) {
  }
  Wake();
}

/// False when there is none to tell, or another thread is telling one.
bool ReleaseThread::TellNext() {
  BlockOwner owner;
  {
    const MutexLock lock(mutex_);
    if (telling_ || waiting_.empty()) return false;
    telling_ = true;
    owner = std::move(waiting_.front());
    waiting_.pop_front();
  }
  Tell(owner);
  const MutexLock lock(mutex_);
  telling_ = false;
  if (ending_) changed_.notify_all();
  return true;
}

void ReleaseThread::Run() {
  MutexLock lock(mutex_);
  while (!ending_ || telling_ || !waiting_.empty()) {
    const Instant grace_ends = sender_seen_ + kSenderGrace;
    if (waiting_.empty()) {
      changed_.wait(lock);
    } else if (telling_) {
      changed_.wait_for(lock, kSenderGrace);
    } else if (!ending_ && Now() < grace_ends) {
      changed_.wait_until(lock, grace_ends);
    } else {
      lock.unlock();
      TellNext();
      lock.lock();
    }
  }
}

void ReleaseThread::End() {
  const MutexLock lock(mutex_);
  ending_ = true;
  changed_.notify_all();
}

void ReleaseThread::Tell(BlockOwner& owner) noexcept {
  ++owners_being_told;
  owner.Release();
  --owners_being_told;
}

bool ReleaseThread::IsTelling() noexcept { return owners_being_told != 0; }

}  // namespace Tarn
