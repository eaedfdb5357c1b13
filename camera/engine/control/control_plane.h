#pragma once

/// The control half of a device as a state machine without sockets, threads, locks or clock.

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "camera/engine/control/answered_commands.h"
#include "camera/engine/control/command_admission.h"
#include "camera/engine/control/command_execution.h"
#include "camera/engine/control/command_queue.h"
#include "camera/engine/control/device_functions.h"
#include "camera/engine/control/open_access.h"

namespace Tarn {

/// It is given inputs, each with an instant, and answers with Effects, which the giver carries out, and with the
/// next Deadline, at which Advance must be called. Nothing in it changes but by an input.
///
///   | input             | given by                        | then                                           |
///   |-------------------+---------------------------------+------------------------------------------------|
///   | Receive           | the thread that receives           | answered, or queued for listeners, or dropped  |
///   | Advance           | the same, at the deadline       | heartbeat, pending acknowledges, actions       |
///   | OnStored          | who stored into a register      | what follows from the stores                   |
///   | NextCalls         | the thread that calls listeners | the next step of a command that has listeners  |
///   | CountFrame        | who sent an image               | the end of a limited acquisition               |
///   | Open, Close       | start and stop                  |                                                |
///
/// Threads: one at a time. No input throws on account of what comes in.
class ControlPlane {
 public:
  /// \param effects  receives what follows from each input
  /// \param secret   a random number; see SourceBudget
  ControlPlane(FeatureTree& tree, const std::optional<SensorFormat>& format, DeviceClock& clock,
               Effects& effects, std::uint64_t secret);

  DeviceFunctions& Functions() { return functions_; }
  const ControlPrivilege& Privilege() const { return functions_.Session().Privilege(); }
  const DeviceCounters& Counters() const { return counters_; }

  /// Requires: the registers were indexed.
  void Open(const DeviceFunctions::Ports& ports);
  /// Takes control away from whoever has it, and forgets what was to happen.
  void Close(Instant now);

  /// A datagram came in.
  void Receive(const ControlRequest& request);

  /// Requires: all datagrams that had arrived at `now` were given to Receive, since they may be signs of life.
  void Advance(Instant now);
  /// When Advance must be called; Instant::max() for never. May lie in the past after an input that was late.
  Instant Deadline() const;

  /// The program stored into registers.
  void OnStored(Instant now);

  /// Whether NextCalls has something to do. Not while listeners are being called.
  bool HasCalls() const { return !calling_ && (!queue_.Empty() || functions_.HasFired()); }
  /// Goes on with what needs listeners, up to the point where they are to be called. Those that the call before
  /// returned were called meanwhile.
  /// \return them, in their order; none when nothing is left to do
  Listeners NextCalls(Instant now);

  /// An image of a limited acquisition was accepted, see Acquisition::CountFrame.
  void CountFrame(std::uint64_t acquisition, Instant now);

 private:
  struct Delayed {
    Instant due;
    WaitingCommand command;
  };

  bool Admit(const ControlRequest& request, const CommandHeader& header, ByteReader payload);
  bool Repeats(const ControlRequest& request, const CommandHeader& header);
  bool HasListeners(const CommandHeader& header, ByteReader payload) const;
  void Enqueue(const ControlRequest& request);
  void ExecuteAtOnce(const ControlRequest& request, const CommandHeader& header, Instant now);
  void Finish(const CommandExecution& execution, const ControlRequest& request, Instant now);
  void Send(ByteView answer, const ControlRequest& request);
  bool IsInSubnet(std::uint32_t address) const;
  AnsweredCommands& AnsweredWrites();
  bool BeginNext();
  std::optional<std::chrono::milliseconds> PendingInterval() const;
  void SendPending(Instant now);
  void AnswerDelayed(Instant now);

  Effects& effects_;
  DeviceCounters counters_;
  DeviceFunctions functions_;
  OpenAccess open_access_;
  AnsweredCommands answered_writes_;  ///< of the primary application, in its session
  std::uint64_t answered_session_ = 0;
  AnsweredCommands answered_actions_;  ///< of anybody, so that these cannot push those out
  CommandQueue queue_;
  std::vector<Delayed> delayed_;  ///< discoveries that are answered later on purpose

  CommandExecution at_once_{functions_};
  CommandExecution calling_execution_{functions_};  ///< on the thread that calls listeners
  const WaitingCommand* current_ = nullptr;         ///< its command; null: a signal's notification
  bool calling_ = false;                            ///< it is not done
  bool signal_turn_ = false;                        ///< signals and commands take turns
};

}  // namespace Tarn
