#pragma once

/// What happens to a server, for whoever registered for it.

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "camera/base/mutex.h"
#include "camera/engine/control/effects.h"

namespace Tarn {

/// Threads: any thread. Listeners are called one at a time, with a lock of this object held that they may
/// take again: they store a state word and return, so waiting for a running one is short.
class ServerEvents {
 public:
  using Listener = void (*)(void* context);

  std::uint64_t Register(ServerEvent event, Listener listener, void* context);

  /// Queues an event for the next Notify(); never waits for a listener.
  void Post(ServerEvent event);
  /// Calls the listeners of the events that were posted, in the order of posting; while closed none.
  void Notify();

  void Open();
  /// After its return no listener runs and none is called any more.
  void Close();

 private:
  struct Entry {
    ServerEvent event;
    Listener listener;
    void* context;
  };

  bool TakePosted(ServerEvent& event);

  Mutex posting_;  // taken for moments, also with mutex_ held
  std::deque<ServerEvent> posted_ TARN_GUARDED_BY(posting_);

  std::recursive_mutex mutex_;
  std::vector<Entry> entries_;
  bool open_ = false;
  bool notifying_ = false;  ///< a listener has come back here
};

}  // namespace Tarn
