#include "camera/engine/control/control_channel.h"

#include <algorithm>
#include <array>

#include "camera/wire/bootstrap.h"
#include "camera/wire/event_command.h"

namespace Tarn {
namespace {

bool IsWrite(Command command) { return command == Command::WriteReg || command == Command::WriteMem; }

/// Commands that may be sent to all devices at once.
bool IsForAll(Command command) {
  return command == Command::Discovery || command == Command::ForceIp || command == Command::Action;
}

/// Commands that show nothing about the holder's wish to keep control.
bool IsBystander(Command command) {
  return command == Command::Discovery || command == Command::ForceIp || command == Command::PacketResend ||
         command == Command::Action;
}

std::size_t Answer(MutableByteView buffer, const CommandHeader& command, WireStatus status,
                   std::size_t payload) {
  AckHeader header;
  header.status = status;
  header.acknowledge = static_cast<std::uint16_t>(static_cast<std::uint16_t>(command.command) + 1);
  header.length = static_cast<std::uint16_t>(payload);
  header.ack_id = command.request_id;
  ByteWriter out(buffer);
  header.Encode(out);
  return AckHeader::kSize + payload;
}

/// The header of a command that is as long as it says; the rest of `in` is its payload.
std::optional<CommandHeader> HeaderOf(ByteReader& in) {
  const std::optional<CommandHeader> header = CommandHeader::Decode(in);
  return header && header->length == in.Rest().size() ? header : std::nullopt;
}

/// How many bytes a memory read asks for.
/// \param in  behind the header
std::uint32_t ReadMemoryCount(ByteReader in) {
  in.Skip(6);  // address, reserved
  return in.Take<std::uint16_t>();
}

/// Answers to writes say how far they came: reserved, then the index.
void PutIndex(ByteWriter& out, std::size_t index) {
  out.Put(std::uint16_t{0});
  out.Put(static_cast<std::uint16_t>(index));
}

}  // namespace

std::size_t ControlChannel::Handle(const ControlRequest& request, ControlActions& actions,
                                   MutableByteView answer) {
  ByteReader in(request.bytes);
  const std::optional<CommandHeader> header = HeaderOf(in);
  if (!header) return 0;
  const Command command = header->command;
  const bool wants_answer = (header->flags & CommandFlag::kAckRequired) != 0;
  if (request.broadcast && !IsForAll(command)) return 0;
  if (!wants_answer && (command == Command::ReadReg || command == Command::ReadMem)) return 0;
  if (IsWrite(command)) {
    const ByteView known = answered_.Find(request.source, request.bytes);
    if (!known.empty()) {
      std::ranges::copy(known, answer.begin());
      return wants_answer ? known.size() : 0;
    }
  }

  ByteWriter out(answer.subspan(AckHeader::kSize));
  Context context{request, *header, actions, in, out};
  if (command == Command::PacketResend) {
    RequestResend(context);
    return 0;
  }
  bool silent = !wants_answer;
  const WireStatus status = Execute(context, silent);
  // Refused reads carry nothing, refused writes the place of the failure.
  const std::size_t payload = status == WireStatus::Success || IsWrite(command) ? out.Size() : 0;
  const std::size_t size = Answer(answer, *header, status, payload);
  if (IsWrite(command) && privilege_.IsHolder(request.source)) {
    answered_.Remember(request.source, request.bytes, ByteView(answer).first(size));
  }
  return silent ? 0 : size;
}

WireStatus ControlChannel::Execute(Context& context, bool& silent) {
  switch (context.header.command) {
    case Command::Discovery:
      return Discovery(context);
    case Command::ForceIp:
      return ForceIp(context, silent);
    case Command::Action:
      return Action(context, silent);
    case Command::ReadReg:
      return ReadRegisters(context);
    case Command::ReadMem:
      return ReadMemory(context);
    case Command::WriteReg:
      return WriteRegisters(context);
    case Command::WriteMem:
      return WriteMemory(context);
    default:
      return WireStatus::NotImplemented;
  }
}

WireStatus ControlChannel::Discovery(Context& context) {
  std::array<std::uint8_t, Bootstrap::kDiscoveryEnd> block{};
  registers_.Read(0, block);
  context.out.PutBytes(block);
  return WireStatus::Success;
}

WireStatus ControlChannel::ForceIp(Context& context, bool& silent) {
  const std::optional<ForceIpCommand> wanted = ForceIpCommand::Decode(context.in);
  const SparseMemory& memory = tree_.Memory();
  const std::uint64_t own_mac = memory.Load64(Bootstrap::kMacHigh);
  // Meant for another device, or for a restart of an address configuration that the host does for us.
  silent = silent || !wanted || wanted->mac != own_mac || wanted->address == 0;
  if (silent) return WireStatus::Success;
  const bool as_it_is = wanted->address == memory.Load32(Bootstrap::kCurrentAddress) &&
                        wanted->mask == memory.Load32(Bootstrap::kCurrentMask) &&
                        wanted->gateway == memory.Load32(Bootstrap::kCurrentGateway);
  return as_it_is ? WireStatus::Success : WireStatus::AccessDenied;
}

WireStatus ControlChannel::ReadRegisters(Context& context) {
  const ByteView list = context.in.Rest();
  if (list.empty() || list.size() % 4 != 0) return WireStatus::InvalidHeader;
  if (list.size() > kMaxControlPayload) return WireStatus::InvalidParameter;
  if (!privilege_.MayRead(context.request.source)) return WireStatus::AccessDenied;
  for (std::size_t at = 0; at < list.size(); at += 4) {
    const auto address = LoadBe<std::uint32_t>(list.data() + at);
    if (address % 4 != 0) return WireStatus::BadAlignment;
    const WireStatus status = registers_.CheckRead(address, 4, false);
    if (status != WireStatus::Success) return status;
  }
  for (std::size_t at = 0; at < list.size(); at += 4) {
    const auto address = LoadBe<std::uint32_t>(list.data() + at);
    context.actions.BeforeRead(address, 4);
    std::array<std::uint8_t, 4> word{};
    registers_.Read(address, word);
    context.out.PutBytes(word);
  }
  return WireStatus::Success;
}

WireStatus ControlChannel::ReadMemory(Context& context) {
  if (context.header.length != 8) return WireStatus::InvalidHeader;
  const auto address = context.in.Take<std::uint32_t>();
  context.in.Skip(2);
  const auto count = context.in.Take<std::uint16_t>();
  if (address % 4 != 0 || count % 4 != 0) return WireStatus::BadAlignment;
  if (count == 0 || count > kMaxMemoryBytes) return WireStatus::InvalidParameter;
  if (!privilege_.MayRead(context.request.source)) return WireStatus::AccessDenied;
  const WireStatus status = registers_.CheckRead(address, count, true);
  if (status != WireStatus::Success) return status;
  context.actions.BeforeRead(address, count);
  std::array<std::uint8_t, kMaxMemoryBytes> bytes{};
  const MutableByteView wanted = MutableByteView(bytes).first(count);
  registers_.Read(address, wanted);
  context.out.Put(address);
  context.out.PutBytes(wanted);
  return WireStatus::Success;
}

WireStatus ControlChannel::WriteRegisters(Context& context) {
  constexpr std::size_t kPair = 8;  // address, value
  const ByteView list = context.in.Rest();
  WireStatus status = WireStatus::Success;
  std::size_t done = 0;
  if (list.empty() || list.size() % kPair != 0) {
    status = WireStatus::InvalidHeader;
  } else if (list.size() > kMaxControlPayload) {
    status = WireStatus::InvalidParameter;
  } else {
    for (; done < list.size() / kPair; ++done) {
      const std::uint8_t* pair = list.data() + done * kPair;
      status = WriteUnit(context, LoadBe<std::uint32_t>(pair), ByteView(pair + 4, 4));
      if (status != WireStatus::Success) break;
    }
  }
  PutIndex(context.out, done);
  return status;
}

WireStatus ControlChannel::WriteMemory(Context& context) {
  const auto address = context.in.Take<std::uint32_t>();
  const ByteView bytes = context.in.Rest();
  WireStatus status = WireStatus::Success;
  std::size_t done = 0;
  if (!context.in.Ok() || bytes.empty()) {
    status = WireStatus::InvalidHeader;
  } else if (address % 4 != 0 || bytes.size() % 4 != 0) {
    status = WireStatus::BadAlignment;
  } else if (bytes.size() > kMaxMemoryBytes) {
    status = WireStatus::InvalidParameter;
  } else if (bytes.size() > (std::uint64_t{1} << 32) - address) {
    status = WireStatus::InvalidAddress;
  } else {
    while (done < bytes.size() && status == WireStatus::Success) {
      const auto at = static_cast<std::uint32_t>(address + done);
      const std::uint32_t unit = registers_.UnitLength(at, static_cast<std::uint32_t>(bytes.size() - done));
      status = WriteUnit(context, at, bytes.subspan(done, unit));
      if (status == WireStatus::Success) done += unit;
    }
  }
  PutIndex(context.out, done);
  return status;
}

WireStatus ControlChannel::WriteUnit(Context& context, std::uint32_t address, ByteView bytes) {
  if (address % 4 != 0) return WireStatus::BadAlignment;
  if (address == Bootstrap::kControlPrivilege)
    return WritePrivilege(context, LoadBe<std::uint32_t>(bytes.data()));
  const WireStatus exists = registers_.CheckRead(address, 4, false);
  if (exists != WireStatus::Success) return exists;
  if (!privilege_.IsHolder(context.request.source)) return WireStatus::AccessDenied;
  const WireStatus status =
      registers_.Write(address, bytes, {context.request.source, context.actions.Streaming()});
  if (status == WireStatus::Success) {
    context.actions.AfterWrite(address, static_cast<std::uint32_t>(bytes.size()));
  }
  return status;
}

WireStatus ControlChannel::WritePrivilege(Context& context, std::uint32_t value) {
  const Endpoint before = privilege_.Holder();
  const std::uint32_t key = Switchover::Key::Get(tree_.Memory().Load32(Bootstrap::kSwitchoverKey));
  const WireStatus status = privilege_.Write(context.request.source, value, key, context.request.arrival);
  if (status != WireStatus::Success) return status;
  if (!privilege_.Held() && before != Endpoint{}) {
    Close();
  } else {
    ShowPrivilege();
  }
  if (privilege_.Held() && before == Endpoint{}) ForgetDestinations();
  const bool switched = privilege_.Held() && before != Endpoint{} && !privilege_.IsHolder(before);
  if (switched) context.actions.Report(EventNumber::kPrimaryApplicationSwitch);
  context.actions.AfterWrite(Bootstrap::kControlPrivilege, 4);
  return status;
}

void ControlChannel::ShowPrivilege() {
  SparseMemory& memory = tree_.Memory();
  memory.Store32(Bootstrap::kControlPrivilege, privilege_.Register());
  memory.Store32(Bootstrap::kPrimaryPort, privilege_.Holder().port);
  memory.Store32(Bootstrap::kPrimaryAddress, privilege_.Holder().address);
  tree_.NoteStore(Bootstrap::kControlPrivilege);
}

/// An earlier client's addresses are not the new one's to send to. Who takes control over by key goes on with
/// what the holder before chose.
void ControlChannel::ForgetDestinations() {
  SparseMemory& memory = tree_.Memory();
  for (const std::uint32_t reg : {Bootstrap::kMessageDestination, Bootstrap::kStreamDestination}) {
    if (IsAllowedDestination(memory.Load32(reg), privilege_.Holder().address)) continue;
    memory.Store32(reg, 0);
    tree_.NoteStore(reg);
  }
}

void ControlChannel::RequestResend(const Context& context) {
  // Clients ask from their stream socket, so the port says nothing about who asks.
  if (!privilege_.Held() || privilege_.Holder().address != context.request.source.address) return;
  const bool extended = (context.header.flags & CommandFlag::kExtendedIds) != 0;
  const std::optional<ResendCommand> command = ResendCommand::Decode(context.in, extended);
  if (command && command->channel == 0) context.actions.Resend(*command, context.request.source);
}

Reception ControlChannel::Arrived(const ControlRequest& request) {
  ByteReader in(request.bytes);
  const std::optional<CommandHeader> header = HeaderOf(in);
  if (!header) return {Reception::Turn::Never, {}};
  if (!IsBystander(header->command)) privilege_.Heard(request.source, request.arrival);
  const Reception admitted = Admit(request, *header, in);
  if (admitted.turn != Reception::Turn::Now || !HasListeners(header->command, in)) return admitted;
  const bool holder = privilege_.IsHolder(request.source);
  return {holder ? Reception::Turn::ListenersFirst : Reception::Turn::Listeners, {}};
}

Reception ControlChannel::Admit(const ControlRequest& request, const CommandHeader& header, ByteReader in) {
  constexpr Reception kDropped{Reception::Turn::Never, {}};
  const std::uint32_t source = request.source.address;
  if (header.command == Command::Discovery) {
    if (!open_access_.AdmitsDiscovery(source, request.arrival)) return kDropped;
    const std::uint32_t most =
        DiscoveryDelay::Milliseconds::Get(tree_.Memory().Load32(Bootstrap::kDiscoveryDelay));
    if (!request.broadcast || most == 0) return {};
    return {Reception::Turn::Later, request.arrival + open_access_.Delay(most)};
  }
  if (header.command == Command::ReadMem && !privilege_.IsHolder(request.source)) {
    constexpr std::uint32_t kWithoutExcess = 4;  // the question's own length
    const std::uint32_t count = ReadMemoryCount(in);
    const std::uint32_t excess = std::max(count, kWithoutExcess) - kWithoutExcess;
    if (!open_access_.AdmitsRead(source, excess, request.arrival)) return kDropped;
  }
  return {};
}

bool ControlChannel::HasListeners(Command command, ByteReader in) const {
  switch (command) {
    case Command::ReadMem: {
      const auto address = in.Take<std::uint32_t>();
      in.Skip(2);
      return registers_.HasListeners(address, in.Take<std::uint16_t>(), NodeEvent::Read);
    }
    case Command::WriteMem: {
      const auto address = in.Take<std::uint32_t>();
      return registers_.HasListeners(address, static_cast<std::uint32_t>(in.Rest().size()), NodeEvent::Write);
    }
    case Command::ReadReg:
    case Command::WriteReg: {
      const bool read = command == Command::ReadReg;
      const std::size_t step = read ? 4 : 8;
      for (; in.Rest().size() >= step; in.Skip(step)) {
        const auto address = LoadBe<std::uint32_t>(in.Rest().data());
        if (registers_.HasListeners(address, 4, read ? NodeEvent::Read : NodeEvent::Write)) return true;
      }
      return false;
    }
    default:
      return false;
  }
}

bool ControlChannel::TakesActions() const {
  const std::uint32_t configuration = tree_.Memory().Load32(Bootstrap::kControlConfiguration);
  return privilege_.Held() || ControlConfiguration::UnconditionalAction::Get(configuration) != 0;
}

WireStatus ControlChannel::Action(Context& context, bool& silent) {
  const ControlRequest& request = context.request;
  const bool scheduled = (context.header.flags & CommandFlag::kScheduled) != 0;
  const std::optional<ActionCommand> action = ActionCommand::Decode(context.in, scheduled);
  if (!action) {
    silent = silent || request.broadcast;
    return WireStatus::InvalidHeader;
  }
  const std::uint16_t id = context.header.request_id;
  if (const auto known = signals_.Answered(request.source, id, request.arrival)) return *known;
  const SignalSet signals = TakesActions() ? ActionSignals::Meant(*action, tree_.Memory()) : SignalSet();
  if (signals.none()) {
    silent = true;  // meant for others: most who hear a broadcast are not addressed
    return WireStatus::Success;
  }
  const WireStatus status = Act(context, *action, signals);
  signals_.Remember(request.source, id, status, request.arrival);
  return status;
}

WireStatus ControlChannel::Act(Context& context, const ActionCommand& action, SignalSet signals) {
  WireStatus status = WireStatus::Success;
  if (!action.time) {
    context.actions.Fire(signals);
    return status;
  }
  const Instant due = context.actions.AtTicks(*action.time);
  if (due <= context.request.arrival) {
    status = WireStatus::ActionLate;
    context.actions.Fire(signals);
    context.actions.Report(EventNumber::kActionLate);
  } else if (!signals_.Schedule(signals, due)) {
    status = WireStatus::Overflow;
  }
  // Clients that do not know the newer codes are told that something is wrong, but not what.
  const std::uint32_t configuration = tree_.Memory().Load32(Bootstrap::kControlConfiguration);
  const bool extended = ControlConfiguration::ExtendedStatus2::Get(configuration) != 0;
  return extended || status == WireStatus::Success ? status : WireStatus::Error;
}

void ControlChannel::FireDue(Instant now, ControlActions& actions) {
  for (SignalSet due = signals_.TakeDue(now); due.any(); due = signals_.TakeDue(now)) actions.Fire(due);
}

Instant ControlChannel::HeartbeatDeadline() const {
  const std::uint32_t configuration = tree_.Memory().Load32(Bootstrap::kControlConfiguration);
  if (!privilege_.Held() || ControlConfiguration::HeartbeatDisable::Get(configuration) != 0)
    return Instant::max();
  return privilege_.LastHeard() +
         std::chrono::milliseconds(tree_.Memory().Load32(Bootstrap::kHeartbeatTimeout));
}

void ControlChannel::Expire(Instant now) {
  if (now >= HeartbeatDeadline()) Close();
}

void ControlChannel::Reset() {
  Close();
  signals_.Clear();
}

void ControlChannel::Close() {
  privilege_.Release();
  answered_.Clear();
  if (!TakesActions()) signals_.Clear();
  ShowPrivilege();
  tree_.Memory().Store32(Bootstrap::kMessagePort, 0);
  tree_.NoteStore(Bootstrap::kMessagePort);
  if (!registers_.Profile().has_stream) return;
  tree_.Memory().Store32(Bootstrap::kStreamPort, 0);
  tree_.NoteStore(Bootstrap::kStreamPort);
}

}  // namespace Tarn
