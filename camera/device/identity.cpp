#include "camera/device/identity.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "camera/base/endpoint.h"
#include "camera/base/engine_error.h"
#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/engine/registers/own_registers.h"
#include "camera/net/interface_list.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

// Source: the field is 16 bits wide, and a common viewer fails above 16000.
constexpr std::uint32_t kLargestPacket = 16000;
constexpr std::uint32_t kUsualPacket = 1500;
constexpr std::uint32_t kUsualHeartbeat = 3000;  // ms; Source: GigE Vision, heartbeat timeout register
constexpr std::uint32_t kPendingTimeout = 200;   // ms; well below the half second that clients wait
constexpr std::uint32_t kMessageTimeout = 200;   // ms; a client that is alive answers within a few
constexpr std::uint32_t kMessageRetries = 3;
constexpr std::uint32_t kTicksPerSecond = 1'000'000'000;
// Where the interface does not tell its speed the stream is held back as if it were Gigabit Ethernet, which
// receivers with the system's usual buffers keep up with.
constexpr std::uint32_t kUsualThroughput = 125'000'000;

/// A MAC address that nobody else on this host has: the address in a locally administered one.
/// Source: IEEE 802, bit 1 of the first byte marks locally administered addresses.
std::uint64_t DerivedMac(std::uint32_t address) { return 0x0254'0000'0000u | address; }

std::uint64_t MacNumber(const std::array<std::uint8_t, 6>& mac) {
  std::uint64_t number = 0;
  for (const std::uint8_t byte : mac) number = number << 8 | byte;
  return number;
}

/// Hardware interfaces have a device behind them; loopback, bridges and pairs between namespaces have none.
bool IsHardware(const Interface& interface) {
  struct stat info;
  return !interface.loopback && stat(("/sys/class/net/" + interface.name + "/device").c_str(), &info) == 0;
}

/// True for the last address of a network that an interface is in.
bool IsSubnetBroadcast(std::uint32_t address) {
  const InterfaceList list;
  return std::ranges::any_of(list.All(), [address](const Interface& interface) {
    return address == interface.broadcast && address != interface.address;
  });
}

/// \param link_speed  bytes per second; 0: unknown
std::uint64_t UsualThroughput(std::uint64_t link_speed) {
  return link_speed != 0 ? link_speed : kUsualThroughput;
}

}  // namespace

const char* const kLibraryVersion = "1.0.0";

NetworkIdentity IdentifyNetwork(std::uint32_t address) {
  NetworkIdentity network;
  network.address = address;
  network.mac = DerivedMac(address);
  network.max_packet_size = kUsualPacket;
  const InterfaceList list;
  const Interface* interface = list.InterfaceFor(address);
  if (!interface) return network;
  network.mask = interface->netmask;
  network.gateway = interface->gateway;
  network.link_speed = interface->speed_mbit;
  network.max_packet_size = std::min<std::uint32_t>(interface->mtu, kLargestPacket);
  network.hardware = IsHardware(*interface);
  const auto first = std::ranges::find(list.All(), interface->name, &Interface::name);
  if (MacNumber(interface->mac) != 0 && first->address == address) network.mac = MacNumber(interface->mac);
  return network;
}

