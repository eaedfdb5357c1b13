#pragma once

/// The registers behind EventNotification: one for each event number, whether the client wants to be told.

#include <cstdint>

#include "camera/engine/memory/sparse_memory.h"
#include "camera/engine/registers/own_registers.h"

namespace Tarn {

constexpr std::uint32_t NotificationRegister(std::uint16_t number) {
  return OwnRegisters::kEventNotification + 4u * number;
}

constexpr bool IsNotificationRegister(std::uint64_t address) {
  return address >= NotificationRegister(0) && address <= NotificationRegister(0xFFFF);
}

inline bool IsNotified(const SparseMemory& memory, std::uint16_t number) {
  return memory.Load32(NotificationRegister(number)) != 0;
}

}  // namespace Tarn
