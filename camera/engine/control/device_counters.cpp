#include "camera/engine/control/device_counters.h"

#include "camera/engine/registers/own_registers.h"

namespace Tarn {

void DeviceCounters::Store(SparseMemory& memory) const {
  memory.Store64(OwnRegisters::kHeartbeatTimeouts, heartbeat_timeouts);
  memory.Store64(OwnRegisters::kRefusedCommands, refused_commands);
  memory.Store64(OwnRegisters::kDroppedCommands, dropped_commands);
  memory.Store64(OwnRegisters::kDroppedNotifications, dropped_notifications);
  memory.Store64(OwnRegisters::kWrongSwitchoverKeys, wrong_switchover_keys);
}

}  // namespace Tarn
