#pragma once

/// The standard's own registers, below 0xA000: addresses, and the bits in them with the standard's numbers.
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

namespace Bootstrap {

inline constexpr std::uint32_t kVersion = 0x0000;
inline constexpr std::uint32_t kDeviceMode = 0x0004;
inline constexpr std::uint32_t kMacHigh = 0x0008;
inline constexpr std::uint32_t kMacLow = 0x000C;
inline constexpr std::uint32_t kInterfaceCapability = 0x0010;
inline constexpr std::uint32_t kInterfaceConfiguration = 0x0014;
inline constexpr std::uint32_t kCurrentAddress = 0x0024;
inline constexpr std::uint32_t kCurrentMask = 0x0034;
inline constexpr std::uint32_t kCurrentGateway = 0x0044;
inline constexpr std::uint32_t kManufacturerName = 0x0048;
inline constexpr std::uint32_t kModelName = 0x0068;
inline constexpr std::uint32_t kDeviceVersion = 0x0088;
inline constexpr std::uint32_t kManufacturerInfo = 0x00A8;
inline constexpr std::uint32_t kSerialNumber = 0x00D8;
inline constexpr std::uint32_t kUserDefinedName = 0x00E8;
inline constexpr std::uint32_t kDiscoveryEnd = 0x00F8;  ///< the block before it is the discovery answer
inline constexpr std::uint32_t kFirstUrl = 0x0200;
inline constexpr std::uint32_t kSecondUrl = 0x0400;
inline constexpr std::uint32_t kUrlLength = 512;
inline constexpr std::uint32_t kInterfaceCount = 0x0600;
inline constexpr std::uint32_t kLinkSpeed = 0x0670;
inline constexpr std::uint32_t kMessageChannelCount = 0x0900;
inline constexpr std::uint32_t kStreamChannelCount = 0x0904;
inline constexpr std::uint32_t kActionSignalCount = 0x0908;
inline constexpr std::uint32_t kActionDeviceKey = 0x090C;
inline constexpr std::uint32_t kActiveLinks = 0x0910;
inline constexpr std::uint32_t kStreamCapability = 0x092C;
inline constexpr std::uint32_t kMessageCapability = 0x0930;
inline constexpr std::uint32_t kControlCapability = 0x0934;
inline constexpr std::uint32_t kHeartbeatTimeout = 0x0938;
inline constexpr std::uint32_t kTickFrequencyHigh = 0x093C;
inline constexpr std::uint32_t kTickFrequencyLow = 0x0940;
inline constexpr std::uint32_t kTimestampControl = 0x0944;
inline constexpr std::uint32_t kTimestampHigh = 0x0948;
inline constexpr std::uint32_t kTimestampLow = 0x094C;
inline constexpr std::uint32_t kDiscoveryDelay = 0x0950;
inline constexpr std::uint32_t kControlConfiguration = 0x0954;
inline constexpr std::uint32_t kPendingTimeout = 0x0958;
inline constexpr std::uint32_t kSwitchoverKey = 0x095C;
inline constexpr std::uint32_t kStreamConfiguration = 0x0960;
inline constexpr std::uint32_t kLinkCapability = 0x0964;
inline constexpr std::uint32_t kLinkConfiguration = 0x0968;
inline constexpr std::uint32_t kScheduledActionQueueSize = 0x0970;
inline constexpr std::uint32_t kControlPrivilege = 0x0A00;
inline constexpr std::uint32_t kPrimaryPort = 0x0A04;
inline constexpr std::uint32_t kPrimaryAddress = 0x0A14;
inline constexpr std::uint32_t kMessagePort = 0x0B00;
inline constexpr std::uint32_t kMessageDestination = 0x0B10;
inline constexpr std::uint32_t kMessageTimeout = 0x0B14;
inline constexpr std::uint32_t kMessageRetries = 0x0B18;
inline constexpr std::uint32_t kMessageSourcePort = 0x0B1C;
inline constexpr std::uint32_t kStreamPort = 0x0D00;
inline constexpr std::uint32_t kStreamPacketSize = 0x0D04;
inline constexpr std::uint32_t kStreamPacketDelay = 0x0D08;
inline constexpr std::uint32_t kStreamDestination = 0x0D18;
inline constexpr std::uint32_t kStreamSourcePort = 0x0D1C;
inline constexpr std::uint32_t kStreamChannelCapability = 0x0D20;
inline constexpr std::uint32_t kStreamChannelConfiguration = 0x0D24;
inline constexpr std::uint32_t kActionGroupKeys = 0x9800;  ///< first signal; the mask follows
inline constexpr std::uint32_t kActionGroupMasks = 0x9804;
inline constexpr std::uint32_t kActionGroupStep = 0x10;  ///< from one signal to the next

}  // namespace Bootstrap

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
