#pragma once

/// Carries out one command, step by step, so that listeners can be called in between.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "camera/base/byte_stream.h"
#include "camera/engine/control/control_request.h"
#include "camera/engine/control/device_functions.h"
#include "camera/engine/nodes/node.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

using Listeners = std::vector<std::shared_ptr<const NodeListener>>;

/// Whether length, alignment and count of a command are such that it can only be refused.
bool IsMalformed(const CommandHeader& header, ByteReader payload);

/// Threads: one at a time.
class CommandExecution {
 public:
  explicit CommandExecution(DeviceFunctions& device) : device_(device) {}

  /// \param request  its bytes must stay until the execution is done
  /// \param header   of these bytes
  /// \param listens  whether listeners are to be called; else none has to be
  void Begin(const ControlRequest& request, const CommandHeader& header, bool listens);

  /// As a command that wrote into a register: its listeners are called, and the commands on it are finished.
  void BeginNotification(std::uint32_t address);

  /// Goes on until listeners are to be called, or nothing is left to do.
  /// \return listeners that are to be called before the next Run; none when it is done
  Listeners Run(Instant now);

  /// What came of it, also where the client wants no answer.
  ByteView Acknowledge() const { return ByteView(acknowledge_).first(acknowledge_size_); }
  /// What goes to the client; empty for silence.
  ByteView Answer() const { return silent_ ? ByteView() : Acknowledge(); }
  WireStatus Status() const { return status_; }
  /// Of an action: whether it was addressed to other devices, so that nothing was done.
  bool WasForOthers() const { return for_others_; }

 private:
  struct Step {
    enum class Kind { TellRead, TellWritten, FinishCommands, SaveUserSet };
    Kind kind;
    std::uint32_t address = 0;
    std::uint32_t length = 0;
  };

  void CheckReads();
  void RunWhole(Instant now);
  Listeners RunUnit(Instant now);
  Listeners RunStep(const Step& step);
  Listeners ReadUnit(std::uint32_t address, std::uint32_t length);
  void WriteUnit(std::uint32_t address, ByteView bytes, Instant now);
  WireStatus Store(std::uint32_t address, ByteView bytes, Instant now);
  void AddWritten(std::uint32_t address, std::uint32_t length);
  WireStatus Discovery();
  WireStatus ForceIp();
  WireStatus Action(Instant now);
  void Resend();
  void Finish();
  ByteWriter Out() { return ByteWriter(MutableByteView(acknowledge_).subspan(AckHeader::kSize)); }

  DeviceFunctions& device_;
  ControlRequest request_;
  CommandHeader header_;
  ByteView payload_;
  bool listens_ = false;
  bool silent_ = false;
  bool for_others_ = false;
  bool done_ = true;
  WireStatus status_ = WireStatus::Success;

  std::size_t at_ = 0;  ///< bytes of the payload, or of the memory, that are done
  std::size_t units_done_ = 0;
  bool told_ = false;        ///< the listeners of the unit at `at_` were called
  std::vector<Step> steps_;  ///< behind the last unit
  std::size_t next_step_ = 0;

  std::array<std::uint8_t, kMaxControlDatagram> acknowledge_;
  std::size_t out_size_ = 0;  ///< behind the header
  std::size_t acknowledge_size_ = 0;
};

}  // namespace Tarn