void RequireHostAddress(std::uint32_t address) {
  const auto refuse = [address](const char* what) {
    throw EngineError(Failure::kInvalidArgument, DottedAddress(address) + " is " + what +
                                                     ": a server is started on the address of one interface");
  };
  if (address == 0) refuse("every address of the host");
  if (address == 0xFFFF'FFFF || IsSubnetBroadcast(address)) refuse("a broadcast address");
  if (address >> 28 == 0xE) refuse("a multicast group");
  if (address >> 28 == 0xF) refuse("a reserved address");
}

std::string Cropped(const std::string& text, std::size_t most) {
  std::size_t size = std::min(text.size(), most);
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
  const std::uint32_t device_class = has_stream ? 0 : DeviceMode::kClassPeripheral;
  memory.Store32(Bootstrap::kVersion, 0x0002'0000);  // 2.0
  memory.Store32(Bootstrap::kDeviceMode,
                 DeviceMode::CharacterSet::With(
                     DeviceMode::Class::With(DeviceMode::BigEndian::kMask, device_class), DeviceMode::kUtf8));
  const std::uint32_t interface_bits = InterfaceBits::LinkLocal::kMask | InterfaceBits::Dhcp::kMask;
  memory.Store32(Bootstrap::kInterfaceCapability, interface_bits);
  memory.Store32(Bootstrap::kInterfaceConfiguration, interface_bits);
  StoreText(memory, Bootstrap::kManufacturerName, 32, "NORDHAVNOPTICS");
  StoreText(memory, Bootstrap::kModelName, 32, "TRGevServer");
  StoreText(memory, Bootstrap::kManufacturerInfo, 48, "GigE Vision camera in software");
  memory.Store32(Bootstrap::kInterfaceCount, 1);
  memory.Store32(Bootstrap::kActiveLinks, 1);
  memory.Store32(Bootstrap::kMessageChannelCount, 1);
  memory.Store32(Bootstrap::kMessageCapability, MessageCapability::SourcePort::kMask);
  memory.Store32(Bootstrap::kMessageTimeout, kMessageTimeout);
  memory.Store32(Bootstrap::kMessageRetries, kMessageRetries);
  memory.Store32(Bootstrap::kStreamChannelCount, has_stream ? 1 : 0);
  memory.Store32(Bootstrap::kStreamCapability,
                 has_stream ? StreamCapability::SourcePort::kMask | StreamCapability::StandardIds::kMask : 0);
  memory.Store32(Bootstrap::kActionSignalCount, kActionSignals);
  memory.Store32(Bootstrap::kScheduledActionQueueSize, kActionQueueSize);
  memory.Store32(Bootstrap::kHeartbeatTimeout, kUsualHeartbeat);
  memory.Store32(Bootstrap::kTickFrequencyLow, kTicksPerSecond);
  memory.Store32(Bootstrap::kPendingTimeout, kPendingTimeout);
  memory.Store32(Bootstrap::kLinkCapability, LinkBits::SingleLink::kMask);
  if (!has_stream) return;
  // Chunks always come in the types that tell of the image too, so the configuration says so from the start.
  memory.Store32(Bootstrap::kStreamChannelConfiguration, StreamChannelBits::ExtendedChunks::kMask);
  memory.Store32(OwnRegisters::kThroughputLimitMode, 1);
  memory.Store64(OwnRegisters::kThroughputLimit, kUsualThroughput);
}

void FillNetwork(SparseMemory& memory, const NetworkIdentity& network, bool has_stream, bool resend) {
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
  memory.Store32(Bootstrap::kLinkSpeed, network.link_speed);
  const std::uint64_t last_speed = memory.Load64(OwnRegisters::kLinkSpeed);
  const std::uint64_t speed = std::uint64_t{network.link_speed} * 125'000;
  memory.Store64(OwnRegisters::kLinkSpeed, speed);
  // No user-defined name: it could not outlive the program, as the standard wants of it.
  std::uint32_t capability =
      ControlCapability::SerialNumber::kMask | ControlCapability::HeartbeatDisable::kMask |
      ControlCapability::PrimaryApplication::kMask | ControlCapability::DiscoveryDelay::kMask |
      ControlCapability::DiscoveryDelayWritable::kMask | ControlCapability::ExtendedStatus::kMask |
      ControlCapability::ExtendedStatus2::kMask | ControlCapability::Switchover::kMask |
      ControlCapability::Action::kMask | ControlCapability::UnconditionalAction::kMask |
      ControlCapability::ScheduledAction::kMask | ControlCapability::PendingAck::kMask |
      ControlCapability::Event::kMask | ControlCapability::EventData::kMask |
      ControlCapability::WriteMemory::kMask | ControlCapability::Concatenation::kMask;
  if (network.link_speed != 0) capability |= ControlCapability::LinkSpeed::kMask;
  if (resend) capability |= ControlCapability::PacketResend::kMask;
  if (has_stream) capability |= ControlCapability::TestData::kMask;
  memory.Store32(Bootstrap::kControlCapability, capability);
  if (!has_stream) return;
  // No unconditional streaming: a stream that nobody controls would go on to an address that may be gone.
  memory.Store32(
      Bootstrap::kStreamChannelCapability,
      StreamChannelBits::ExtendedChunks::kMask | (resend ? StreamChannelBits::ResendDestination::kMask : 0));
  memory.Store32(Bootstrap::kStreamPacketSize, std::min(kUsualPacket, network.max_packet_size / 4 * 4));
  // The limit follows the link from start to start, until somebody chooses another.
  if (memory.Load64(OwnRegisters::kThroughputLimit) == UsualThroughput(last_speed)) {
    memory.Store64(OwnRegisters::kThroughputLimit, UsualThroughput(speed));
  }
}

}  // namespace Tarn
