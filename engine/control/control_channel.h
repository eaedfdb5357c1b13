#pragma once

/// The device's end of the control protocol: commands in, answers out.

#include <chrono>
#include <cstdint>
#include <vector>

#include "base/clock.h"
#include "base/endpoint.h"
#include "engine/control/answered_write.h"
#include "engine/control/control_privilege.h"
#include "engine/registers/register_file.h"
#include "wire/gvcp.h"

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

 protected:
  ~ControlActions() = default;
};

/// Threads: guarded by the tree lock. No call throws on account of what comes in.
class ControlChannel {
 public:
  ControlChannel(FeatureTree& tree, RegisterFile& registers) : tree_(tree), registers_(registers) {}

  /// Executes one command and writes the answer, if there is one, into `answer` (kMaxControlDatagram bytes).
  /// \return bytes of the answer; 0 for silence
  std::size_t Handle(const ControlRequest& request, ControlActions& actions, MutableByteView answer);

  /// To be called at the arrival of each datagram, before it waits for its turn.
  void Heard(const ControlRequest& request);

  /// The nodes that hear of the command's accesses; empty for commands that touch none.
  std::vector<NodePtr> Concerned(ByteView command) const;

  const ControlPrivilege& Privilege() const { return privilege_; }

  /// When the holder's silence will have lasted too long; the end of time while nobody holds control.
  Instant HeartbeatDeadline() const;
  /// Takes control away when the deadline passed.
  void Expire(Instant now);
  /// Counts the holder as heard at `now`.
  void KeepAlive(Instant now) { privilege_.Heard(privilege_.Holder(), now); }
  /// Takes control away from whoever has it and closes what the client opened.
  void Close();

 private:
  struct Context {
    const ControlRequest& request;
    const CommandHeader& header;
    ControlActions& actions;
    ByteReader& in;
    ByteWriter& out;  ///< behind the answer's header
  };

  WireStatus Execute(Context& context);
  WireStatus Discovery(Context& context);
  WireStatus ForceIp(Context& context, bool& silent);
  WireStatus ReadRegisters(Context& context);
  WireStatus ReadMemory(Context& context);
  WireStatus WriteRegisters(Context& context);
  WireStatus WriteMemory(Context& context);
  WireStatus WriteUnit(Context& context, std::uint32_t address, ByteView bytes);
  WireStatus WritePrivilege(Context& context, std::uint32_t value);
  void ShowPrivilege();
  void RequestResend(const Context& context);

  FeatureTree& tree_;
  RegisterFile& registers_;
  ControlPrivilege privilege_;
  AnsweredWrite answered_;
};

}  // namespace Tarn
