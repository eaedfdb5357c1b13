#include "gevserver/start_stop_lock.h"

#include <stdexcept>
#include <string>

#include "gevserver/callback_scope.h"
#include "gevserver/server_call.h"

namespace Tarn::GevServer::Private {

void StartStopLock::EnterStart() {
  MutexLock lock(mutex_);
  while (holder_ == Holder::Start) left_.wait(lock);
  if (holder_ == Holder::Stop)
    throw std::runtime_error(std::string(kServerPrefix) + "server is being stopped");
  holder_ = Holder::Start;
}

bool StartStopLock::EnterStop() {
  MutexLock lock(mutex_);
  while (holder_ != Holder::None) {
    if (holder_ == Holder::Stop && CallbackScope::Active()) return false;
    left_.wait(lock);
  }
  holder_ = Holder::Stop;
  return true;
}

void StartStopLock::Leave() noexcept {
  {
    const MutexLock lock(mutex_);
    holder_ = Holder::None;
  }
  left_.notify_all();
}

}  // namespace Tarn::GevServer::Private
