#pragma once

/// Event commands, the only ones that a device sends: what happened, when, and to which block.
///
/// Source: GigE Vision, message channel.

#include <cstddef>
#include <cstdint>

#include "camera/base/bytes.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

namespace EventNumber {
inline constexpr std::uint16_t kPrimaryApplicationSwitch = 0x0007;
inline constexpr std::uint16_t kActionLate = 0x0009;
inline constexpr std::uint16_t kFirstOfDevice = 0x9000;  ///< from here on each device has its own meanings
}  // namespace EventNumber

/// One event.
///
///    standard  | reserved 16 | number 16 | channel 16 | block 16    | timestamp 64 |
///    extended  | size 16     | number 16 | channel 16 | reserved 16 | block 64 | timestamp 64 |
///
/// The size is that of the event with its data.
struct EventItem {
  static constexpr std::size_t kStandardSize = 16;
  static constexpr std::size_t kExtendedSize = 24;
  static constexpr std::uint16_t kNoChannel = 0xFFFF;

  static constexpr std::size_t Size(bool extended) { return extended ? kExtendedSize : kStandardSize; }

  std::uint16_t number = 0;
  std::uint16_t channel = kNoChannel;  ///< stream channel that it happened on
  std::uint64_t block_id = 0;          ///< 0: none; the standard form carries the lower 16 bits
  std::uint64_t timestamp = 0;         ///< ticks
};

/// Most bytes of data that an event can carry in either form.
inline constexpr std::size_t kMaxEventData = kMaxControlPayload - EventItem::kExtendedSize;

/// A whole command with one event. Data that do not fit behind the event are left out, and the command is the
/// one for events without data then.
struct EventCommand {
  EventItem item;
  ByteView data;
  std::uint16_t request_id = 0;
  bool extended = false;      ///< block ids have 64 bits
  bool wants_answer = false;  ///< the receiver is to acknowledge it

  bool CarriesData() const noexcept;
  Command Code() const noexcept { return CarriesData() ? Command::EventData : Command::Event; }
  /// Requires: room for kMaxControlDatagram bytes.
  void Encode(ByteWriter& out) const noexcept;
};

}  // namespace Tarn
