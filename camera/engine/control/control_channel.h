#pragma once

/// The device's end of the control protocol: commands in, answers out.

#include <chrono>
#include <cstdint>
#include <vector>

#include "camera/base/clock.h"
#include "camera/base/endpoint.h"
#include "camera/engine/control/action_signals.h"
#include "camera/engine/control/answered_write.h"
#include "camera/engine/control/control_privilege.h"
#include "camera/engine/control/open_access.h"
#include "camera/engine/control/reception.h"
#include "camera/engine/registers/register_file.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// A datagram that came in on the control port.
struct ControlRequest {
  ByteView bytes;
  Endpoint source;
  bool broadcast = false;  ///< was sent to a broadcast address
  Instant arrival;
};

/// What the channel asks of the device while it executes a command. May let go of the tree lock in between:
/// the channel keeps nothing across these calls that could have changed.
class ControlActions {
 public:
  /// The client is about to be told what stands in these bytes.
  virtual void BeforeRead(std::uint32_t address, std::uint32_t length) = 0;
  /// The client stored into these bytes.
  virtual void AfterWrite(std::uint32_t address, std::uint32_t length) = 0;
  virtual void Resend(const ResendCommand& command, Endpoint requester) = 0;
  /// Whether acquisition is on; a command may have begun with a write that switched it.
  virtual bool Streaming() const = 0;
  /// When the device's clock shows `ticks`; may lie in the past.
  virtual Instant AtTicks(std::uint64_t ticks) const = 0;
  /// The signals fire. Does not let go of the tree lock.
  virtual void Fire(SignalSet signals) = 0;
  /// Something happened that clients may want to hear of. Does not let go of the tree lock.
  /// \param number  one of EventNumber
  virtual void Report(std::uint16_t number) = 0;

 protected:
  ~ControlActions() = default;
};

/// Threads: guarded by the tree lock. No call throws on account of what comes in.
class ControlChannel {
 public:
  /// \param secret  a random number; see OpenAccess
  ControlChannel(FeatureTree& tree, RegisterFile& registers, std::uint64_t secret)
      : tree_(tree), registers_(registers), open_access_(secret) {}

  /// To be called at the arrival of each datagram: notes signs of life, and decides when and where Handle is
  /// to be called with it.
  Reception Arrived(const ControlRequest& request);

  /// Executes one command and writes the answer, if there is one, into `answer` (kMaxControlDatagram bytes).
  /// \return bytes of the answer; 0 for silence
  std::size_t Handle(const ControlRequest& request, ControlActions& actions, MutableByteView answer);

  const ControlPrivilege& Privilege() const { return privilege_; }

  /// When the holder's silence will have lasted too long; the end of time while nobody holds control.
  Instant HeartbeatDeadline() const;
  /// Takes control away when the deadline passed.
  void Expire(Instant now);
  /// Counts the holder as heard at `now`.
  void KeepAlive(Instant now) { privilege_.Heard(privilege_.Holder(), now); }

  /// When a scheduled action is due; the end of time when none waits.
  Instant NextAction() const { return signals_.NextDue(); }
  /// Fires the signals of the scheduled actions that are due, in the order of their times.
  void FireDue(Instant now, ControlActions& actions);

  /// Takes control away from whoever has it, closes what the client opened, and forgets what was to happen.
  void Reset();

 private:
  struct Context {
    const ControlRequest& request;
    const CommandHeader& header;
    ControlActions& actions;
    ByteReader& in;
    ByteWriter& out;  ///< behind the answer's header
  };

  Reception Admit(const ControlRequest& request, const CommandHeader& header, ByteReader in);
  /// Whether nodes hear of the command's accesses.
  bool HasListeners(Command command, ByteReader in) const;
  WireStatus Execute(Context& context, bool& silent);
  WireStatus Discovery(Context& context);
  WireStatus ForceIp(Context& context, bool& silent);
  WireStatus ReadRegisters(Context& context);
  WireStatus ReadMemory(Context& context);
  WireStatus WriteRegisters(Context& context);
  WireStatus WriteMemory(Context& context);
  WireStatus WriteUnit(Context& context, std::uint32_t address, ByteView bytes);
  WireStatus WritePrivilege(Context& context, std::uint32_t value);
  void ShowPrivilege();
  void ForgetDestinations();
  void RequestResend(const Context& context);
  WireStatus Action(Context& context, bool& silent);
  WireStatus Act(Context& context, const ActionCommand& action, SignalSet signals);
  bool TakesActions() const;
  void Close();

  FeatureTree& tree_;
  RegisterFile& registers_;
  ControlPrivilege privilege_;
  AnsweredWrite answered_;
  ActionSignals signals_;
  OpenAccess open_access_;
};

}  // namespace Tarn
