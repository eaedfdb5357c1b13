#include "camera/engine/features/power_on_values.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kDefaultPacket = 1500;

/// Of what the wire carries, a part is left to commands and to others: a link that is full makes them wait behind images.
/// \param link_speed  bytes per second; 0: unknown
std::uint64_t DefaultThroughput(std::uint64_t link_speed) {
  return link_speed != 0 ? link_speed / 100 * 95 : kDefaultThroughput;
}

}  // namespace

const char* const kLibraryVersion = "1.0.0";

std::string Cropped(const std::string& text, std::size_t max) {
  std::size_t size = std::min(text.size(), max);
  // Bytes 10xxxxxx continue a character.
  while (size < text.size() && size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) --size;
  return text.substr(0, size);
}

void StoreText(SparseMemory& memory, std::uint32_t address, std::size_t length, const std::string& text) {
  std::vector<std::uint8_t> bytes(length);
  std::ranges::copy(Cropped(text, length - 1), bytes.begin());
  memory.Write(address, bytes);
}

void FillConstants(SparseMemory& memory, bool has_stream) {
  for (const DeviceRegister& reg : DeviceRegisters()) {
    if (reg.initial == 0 || (reg.stream_only && !has_stream)) continue;
    if (reg.length == 8) {
      memory.Store64(reg.address, reg.initial);
    } else {
      memory.Store32(reg.address, reg.initial);
    }
  }
  const std::uint32_t device_class = has_stream ? 0 : DeviceMode::kClassPeripheral;
  memory.Store32(Bootstrap::kDeviceMode,
                 DeviceMode::CharacterSet::With(
                     DeviceMode::Class::With(DeviceMode::BigEndian::kMask, device_class), DeviceMode::kUtf8));
  StoreText(memory, Bootstrap::kManufacturerName, 32, "NORDHAVNOPTICS");
  StoreText(memory, Bootstrap::kModelName, 32, "TRGevServer");
  StoreText(memory, Bootstrap::kManufacturerInfo, 48, "GigE Vision camera in software");
  if (!has_stream) return;
  memory.Store32(Bootstrap::kStreamChannelCount, 1);
  memory.Store32(Bootstrap::kStreamCapability,
                 StreamCapability::SourcePort::kMask | StreamCapability::StandardIds::kMask);
}

void FillLinkSpeed(SparseMemory& memory, std::uint32_t mbit) {
  const std::uint64_t last_speed = memory.Load64(ManufacturerRegister::kLinkSpeed);
  const std::uint64_t speed = std::uint64_t{mbit} * 125'000;
  memory.Store32(Bootstrap::kLinkSpeed, mbit);
  memory.Store64(ManufacturerRegister::kLinkSpeed, speed);
  // The limit follows the link until somebody chooses another.
  if (memory.Load64(ManufacturerRegister::kThroughputLimit) == DefaultThroughput(last_speed)) {
    memory.Store64(ManufacturerRegister::kThroughputLimit, DefaultThroughput(speed));
  }
}

void FillNetwork(SparseMemory& memory, const NetworkIdentity& network, const BootstrapProfile& profile) {
  memory.Store64(Bootstrap::kMacHigh, network.mac);
  memory.Store32(Bootstrap::kCurrentAddress, network.address);
  memory.Store32(Bootstrap::kCurrentMask, network.mask);
  memory.Store32(Bootstrap::kCurrentGateway, network.gateway);
  // A serial number that the program gave, or that an earlier start made, stays.
  if (memory.Load32(Bootstrap::kSerialNumber) == 0) {
    char serial[16];
    std::snprintf(serial, sizeof serial, "%012llX", static_cast<unsigned long long>(network.mac));
    StoreText(memory, Bootstrap::kSerialNumber, 16, serial);
  }
  FillLinkSpeed(memory, network.link_speed);
  // No user-defined name: it could not outlive the program, as the standard wants of it.
  std::uint32_t capability =
      ControlCapability::UserDefinedName::kMask | ControlCapability::SerialNumber::kMask |
      ControlCapability::PrimaryApplication::kMask | ControlCapability::DiscoveryDelay::kMask |
      ControlCapability::DiscoveryDelayWritable::kMask | ControlCapability::ExtendedStatus::kMask |
      ControlCapability::ExtendedStatus2::kMask | ControlCapability::Switchover::kMask |
      ControlCapability::Action::kMask | ControlCapability::UnconditionalAction::kMask |
      ControlCapability::ScheduledAction::kMask | ControlCapability::PendingAck::kMask |
      ControlCapability::Event::kMask | ControlCapability::EventData::kMask |
      ControlCapability::WriteMemory::kMask | ControlCapability::Concatenation::kMask;
  if (profile.heartbeat_can_end) capability |= ControlCapability::HeartbeatDisable::kMask;
  if (network.link_speed != 0) capability |= ControlCapability::LinkSpeed::kMask;
  if (profile.resends) capability |= ControlCapability::PacketResend::kMask;
  if (profile.has_stream) capability |= ControlCapability::TestData::kMask;
  memory.Store32(Bootstrap::kControlCapability, capability);
  if (!profile.has_stream) return;
  // No unconditional streaming: a stream that nobody controls would go on to an address that may be gone.
  memory.Store32(Bootstrap::kStreamChannelCapability,
                 StreamChannelBits::ExtendedChunks::kMask |
                     (profile.resends ? StreamChannelBits::ResendDestination::kMask : 0));
  memory.Store32(Bootstrap::kStreamPacketSize, std::min(kDefaultPacket, network.max_packet_size / 4 * 4));
}

}  // namespace Tarn
