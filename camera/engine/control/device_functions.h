#pragma once

/// What the device does: when its registers are written, when actions arrive, when images are sent.

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "camera/engine/control/acquisition.h"
#include "camera/engine/control/action_signals.h"
#include "camera/engine/control/control_session.h"
#include "camera/engine/control/device_clock.h"
#include "camera/engine/control/device_counters.h"
#include "camera/engine/control/effects.h"
#include "camera/engine/control/event_control.h"
#include "camera/engine/control/stream_control.h"
#include "camera/engine/features/user_sets.h"
#include "camera/engine/registers/register_file.h"

namespace Tarn {

/// Owns the registers and the parts that follow them, and passes on to each part what was stored into its
/// registers, by whom ever: that is the one way in which parts hear of each other.
/// Threads: one at a time.
class DeviceFunctions {
 public:
  /// \param effects  receives what follows from each call
  /// \param secret   see SourceBudget
  DeviceFunctions(FeatureTree& tree, const std::optional<SensorFormat>& format, DeviceClock& clock,
                  DeviceCounters& counters, Effects& effects, std::uint64_t secret);

  /// The ports from which a started device sends.
  struct Ports {
    std::uint16_t stream = 0;  ///< 0: no stream
    std::uint16_t messages = 0;
  };
  void Open(const Ports& ports);
  /// Ends acquisition and control.
  void Close(Instant now);

  FeatureTree& Tree() { return tree_; }
  const FeatureTree& Tree() const { return tree_; }
  RegisterFile& Registers() { return registers_; }
  const RegisterFile& Registers() const { return registers_; }
  ControlSession& Session() { return session_; }
  const ControlSession& Session() const { return session_; }
  Acquisition& TheAcquisition() { return acquisition_; }
  StreamControl& Stream() { return stream_; }
  EventControl& Events() { return events_; }
  UserSets& TheUserSets() { return user_sets_; }

  /// A client writes into one register, which must not be that of the privilege.
  WireStatus Write(Endpoint who, std::uint32_t address, ByteView bytes);
  WireStatus WritePrivilege(Endpoint who, std::uint32_t value, Instant now);

  /// Does what follows from all stores since the last call.
  /// \return registers of a user set that was loaded, in the order of writing
  std::vector<PlacedRegister> ApplyStores(Instant now);

  void SaveUserSet();

  /// An action was called for.
  /// \return its status; empty when it is addressed to other devices
  std::optional<WireStatus> Act(const ActionCommand& action, Endpoint source, Instant now);
  /// When the next scheduled action is due; Instant::max() when none waits.
  Instant NextAction() const { return schedule_.NextDue(); }
  void FireDue(Instant now);
  /// The register of the next signal that fired and whose listeners have not been called yet.
  std::optional<std::uint32_t> TakeFired();
  bool HasFired() const { return !fired_.empty(); }

  void Resend(const ResendCommand& command, Endpoint requester);

  /// The primary application was silent for too long, or the program ends its control.
  void EndControl();

 private:
  void OnStored(std::uint64_t address, Instant now, std::vector<PlacedRegister>& loaded);
  void OnPrivilegeStored(Instant now);
  void OnTimestampControl(Instant now);
  bool TakeCommand(std::uint32_t address);
  void LoadUserSet(std::vector<PlacedRegister>& loaded);
  bool TakesActions() const;
  void Fire(SignalSet signals);

  FeatureTree& tree_;
  DeviceClock& clock_;
  DeviceCounters& counters_;
  Effects& effects_;
  RegisterFile registers_;
  ControlSession session_;
  EventControl events_;
  Acquisition acquisition_;
  StreamControl stream_;
  UserSets user_sets_;
  ActionSchedule schedule_;
  std::deque<std::uint32_t> fired_;  ///< registers of signals whose listeners were not called yet
  Endpoint primary_;                 ///< as the program was told last
  bool open_ = false;
};

}  // namespace Tarn
