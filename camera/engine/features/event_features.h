#pragma once

/// The events that a device sends by itself, and the registers behind EventNotification: one for each event
/// number, whether the client wants to be told.

#include <cstdint>

#include "camera/engine/memory/sparse_memory.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/event_command.h"

namespace Tarn {

namespace EventNumber {
inline constexpr std::uint16_t kAcquisitionStart = 0x9001;
inline constexpr std::uint16_t kAcquisitionEnd = 0x9002;
inline constexpr std::uint16_t kFrameStart = 0x9003;
inline constexpr std::uint16_t kFrameEnd = 0x9004;
}  // namespace EventNumber

constexpr std::uint32_t NotificationRegister(std::uint16_t number) {
  return ManufacturerRegister::kEventNotification + 4u * number;
}

inline bool IsNotified(const SparseMemory& memory, std::uint16_t number) {
  return memory.Load32(NotificationRegister(number)) != 0;
}

}  // namespace Tarn
