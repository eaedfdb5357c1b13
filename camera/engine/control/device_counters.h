#pragma once

/// What the control plane counts, as the features of DeviceCounters show it.

#include <cstdint>

#include "camera/engine/memory/sparse_memory.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {

/// Since the device started.
struct DeviceCounters {
  std::uint64_t heartbeat_timeouts = 0;
  std::uint64_t refused_commands = 0;       ///< with ACCESS_DENIED, whether or not an answer was wanted
  std::uint64_t dropped_commands = 0;       ///< no room, or their source asked for too much
  std::uint64_t dropped_notifications = 0;  ///< actions whose listeners were not called, as too many waited
  std::uint64_t wrong_switchover_keys = 0;

  void Store(SparseMemory& memory) const {
    memory.Store64(ManufacturerRegister::kHeartbeatTimeouts, heartbeat_timeouts);
    memory.Store64(ManufacturerRegister::kRefusedCommands, refused_commands);
    memory.Store64(ManufacturerRegister::kDroppedCommands, dropped_commands);
    memory.Store64(ManufacturerRegister::kDroppedNotifications, dropped_notifications);
    memory.Store64(ManufacturerRegister::kWrongSwitchoverKeys, wrong_switchover_keys);
  }
};

}  // namespace Tarn
