#pragma once

/// The control protocol: command and acknowledge headers, codes, limits.
///
/// Source: GigE Vision, control protocol.

#include <cstddef>
#include <cstdint>
#include <optional>

#include "camera/base/byte_stream.h"

namespace Tarn {

inline constexpr std::uint16_t kControlPort = 3956;

/// Largest control datagram with its IP header; the payload is what the other headers leave.
inline constexpr std::size_t kMaxControlDatagram = 576;
inline constexpr std::size_t kMaxControlPayload =
    kMaxControlDatagram - 20 - 8 - 8;                                   // IP, UDP, control header
inline constexpr std::size_t kMaxMemoryBytes = kMaxControlPayload - 4;  // behind the address

enum class Command : std::uint16_t {
  Discovery = 0x0002,
  ForceIp = 0x0004,
  PacketResend = 0x0040,
  ReadReg = 0x0080,
  WriteReg = 0x0082,
  ReadMem = 0x0084,
  WriteMem = 0x0086,
  Event = 0x00C0,
  EventData = 0x00C2,
  Action = 0x0100,
};

constexpr bool IsRead(Command command) { return command == Command::ReadReg || command == Command::ReadMem; }
constexpr bool IsWrite(Command command) {
  return command == Command::WriteReg || command == Command::WriteMem;
}

/// Acknowledge codes are the command's plus one, with this exception.
inline constexpr std::uint16_t kPendingAck = 0x0089;

namespace CommandFlag {
inline constexpr std::uint8_t kAckRequired = 0x01;
inline constexpr std::uint8_t kBroadcastAck = 0x10;  ///< discovery: the answer may be broadcast
inline constexpr std::uint8_t kExtendedIds = 0x10;   ///< packet resend and events: 64-bit block ids
inline constexpr std::uint8_t kScheduled = 0x80;     ///< action: the time follows at which it is to happen
}  // namespace CommandFlag

/// Answer to a command.
enum class WireStatus : std::uint16_t {
  Success = 0x0000,
  NotImplemented = 0x8001,
  InvalidParameter = 0x8002,
  InvalidAddress = 0x8003,
  WriteProtect = 0x8004,
  BadAlignment = 0x8005,
  AccessDenied = 0x8006,
  Busy = 0x8007,
  InvalidHeader = 0x800E,
  Overflow = 0x8015,    ///< no room in the queue of scheduled actions
  ActionLate = 0x8016,  ///< done at once, since its time had passed
  Error = 0x8FFF,
};

/// In front of every command. All integers big-endian.
///
///    0     1       2         4        6            8
///    | key | flags | command | length | request id |
struct CommandHeader {
  static constexpr std::size_t kSize = 8;
  static constexpr std::uint8_t kKey = 0x42;

  std::uint8_t flags = 0;  ///< meaning depends on the command; kAckRequired is common to all
  Command command{};
  std::uint16_t length = 0;      ///< payload after this header, bytes
  std::uint16_t request_id = 0;  ///< echoed in the answer

  /// Empty when bytes are missing or the key is wrong. Unknown commands pass: they are answered as such.
  static std::optional<CommandHeader> Decode(ByteReader& in) noexcept;
  void Encode(ByteWriter& out) const noexcept;
};

/// In front of every answer.
///
///    0        2             4        6        8
///    | status | acknowledge | length | ack id |
struct AckHeader {
  static constexpr std::size_t kSize = 8;

  WireStatus status = WireStatus::Success;
  std::uint16_t acknowledge = 0;
  std::uint16_t length = 0;
  std::uint16_t ack_id = 0;

  static std::optional<AckHeader> Decode(ByteReader& in) noexcept;
  void Encode(ByteWriter& out) const noexcept;
};

/// Payload of a resend command: which packets of which block.
///
///    standard  | channel 16 | block 16    | first 32 | last 32 |
///    extended  | channel 16 | reserved 16 | first 32 | last 32 | block 64 |
struct ResendCommand {
  static constexpr std::uint32_t kToTheEnd = 0xFFFF'FFFF;

  std::uint16_t channel = 0;
  std::uint64_t block_id = 0;
  std::uint32_t first_packet = 0;
  std::uint32_t last_packet = 0;  ///< kToTheEnd: up to the trailer
  bool extended = false;

  static std::optional<ResendCommand> Decode(ByteReader& in, bool extended) noexcept;
};

/// Payload of the command that assigns an address for now.
///
///    | reserved 2 | MAC 6 | reserved 12 | address | reserved 12 | mask | reserved 12 | gateway |
struct ForceIpCommand {
  std::uint64_t mac = 0;
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  std::uint32_t gateway = 0;

  static std::optional<ForceIpCommand> Decode(ByteReader& in) noexcept;
};

/// Payload of an action command: whom it is for and, when it is scheduled, at which time.
///
///    | device key 32 | group key 32 | group mask 32 | time 64, if scheduled |
struct ActionCommand {
  std::uint32_t device_key = 0;
  std::uint32_t group_key = 0;
  std::uint32_t group_mask = 0;
  std::optional<std::uint64_t> time;  ///< ticks of the device's clock

  static std::optional<ActionCommand> Decode(ByteReader& in, bool scheduled) noexcept;
};

}  // namespace Tarn
