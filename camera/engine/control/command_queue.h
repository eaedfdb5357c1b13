#pragma once

/// Commands that wait for the thread which calls listeners, and the one that is being executed there.

#include <chrono>
#include <cstdint>
#include <list>
#include <optional>
#include <vector>

#include "camera/engine/control/control_request.h"

namespace Tarn {

/// A command that outlives the datagram in which it came.
struct WaitingCommand {
  WaitingCommand(const ControlRequest& request)
      : bytes(request.bytes.begin(), request.bytes.end()),
        source(request.source),
        broadcast(request.broadcast),
        arrival(request.arrival),
        last_told(request.arrival) {}

  ControlRequest Request() const { return {bytes, source, broadcast, arrival}; }

  std::vector<std::uint8_t> bytes;
  Endpoint source;
  bool broadcast;
  Instant arrival;
  Instant last_told;  ///< when its client was told last that it takes longer; at first the arrival
};

/// The primary application's commands are taken before those of others; the commands of one source in their
/// order. Bounded, so that nobody keeps a slow listener busy for long:
///
///   | commands of             | that can wait |
///   |-------------------------+---------------|
///   | the primary application | 64            |
///   | one other application   | 2             |
///   | all others together     | 8             |
///
/// Threads: one at a time.
class CommandQueue {
 public:
  enum class Result {
    Waits,
    Repeated,  ///< the same bytes of the same source wait already, or are being executed
    Full,
  };
  /// \param primary  the primary application at this moment
  Result Add(const ControlRequest& request, Endpoint primary);

  /// Whether none waits or is being executed.
  bool Empty() const { return commands_.empty(); }
  /// Whether a command of the source waits or is being executed.
  bool HasCommandOf(Endpoint source) const;
  /// When the oldest of these came.
  std::optional<Instant> WaitsSince(Endpoint source) const;

  /// Takes the command that is next; null when none waits. It stays in the queue until Finish.
  /// Requires: none is being executed.
  const WaitingCommand* Take(Endpoint primary);
  void Finish() { commands_.pop_front(); }

  /// When the client of a command must be told next that it takes longer.
  Instant NextPending(Endpoint primary, std::chrono::milliseconds interval) const;
  /// Calls `use(command)` for each command of the primary application for which that time has come.
  template <class Use>
  void ForEachPending(Endpoint primary, std::chrono::milliseconds interval, Instant now, Use&& use) {
    for (WaitingCommand& command : commands_) {
      if (command.source != primary || now < command.last_told + interval) continue;
      use(command);
      command.last_told = now;
    }
  }

  void Clear() { commands_.clear(); }

 private:
  std::list<WaitingCommand> commands_;  ///< by arrival, but the one that is being executed first
};

}  // namespace Tarn
