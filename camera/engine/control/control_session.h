#pragma once

/// The time in which one client controls the device: how it begins, what keeps it alive, what ends with it.

#include <cstdint>
#include <optional>

#include "camera/base/clock.h"
#include "camera/engine/control/control_privilege.h"
#include "camera/engine/control/device_counters.h"
#include "camera/engine/control/source_budget.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// Keeps the registers of the privilege as they are to be read, and closes the client's channels when it is no
/// longer in control. What else follows is up to whoever sees the stores into these registers.
/// Threads: one at a time.
class ControlSession {
 public:
  /// \param secret  see SourceBudget
  ControlSession(FeatureTree& tree, DeviceCounters& counters, std::uint64_t secret);

  const ControlPrivilege& Privilege() const { return privilege_; }
  /// Another one each time when control comes to a client.
  std::uint64_t Number() const { return number_; }

  /// A client's write of `value` to the privilege register. On any status but Success nothing has changed.
  ///
  /// Wrong switchover keys are counted. An address has three tries and then one each second, so that the key
  /// cannot be found by trying; without a try left even the right key is refused.
  WireStatus Write(Endpoint who, std::uint32_t value, Instant now);
  /// Whether Write would refuse it now.
  bool Refuses(Endpoint who, std::uint32_t value, Instant now) const;

  /// A client wrote the control configuration register. What it switched off of the heartbeat is on again when
  /// its control ends.
  void OnClientConfigured();

  /// A sign of life; others' than the primary application's are ignored.
  void Heard(Endpoint who, Instant when);

  /// When the primary application's silence will have lasted too long; Instant::max() while there is none, and
  /// while the heartbeat is switched off.
  /// \param waits_since  when its oldest command came that waits for listeners: as long as these take, its
  ///   silence is the device's doing, but no longer than DeviceListenerTimeout
  Instant HeartbeatDeadline(std::optional<Instant> waits_since) const;

  /// Takes control away from whoever has it.
  void End();

 private:
  bool KnowsKey(std::uint32_t value) const;
  void ShowPrivilege();
  void ForgetDestinations();
  void RestoreHeartbeat();

  FeatureTree& tree_;
  DeviceCounters& counters_;
  ControlPrivilege privilege_;
  SourceBudget key_tries_;
  std::uint64_t number_ = 0;
  Instant last_heard_{};
  bool heartbeat_off_by_client_ = false;
};

}  // namespace Tarn
