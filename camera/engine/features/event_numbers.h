#pragma once

/// Numbers of the events that a device tells by itself.

#include <cstdint>

#include "camera/wire/event_command.h"

namespace Tarn::EventNumber {

inline constexpr std::uint16_t kAcquisitionStart = 0x9001;
inline constexpr std::uint16_t kAcquisitionEnd = 0x9002;
inline constexpr std::uint16_t kFrameStart = 0x9003;
inline constexpr std::uint16_t kFrameEnd = 0x9004;

}  // namespace Tarn::EventNumber
