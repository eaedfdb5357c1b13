#include "camera/engine/registers/bootstrap_rules.h"

#include <algorithm>

#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

const DeviceRegister* Find(std::uint32_t address, const BootstrapProfile& profile) {
  const DeviceRegister* found = FindDeviceRegister(address);
  return found && (profile.has_stream || !found->stream_only) ? found : nullptr;
}

}  // namespace

bool IsAllowedDestination(std::uint32_t address, std::uint32_t controller) {
  constexpr std::uint32_t kMulticastPrefix = 0xE;      // 224.0.0.0/4
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
  const DeviceRegister* row = Find(address, profile);
  if (!row) return {WireStatus::InvalidAddress};
  if (!row->writable) return {WireStatus::WriteProtect};
  if (row->fixed_while_streaming && context.streaming) return {WireStatus::Busy};
  std::uint32_t stored = (old & ~row->bits) | (value & row->bits);
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
