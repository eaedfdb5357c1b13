#include "camera/engine/registers/bootstrap_rules.h"

#include <algorithm>
#include <array>

#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

struct Row {
  std::uint32_t address;
  std::uint32_t length;  ///< bytes
  bool writable = false;
  std::uint32_t mask = 0;    ///< bits that a write can change
  bool stream_only = false;  ///< only devices with a stream have it
  bool fixed_while_streaming = false;
};

constexpr std::uint32_t kAll = 0xFFFF'FFFF;

/// Key and mask of an action signal.
constexpr Row ActionGroup(std::uint32_t signal) {
  return {Bootstrap::kActionGroupKeys + signal * Bootstrap::kActionGroupStep, 8, true, kAll};
}

constexpr std::array kRows{
    Row{Bootstrap::kVersion, 4},
    Row{Bootstrap::kDeviceMode, 4},
    Row{Bootstrap::kMacHigh, 4},
    Row{Bootstrap::kMacLow, 4},
    Row{Bootstrap::kInterfaceCapability, 4},
    // The host manages its addresses: what the register says cannot be changed from here.
    Row{Bootstrap::kInterfaceConfiguration, 4, true, 0},
    Row{Bootstrap::kCurrentAddress, 4},
    Row{Bootstrap::kCurrentMask, 4},
    Row{Bootstrap::kCurrentGateway, 4},
    Row{Bootstrap::kManufacturerName, 32},
    Row{Bootstrap::kModelName, 32},
    Row{Bootstrap::kDeviceVersion, 32},
    Row{Bootstrap::kManufacturerInfo, 48},
    Row{Bootstrap::kSerialNumber, 16},
    Row{Bootstrap::kUserDefinedName, 16},
    Row{Bootstrap::kFirstUrl, Bootstrap::kUrlLength},
    Row{Bootstrap::kSecondUrl, Bootstrap::kUrlLength},
    Row{Bootstrap::kInterfaceCount, 4},
    Row{Bootstrap::kLinkSpeed, 4},
    Row{Bootstrap::kMessageChannelCount, 4},
    Row{Bootstrap::kStreamChannelCount, 4},
    Row{Bootstrap::kActionSignalCount, 4},
    Row{Bootstrap::kActionDeviceKey, 4, true, kAll},
    Row{Bootstrap::kActiveLinks, 4},
    Row{Bootstrap::kStreamCapability, 4},
    Row{Bootstrap::kMessageCapability, 4},
    Row{Bootstrap::kControlCapability, 4},
    Row{Bootstrap::kHeartbeatTimeout, 4, true, kAll},
    Row{Bootstrap::kTickFrequencyHigh, 4},
    Row{Bootstrap::kTickFrequencyLow, 4},
    Row{Bootstrap::kTimestampControl, 4, true,
        TimestampControl::Latch::kMask | TimestampControl::Reset::kMask},
    Row{Bootstrap::kTimestampHigh, 4},
    Row{Bootstrap::kTimestampLow, 4},
    Row{Bootstrap::kDiscoveryDelay, 4, true, DiscoveryDelay::Milliseconds::kMask},
    Row{Bootstrap::kControlConfiguration, 4, true,
        ControlConfiguration::ExtendedStatus2::kMask | ControlConfiguration::UnconditionalAction::kMask |
            ControlConfiguration::ExtendedStatus::kMask | ControlConfiguration::PendingAck::kMask |
            ControlConfiguration::HeartbeatDisable::kMask},
    Row{Bootstrap::kPendingTimeout, 4},
    Row{Bootstrap::kSwitchoverKey, 4, true, Switchover::Key::kMask},
    Row{Bootstrap::kStreamConfiguration, 4, true, StreamConfiguration::ExtendedIds::kMask, true, true},
    Row{Bootstrap::kLinkCapability, 4},
    Row{Bootstrap::kLinkConfiguration, 4, true, 0},  // one link, so there is nothing to choose
    Row{Bootstrap::kScheduledActionQueueSize, 4},
    Row{Bootstrap::kControlPrivilege, 4, true, kAll},
    Row{Bootstrap::kPrimaryPort, 4},
    Row{Bootstrap::kPrimaryAddress, 4},
    Row{Bootstrap::kMessagePort, 4, true, MessagePort::HostPort::kMask},
    Row{Bootstrap::kMessageDestination, 4, true, kAll},
    Row{Bootstrap::kMessageTimeout, 4, true, kAll},
    Row{Bootstrap::kMessageRetries, 4, true, kAll},
    Row{Bootstrap::kMessageSourcePort, 4},
    Row{Bootstrap::kStreamPort, 4, true, StreamPort::HostPort::kMask, true},
    Row{Bootstrap::kStreamPacketSize, 4, true,
        StreamPacketSize::FireTest::kMask | StreamPacketSize::DoNotFragment::kMask |
            StreamPacketSize::Bytes::kMask,
        true, true},
    Row{Bootstrap::kStreamPacketDelay, 4, true, kAll, true},
    Row{Bootstrap::kStreamDestination, 4, true, kAll, true, true},
    Row{Bootstrap::kStreamSourcePort, 4, false, 0, true},
    Row{Bootstrap::kStreamChannelCapability, 4, false, 0, true},
    // The other ways of streaming cannot be chosen; clients write the register all the same.
    Row{Bootstrap::kStreamChannelConfiguration, 4, true, StreamChannelBits::ResendDestination::kMask, true},
    ActionGroup(0),
    ActionGroup(1),
    ActionGroup(2),
    ActionGroup(3),
};

