#include "camera/wire/gvcp.h"

namespace Tarn {

std::optional<CommandHeader> CommandHeader::Decode(ByteReader& in) noexcept {
  const auto key = in.Take<std::uint8_t>();
  CommandHeader header;
  header.flags = in.Take<std::uint8_t>();
  header.command = Command{in.Take<std::uint16_t>()};
  header.length = in.Take<std::uint16_t>();
  header.request_id = in.Take<std::uint16_t>();
  if (!in.Ok() || key != kKey) return std::nullopt;
  return header;
}

void CommandHeader::Encode(ByteWriter& out) const noexcept {
  out.Put(kKey);
  out.Put(flags);
  out.Put(static_cast<std::uint16_t>(command));
  out.Put(length);
  out.Put(request_id);
}

std::optional<AckHeader> AckHeader::Decode(ByteReader& in) noexcept {
  AckHeader header;
  header.status = WireStatus{in.Take<std::uint16_t>()};
  header.acknowledge = in.Take<std::uint16_t>();
  header.length = in.Take<std::uint16_t>();
  header.ack_id = in.Take<std::uint16_t>();
  if (!in.Ok()) return std::nullopt;
  return header;
}

void AckHeader::Encode(ByteWriter& out) const noexcept {
  out.Put(static_cast<std::uint16_t>(status));
  out.Put(acknowledge);
  out.Put(length);
  out.Put(ack_id);
}

std::optional<ResendCommand> ResendCommand::Decode(ByteReader& in, bool extended) noexcept {
  constexpr std::uint32_t kPacketIdMask = 0x00FF'FFFF;
  ResendCommand command;
  command.extended = extended;
  command.channel = in.Take<std::uint16_t>();
  command.block_id = in.Take<std::uint16_t>();
  command.first_packet = in.Take<std::uint32_t>();
  command.last_packet = in.Take<std::uint32_t>();
  if (extended) {
    command.block_id = in.Take<std::uint64_t>();
  } else {
    command.first_packet &= kPacketIdMask;
    command.last_packet &= kPacketIdMask;
    if (command.last_packet == kPacketIdMask) command.last_packet = kToTheEnd;
  }
  if (!in.Ok()) return std::nullopt;
  return command;
}

std::optional<ForceIpCommand> ForceIpCommand::Decode(ByteReader& in) noexcept {
  ForceIpCommand command;
  in.Skip(2);
  command.mac = std::uint64_t{in.Take<std::uint16_t>()} << 32;
  command.mac |= in.Take<std::uint32_t>();
  for (std::uint32_t* field : {&command.address, &command.mask, &command.gateway}) {
    in.Skip(12);
    *field = in.Take<std::uint32_t>();
  }
  if (!in.Ok()) return std::nullopt;
  return command;
}

std::optional<ActionCommand> ActionCommand::Decode(ByteReader& in, bool scheduled) noexcept {
  ActionCommand command;
  for (std::uint32_t* field : {&command.device_key, &command.group_key, &command.group_mask}) {
    *field = in.Take<std::uint32_t>();
  }
  if (scheduled) command.time = in.Take<std::uint64_t>();
  if (!in.Ok()) return std::nullopt;
  return command;
}

}  // namespace Tarn
