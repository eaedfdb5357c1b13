#pragma once

/// Hears when the machine's network changes.

#include "camera/net/netlink.h"

namespace Tarn {

/// Of links, their IPv4 addresses, routes and queues: of all that StreamRoute tells. What changed is not told: ask anew. Costs nothing between changes.
/// Threads: one at a time. Sees the network namespace of the thread that made it.
class LinkWatch {
 public:
  /// Throws: std::system_error when it cannot be had.
  LinkWatch();

  /// Becomes readable with a change, and stays so until Drain().
  int Fd() const noexcept { return kernel_.Fd(); }

  /// Whether anything changed since the last call.
  bool Drain() noexcept;

 private:
  NetlinkSocket kernel_;
};

}  // namespace Tarn