static_assert(kRows.back().address == ActionGroup(kActionSignals - 1).address);

const Row* Find(std::uint32_t address, const BootstrapProfile& profile) {
  const auto after =
      std::upper_bound(kRows.begin(), kRows.end(), address,
                       [](std::uint32_t value, const Row& row) { return value < row.address; });
  if (after == kRows.begin()) return nullptr;
  const Row& row = *std::prev(after);
  if (address - row.address >= row.length || (row.stream_only && !profile.has_stream)) return nullptr;
  return &row;
}

}  // namespace

bool IsAllowedDestination(std::uint32_t address, std::uint32_t controller) {
  constexpr std::uint32_t kMulticastPrefix = 0xE;        // 224.0.0.0/4
  constexpr std::uint32_t kLinkProtocols = 0xE0'0000;  // 224.0.0.0/24
  return address == 0 || address == controller ||
         (address >> 28 == kMulticastPrefix && address >> 8 != kLinkProtocols);
}

bool BootstrapExists(std::uint32_t address, const BootstrapProfile& profile) {
  return Find(address, profile) != nullptr;
}

bool BootstrapReadableInBlock(std::uint32_t address, const BootstrapProfile& profile) {
  return address < Bootstrap::kDiscoveryEnd || BootstrapExists(address, profile);
}

std::uint32_t UsablePacketSize(std::uint32_t size, const BootstrapProfile& profile) {
  // An interface may carry less than the least; its packets are cut on the way then.
  const std::uint32_t highest =
      std::max(profile.max_packet_size / kPacketSizeStep * kPacketSizeStep, kMinPacketSize);
  return std::clamp(size / kPacketSizeStep * kPacketSizeStep, kMinPacketSize, highest);
}

void BlankWriteOnly(std::uint32_t address, MutableByteView bytes) {
  for (const std::uint32_t reg : {Bootstrap::kActionDeviceKey, Bootstrap::kSwitchoverKey}) {
    if (reg >= address && reg + 4 <= address + bytes.size()) StoreBe(&bytes[reg - address], std::uint32_t{0});
  }
}

BootstrapWrite DecideBootstrapWrite(std::uint32_t address, std::uint32_t value, std::uint32_t old,
                                    const BootstrapProfile& profile, const WriteContext& context) {
  const Row* row = Find(address, profile);
  if (!row) return {WireStatus::InvalidAddress};
  if (!row->writable) return {WireStatus::WriteProtect};
  if (row->fixed_while_streaming && context.streaming) return {WireStatus::Busy};
  std::uint32_t stored = (old & ~row->mask) | (value & row->mask);
  switch (address) {
    case Bootstrap::kHeartbeatTimeout:
      stored = std::max(stored, kMinHeartbeatTimeout);
      break;
    case Bootstrap::kDiscoveryDelay:
      stored = std::min(stored, kMaxDiscoveryDelay);
      break;
    case Bootstrap::kStreamPacketSize:
      stored = StreamPacketSize::Bytes::With(stored,
                                             UsablePacketSize(StreamPacketSize::Bytes::Get(stored), profile));
      // A size that had to be changed is not the one that a test packet was asked for.
      if (StreamPacketSize::Bytes::Get(stored) != StreamPacketSize::Bytes::Get(value)) {
        stored &= ~StreamPacketSize::FireTest::kMask;
      }
      break;
    case Bootstrap::kControlConfiguration:
      if (!profile.heartbeat_can_end) stored &= ~ControlConfiguration::HeartbeatDisable::kMask;
      break;
    case Bootstrap::kStreamChannelConfiguration:
      if (!profile.resends) stored &= ~StreamChannelBits::ResendDestination::kMask;
      break;
    case Bootstrap::kStreamPort:
      if (StreamPort::Interface::Get(value) != 0) return {WireStatus::InvalidParameter};
      break;
    case Bootstrap::kMessagePort:
      if (MessagePort::Interface::Get(value) != 0) return {WireStatus::InvalidParameter};
      break;
    case Bootstrap::kMessageDestination:
    case Bootstrap::kStreamDestination:
      if (!IsAllowedDestination(value, context.controller.address)) return {WireStatus::InvalidParameter};
      break;
    default:
      break;
  }
  return {WireStatus::Success, stored};
}

}  // namespace Tarn
