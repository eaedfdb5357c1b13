#pragma once

/// Listeners of one event.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "camera/base/process_mutex.h"

namespace Tarn::GevServer {

namespace Private {
/// Cookies are unique in the process, so that one event's cookie never ends another event's registration. Not
/// 0.
inline std::uint64_t NextCookie() noexcept {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

/// One lock for all lists, held while a few pointers are copied: a node has three lists, and a fork takes
/// every lock.
inline ProcessMutex& ListenersMutex() {
  static ProcessMutex& mutex = *new ProcessMutex;
  return mutex;
}
}  // namespace Private

/// A list of callbacks, each with the cookie that ends its registration.
///
/// No lock is held while a listener runs: it may register and unregister, itself too. After Unregister no
/// call of it starts; one may still be running. A listener is destroyed wherever its last user lets go, which
/// may be a thread that is just calling.
/// Threads: any thread.
template <class... Args>
class CbCarrier {
 public:
  using Callback = std::function<void(Args...)>;

  /// \return the cookie
  std::uint64_t Register(Callback callback) {
    auto listener = std::make_shared<Listener>(Private::NextCookie(), std::move(callback));
    const MutexLock lock(Private::ListenersMutex());
    listeners_.push_back(listener);
    return listener->cookie;
  }

  /// False when the cookie is none of this list's.
  bool Unregister(std::uint64_t cookie) {
    std::shared_ptr<Listener> removed;  // destroyed after the lock is let go: a listener may own anything
    const MutexLock lock(Private::ListenersMutex());
    const auto found = std::find_if(listeners_.begin(), listeners_.end(),
                                    [cookie](const auto& listener) { return listener->cookie == cookie; });
    if (found == listeners_.end()) return false;
    removed = std::move(*found);
    removed->active = false;
    listeners_.erase(found);
    return true;
  }

  bool Empty() const {
    const MutexLock lock(Private::ListenersMutex());
    return listeners_.empty();
  }

  void Clear() {
    std::vector<std::shared_ptr<Listener>> removed;
    const MutexLock lock(Private::ListenersMutex());
    removed.swap(listeners_);
    for (const auto& listener : removed) listener->active = false;
  }

  /// Calls every listener, in order of registration. An exception from one is dropped and keeps no other from
  /// being called: there is nobody above who could handle it.
  void Call(Args... args) const noexcept {
    std::vector<std::shared_ptr<Listener>> snapshot;
    {
      const MutexLock lock(Private::ListenersMutex());
      snapshot = listeners_;
    }
    for (const auto& listener : snapshot) {
      if (!listener->active) continue;
      try {
        listener->callback(args...);
      } catch (...) {
      }
    }
  }

 private:
  struct Listener {
    Listener(std::uint64_t the_cookie, Callback the_callback)
        : cookie(the_cookie), callback(std::move(the_callback)) {}

    const std::uint64_t cookie;
    const Callback callback;
    std::atomic<bool> active = true;  // cleared by Unregister, read by a Call that holds an older snapshot
  };

  std::vector<std::shared_ptr<Listener>> listeners_ TARN_GUARDED_BY(Private::ListenersMutex());
};

}  // namespace Tarn::GevServer
