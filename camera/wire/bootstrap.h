#pragma once

/// The bits in the standard's registers, with the standard's numbers.
///
/// Source: GigE Vision, bootstrap registers.

#include <cstdint>

namespace Tarn {

/// Bits First..Last of a 32-bit register; bit 0 is the most significant, as in the standard.
template <unsigned First, unsigned Last = First>
struct Bits {
  static_assert(First <= Last && Last < 32);
  static constexpr unsigned kShift = 31 - Last;
  static constexpr std::uint32_t kMask =
      static_cast<std::uint32_t>(((std::uint64_t{1} << (Last - First + 1)) - 1) << kShift);

  static constexpr std::uint32_t Get(std::uint32_t reg) { return (reg & kMask) >> kShift; }
  static constexpr std::uint32_t With(std::uint32_t reg, std::uint32_t value) {
    return (reg & ~kMask) | (value << kShift & kMask);
  }
};

namespace DeviceMode {
using BigEndian = Bits<0>;
using Class = Bits<1, 3>;  // 0 transmitter, 3 peripheral
using CharacterSet = Bits<24, 31>;
inline constexpr std::uint32_t kClassPeripheral = 3;
inline constexpr std::uint32_t kUtf8 = 1;
}  // namespace DeviceMode

namespace InterfaceBits {  // capability and configuration of a network interface
using LinkLocal = Bits<29>;
using Dhcp = Bits<30>;
}  // namespace InterfaceBits

namespace ControlCapability {
using UserDefinedName = Bits<0>;
using SerialNumber = Bits<1>;
using HeartbeatDisable = Bits<2>;
using LinkSpeed = Bits<3>;
using PrimaryApplication = Bits<4>;
using TestData = Bits<6>;
using DiscoveryDelay = Bits<7>;
using DiscoveryDelayWritable = Bits<8>;
using ExtendedStatus = Bits<9>;
using Switchover = Bits<10>;
using UnconditionalAction = Bits<11>;
using ExtendedStatus2 = Bits<13>;
using ScheduledAction = Bits<14>;
using Action = Bits<25>;
using PendingAck = Bits<26>;
using EventData = Bits<27>;
using Event = Bits<28>;
using PacketResend = Bits<29>;
using WriteMemory = Bits<30>;
using Concatenation = Bits<31>;
}  // namespace ControlCapability

namespace ControlConfiguration {
using ExtendedStatus2 = Bits<13>;
using UnconditionalAction = Bits<28>;
using ExtendedStatus = Bits<29>;
using PendingAck = Bits<30>;
using HeartbeatDisable = Bits<31>;
}  // namespace ControlConfiguration

namespace StreamCapability {
using SourcePort = Bits<0>;
using StandardIds = Bits<1>;
}  // namespace StreamCapability

namespace MessageCapability {
using SourcePort = Bits<0>;
}  // namespace MessageCapability

namespace StreamConfiguration {
using ExtendedIds = Bits<1>;
}  // namespace StreamConfiguration

namespace LinkBits {
using SingleLink = Bits<31>;
}  // namespace LinkBits

namespace DiscoveryDelay {
using Milliseconds = Bits<16, 31>;
}  // namespace DiscoveryDelay

namespace Switchover {
using Key = Bits<16, 31>;
}  // namespace Switchover

namespace TimestampControl {
using Latch = Bits<30>;
using Reset = Bits<31>;
}  // namespace TimestampControl

namespace ControlPrivilegeBits {
using SwitchoverKey = Bits<0, 15>;
using SwitchoverEnable = Bits<29>;
using Control = Bits<30>;
using Exclusive = Bits<31>;
}  // namespace ControlPrivilegeBits

namespace StreamPort {
using Interface = Bits<12, 15>;
using HostPort = Bits<16, 31>;
}  // namespace StreamPort

namespace MessagePort {
using Interface = Bits<12, 15>;
using HostPort = Bits<16, 31>;
}  // namespace MessagePort

namespace StreamChannelBits {  // capability and configuration of a stream channel
using ResendDestination = Bits<28>;
using ExtendedChunks = Bits<31>;
}  // namespace StreamChannelBits

namespace StreamPacketSize {
using FireTest = Bits<0>;
using DoNotFragment = Bits<1>;
using Bytes = Bits<16, 31>;  // whole packet, IP and UDP headers included
static_assert(FireTest::kMask == 0x8000'0000 && Bytes::kMask == 0x0000'FFFF);
}  // namespace StreamPacketSize

}  // namespace Tarn
