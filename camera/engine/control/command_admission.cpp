#include "camera/engine/control/command_admission.h"

#include "camera/engine/control/command_execution.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

enum class Kind { ForAll, Resend, PrivilegeRead, Read, PrivilegeWrite, Write, Unknown };
enum class Sender { Primary, Free, Held, Exclusive };

/// Rows by Kind, columns by Sender.
constexpr Turn kTurns[][4] = {
    {Turn::AtOnce, Turn::AtOnce, Turn::AtOnce, Turn::AtOnce},
    {Turn::AtOnce, Turn::Dropped, Turn::AtOnce, Turn::AtOnce},
    {Turn::AtOnce, Turn::InOrder, Turn::InOrder, Turn::Refused},
    {Turn::InOrder, Turn::InOrder, Turn::InOrder, Turn::Refused},
    {Turn::InOrder, Turn::InOrder, Turn::InOrder, Turn::InOrder},
    {Turn::InOrder, Turn::Refused, Turn::Refused, Turn::Refused},
    {Turn::Refused, Turn::Refused, Turn::Refused, Turn::Refused},
};

bool BeginsWithPrivilege(ByteReader payload) {
  return payload.Take<std::uint32_t>() == Bootstrap::kControlPrivilege && payload.Ok();
}

Kind KindOf(const CommandHeader& header, ByteReader payload) {
  switch (header.command) {
    case Command::Discovery:
    case Command::ForceIp:
    case Command::Action:
      return Kind::ForAll;
    case Command::PacketResend:
      return Kind::Resend;
    case Command::ReadReg:
      return header.length == 4 && BeginsWithPrivilege(payload) ? Kind::PrivilegeRead : Kind::Read;
    case Command::ReadMem:
      return Kind::Read;
    case Command::WriteReg:
    case Command::WriteMem:
      return BeginsWithPrivilege(payload) ? Kind::PrivilegeWrite : Kind::Write;
    default:
      return Kind::Unknown;
  }
}

Sender SenderOf(Endpoint source, const ControlPrivilege& privilege) {
  if (privilege.IsPrimary(source)) return Sender::Primary;
  if (!privilege.Held()) return Sender::Free;
  return privilege.MayRead(source) ? Sender::Held : Sender::Exclusive;
}

}  // namespace

Turn TurnOf(const ControlRequest& request, const CommandHeader& header, ByteReader payload,
            const ControlSession& session) {
  const Kind kind = KindOf(header, payload);
  if (request.broadcast && kind != Kind::ForAll) return Turn::Dropped;
  if (IsRead(header.command) && (header.flags & CommandFlag::kAckRequired) == 0) return Turn::Dropped;
  if (IsMalformed(header, payload)) return Turn::Refused;
  if (kind == Kind::PrivilegeWrite) {
    ByteReader in = payload;
    in.Skip(4);
    const auto value = in.Take<std::uint32_t>();
    if (session.Refuses(request.source, value, request.arrival)) return Turn::Refused;
  }
  const Sender sender = SenderOf(request.source, session.Privilege());
  return kTurns[static_cast<int>(kind)][static_cast<int>(sender)];
}

bool IsSignOfLife(Command command) {
  return command == Command::ReadReg || command == Command::ReadMem || command == Command::WriteReg ||
         command == Command::WriteMem;
}

}  // namespace Tarn
