#pragma once

/// The device's own registers as a table: device_registers.def says all that is known of each.
///
/// To add a feature with a register, add a row there, and the feature in features/.

#include <cstdint>
#include <span>

#include "camera/wire/bootstrap.h"

namespace Tarn {

/// What follows from a store into a register, by whomever.
enum class RegisterEffect : std::uint8_t {
  None,
  StreamChannel,   ///< the stream has other settings
  StreamPort,      ///< a client opened or closed the stream channel
  PacketSize,      ///< other settings, and maybe a test packet
  MessageChannel,  ///< events go elsewhere
  BothChannels,    ///< stream and events have other settings
  Privilege,       ///< control changes hands
  Timestamp,       ///< the clock is latched or reset
  Payload,         ///< the payload size has to be computed anew
  PixelFormat,     ///< the payload size, and which widths there are
  PayloadSize,     ///< the program gives the payload size
  AcquisitionStart,
  AcquisitionStop,
  UserSetLoad,
  UserSetSave,
  EventNotification,  ///< the client wants to hear of other events
};

/// How many different actions clients can call for, and how many can wait for their time.
inline constexpr std::uint32_t kActionSignals = 4;
inline constexpr std::uint32_t kActionQueueSize = 16;

/// Bytes of PayloadFileName.
inline constexpr std::uint32_t kPayloadFileNameLength = 64;

/// How many entries ChunkSelector can have.
inline constexpr std::uint32_t kMaxChunks = 64;

/// Bytes per second. Where the interface does not tell its speed the stream is held back as if it were Gigabit
/// Ethernet, which receivers with the system's usual buffers keep up with.
inline constexpr std::uint32_t kDefaultThroughput = 125'000'000;

/// A row of the table.
struct DeviceRegister {
  std::uint32_t address;
  std::uint32_t length;  ///< bytes
  bool stream_only;      ///< only devices with a stream have it
  bool fixed_while_streaming;
  bool writable;          ///< by clients; of the standard's registers only
  std::uint32_t bits;     ///< that a write can change
  std::uint32_t initial;  ///< number that it holds when the device is made
  RegisterEffect effect;
  const char* streamable;  ///< names of features, separated by spaces
};

/// All rows, by address.
std::span<const DeviceRegister> DeviceRegisters();

/// The register that has a byte at the address; null when none has.
const DeviceRegister* FindDeviceRegister(std::uint64_t address);

namespace ManufacturerRegister {
inline constexpr std::uint32_t kBase = 0xF000'0000;
#define STANDARD(name, ...)
#define MANUFACTURER(name, offset, ...) inline constexpr std::uint32_t k##name = kBase + (offset);
#include "camera/engine/registers/device_registers.def"
}  // namespace ManufacturerRegister

namespace Bootstrap {
#define STANDARD(name, address, ...) inline constexpr std::uint32_t k##name = address;
#define MANUFACTURER(name, ...)
#include "camera/engine/registers/device_registers.def"

inline constexpr std::uint32_t kDiscoveryEnd = 0x00F8;  ///< the block before it is the discovery answer
inline constexpr std::uint32_t kUrlLength = 512;
inline constexpr std::uint32_t kActionGroupMasks = kActionGroupKeys + 4;
inline constexpr std::uint32_t kActionGroupStep = 0x10;  ///< from one signal to the next
static_assert(kActionGroup3 == kActionGroupKeys + (kActionSignals - 1) * kActionGroupStep);
}  // namespace Bootstrap

}  // namespace Tarn
