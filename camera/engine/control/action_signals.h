#pragma once

/// The device's action signals: which of them a command addresses, and those whose time has not come.

#include <bitset>
#include <cstdint>
#include <vector>

#include "camera/base/clock.h"
#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

class SparseMemory;

/// Bit n stands for signal n.
using SignalSet = std::bitset<kActionSignals>;

/// The signals whose keys and masks in `memory` the command matches.
SignalSet MatchingSignals(const ActionCommand& command, const SparseMemory& memory);

/// Scheduled actions, by time.
/// Threads: one at a time.
class ActionSchedule {
 public:
  ActionSchedule() { queue_.reserve(kActionQueueSize); }

  /// Lets signals wait for `due`, for five minutes at most, so that nobody fills the queue for everybody who
  /// comes later.
  /// \param source  address of the application that sent the command
  /// \return false when there is no place for it
  bool Add(SignalSet signals, Instant due, std::uint32_t source, Instant now);

  /// When TakeDue has something next; Instant::max() when nothing waits.
  Instant NextDue() const { return queue_.empty() ? Instant::max() : queue_.front().due; }

  /// The signals of the earliest action that is due, those of one time in the order of their commands; none
  /// when none is.
  SignalSet TakeDue(Instant now);

  /// Forgets what waits.
  void Clear() { queue_.clear(); }
  /// Forgets what an address has waiting.
  void Forget(std::uint32_t source);

 private:
  struct Scheduled {
    Instant due;
    SignalSet signals;
    std::uint32_t source;
  };

  std::vector<Scheduled> queue_;  ///< by time
};

}  // namespace Tarn
