#pragma once

/// What happens to a server, told to whoever registered for it.

#include <cstdint>
#include <mutex>
#include <vector>

namespace Tarn {

/// The values cross the C line; capi/ asserts that they agree with its headers.
enum class ServerEvent : std::int32_t {
  Connected = 0,
  Disconnected = 1,
  AcquisitionStart = 2,
  AcquisitionStop = 3,
  ImageSnapped = 4,
};

/// Threads: any thread. Listeners are called one at a time, with a lock of this object held that they may
/// take again: they store a state word and return, so waiting for a running one is short.
class ServerEvents {
 public:
  using Listener = void (*)(void* context);

  std::uint64_t Register(ServerEvent event, Listener listener, void* context);

  /// Tells the listeners; does nothing while closed.
  void Tell(ServerEvent event);

  void Open();
  /// After its return no listener runs and none is told any more.
  void Close();

 private:
  struct Entry {
    ServerEvent event;
    Listener listener;
    void* context;
  };

  std::recursive_mutex mutex_;
  std::vector<Entry> entries_;
  bool open_ = false;
};

}  // namespace Tarn
