#pragma once

/// The device's action signals: which of them a command means, those whose time has not come, and the
/// commands that were carried out already.

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <vector>

#include "camera/base/clock.h"
#include "camera/base/endpoint.h"
#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

class SparseMemory;

/// Bit n stands for signal n.
using SignalSet = std::bitset<kActionSignals>;

/// Threads: guarded by the tree lock.
class ActionSignals {
 public:
  ActionSignals() { queue_.reserve(kActionQueueSize); }

  /// The signals whose keys and masks in `memory` the command meets.
  static SignalSet Meant(const ActionCommand& command, const SparseMemory& memory);

  /// Lets signals wait for `due`.
  /// \return false when the queue is full
  bool Schedule(SignalSet signals, Instant due);

  /// When TakeDue has something next; the end of time when nothing waits.
  Instant NextDue() const { return queue_.empty() ? Instant::max() : queue_.front().due; }

  /// The signals of the earliest action that is due, those of one time in the order of their commands; none
  /// when none is.
  SignalSet TakeDue(Instant now);

  /// Forgets what waits.
  void Clear() { queue_.clear(); }

  /// How the same command of the same source was answered a short while ago, when it comes again because the
  /// answer was lost, or because it was sent to more than one broadcast address.
  std::optional<WireStatus> Answered(Endpoint source, std::uint16_t request_id, Instant now) const;
  void Remember(Endpoint source, std::uint16_t request_id, WireStatus status, Instant now);

 private:
  struct Scheduled {
    Instant due;
    SignalSet signals;
  };
  struct Done {
    Endpoint source;
    std::uint16_t request_id = 0;
    WireStatus status = WireStatus::Success;
    Instant when;
  };

  std::vector<Scheduled> queue_;  ///< by time
  std::array<Done, 16> done_{};   ///< the last command of each of the last sources
};

}  // namespace Tarn
