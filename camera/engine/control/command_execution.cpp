#include "camera/engine/control/command_execution.h"

#include <algorithm>

#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

constexpr std::size_t kPair = 8;  ///< of a register write: address, value

/// What is wrong with a command's form; Success when nothing is.
WireStatus FormOf(const CommandHeader& header, ByteReader payload) {
  const std::size_t size = payload.Rest().size();
  switch (header.command) {
    case Command::ReadReg:
    case Command::WriteReg: {
      const std::size_t unit = header.command == Command::ReadReg ? 4 : kPair;
      if (size == 0 || size % unit != 0) return WireStatus::InvalidHeader;
      return size > kMaxControlPayload ? WireStatus::InvalidParameter : WireStatus::Success;
    }
    case Command::ReadMem: {
      if (size != 8) return WireStatus::InvalidHeader;
      const auto address = payload.Take<std::uint32_t>();
      payload.Skip(2);
      const auto count = payload.Take<std::uint16_t>();
      if (address % 4 != 0 || count % 4 != 0) return WireStatus::BadAlignment;
      return count == 0 || count > kMaxMemoryBytes ? WireStatus::InvalidParameter : WireStatus::Success;
    }
    case Command::WriteMem: {
      const auto address = payload.Take<std::uint32_t>();
      const std::size_t count = payload.Rest().size();
      if (!payload.Ok() || count == 0) return WireStatus::InvalidHeader;
      if (address % 4 != 0 || count % 4 != 0) return WireStatus::BadAlignment;
      if (count > kMaxMemoryBytes) return WireStatus::InvalidParameter;
      return count > (std::uint64_t{1} << 32) - address ? WireStatus::InvalidAddress : WireStatus::Success;
    }
    default:
      return WireStatus::Success;
  }
}

}  // namespace

bool IsMalformed(const CommandHeader& header, ByteReader payload) {
  return FormOf(header, payload) != WireStatus::Success;
}

void CommandExecution::Begin(const ControlRequest& request, const CommandHeader& header, bool listens) {
  request_ = request;
  header_ = header;
  payload_ = request.bytes.empty() ? ByteView() : request.bytes.subspan(CommandHeader::kSize);
  listens_ = listens;
  silent_ = (header.flags & CommandFlag::kAckRequired) == 0;
  for_others_ = false;
  done_ = false;
  at_ = 0;
  units_done_ = 0;
  told_ = false;
  steps_.clear();
  next_step_ = 0;
  out_size_ = 0;
  acknowledge_size_ = 0;
  status_ = FormOf(header, ByteReader(payload_));
  if (IsRead(header.command) && status_ == WireStatus::Success) CheckReads();
}

void CommandExecution::BeginNotification(std::uint32_t address) {
  Begin({}, {}, true);
  AddWritten(address, 4);
}

/// All or nothing: a read is refused before the first listener is called.
void CommandExecution::CheckReads() {
  if (!device_.Session().Privilege().MayRead(request_.source)) {
    status_ = WireStatus::AccessDenied;
    return;
  }
  const bool block = header_.command == Command::ReadMem;
  ByteReader in(payload_);
  while (status_ == WireStatus::Success && !in.Rest().empty()) {
    const auto address = in.Take<std::uint32_t>();
    std::uint32_t length = 4;
    if (block) {
      in.Skip(2);
      length = in.Take<std::uint16_t>();
    }
    status_ =
        address % 4 != 0 ? WireStatus::BadAlignment : device_.Registers().CheckRead(address, length, block);
  }
}

Listeners CommandExecution::Run(Instant now) {
  Listeners listeners;
  while (!done_ && listeners.empty()) {
    if (next_step_ < steps_.size()) {
      listeners = RunStep(steps_[next_step_++]);
    } else {
      steps_.clear();
      next_step_ = 0;
      listeners = RunUnit(now);
    }
  }
  return listeners;
}

Listeners CommandExecution::RunUnit(Instant now) {
  const bool memory = header_.command == Command::ReadMem || header_.command == Command::WriteMem;
  const std::size_t size = header_.command == Command::ReadMem ? 4 : payload_.size() - (memory ? 4 : 0);
  const bool by_units = IsRead(header_.command) || IsWrite(header_.command);
  if (!by_units && status_ == WireStatus::Success && units_done_ == 0) RunWhole(now);
  if (!by_units || status_ != WireStatus::Success || at_ >= size) {
    Finish();
    return {};
  }
  const std::uint8_t* unit = payload_.data() + at_;
  const auto begin = LoadBe<std::uint32_t>(payload_.data());
  switch (header_.command) {
    case Command::ReadReg:
      return ReadUnit(LoadBe<std::uint32_t>(unit), 4);
    case Command::ReadMem:
      return ReadUnit(begin, LoadBe<std::uint16_t>(payload_.data() + 6));
    case Command::WriteReg:
      WriteUnit(LoadBe<std::uint32_t>(unit), ByteView(unit + 4, 4), now);
      at_ += kPair;
      return {};
    default: {
      const auto address = static_cast<std::uint32_t>(begin + at_);
      const std::uint32_t length =
          device_.Registers().UnitLength(address, static_cast<std::uint32_t>(size - at_));
      WriteUnit(address, payload_.subspan(4 + at_, length), now);
      at_ += length;
      return {};
    }
  }
}

Listeners CommandExecution::ReadUnit(std::uint32_t address, std::uint32_t length) {
  if (listens_ && !std::exchange(told_, true)) {
    return device_.Registers().Listeners(address, length, NodeEvent::Read);
  }
  told_ = false;
  ByteWriter out(MutableByteView(acknowledge_).subspan(AckHeader::kSize + out_size_));
  if (header_.command == Command::ReadMem) out.Put(address);
  std::array<std::uint8_t, kMaxMemoryBytes> bytes;
  device_.Registers().Read(address, MutableByteView(bytes).first(length));
  out.PutBytes(ByteView(bytes).first(length));
  out_size_ += out.Size();
  at_ += 4;
  return {};
}

void CommandExecution::WriteUnit(std::uint32_t address, ByteView bytes, Instant now) {
  status_ = Store(address, bytes, now);
  if (status_ != WireStatus::Success) return;
  units_done_ += header_.command == Command::WriteMem ? bytes.size() : 1;
  const bool saves =
      address == ManufacturerRegister::kUserSetSave && device_.Tree().Memory().Load32(address) != 0;
  const std::vector<PlacedRegister> loaded = device_.ApplyStores(now);
  if (saves) {
    // Once more, after all whose values are brought up to date by read listeners were.
    for (const PlacedRegister& reg : device_.Registers().Streamable()) {
      steps_.push_back(
          {Step::Kind::TellRead, static_cast<std::uint32_t>(reg.address), reg.node->reg->length});
    }
    steps_.push_back({Step::Kind::SaveUserSet});
  }
  AddWritten(address, static_cast<std::uint32_t>(bytes.size()));
  for (const PlacedRegister& reg : loaded) {
    AddWritten(static_cast<std::uint32_t>(reg.address), reg.node->reg->length);
  }
}

WireStatus CommandExecution::Store(std::uint32_t address, ByteView bytes, Instant now) {
  if (address % 4 != 0) return WireStatus::BadAlignment;
  if (address == Bootstrap::kControlPrivilege) {
    return device_.WritePrivilege(request_.source, LoadBe<std::uint32_t>(bytes.data()), now);
  }
  const WireStatus exists = device_.Registers().CheckExists(address);
  if (exists != WireStatus::Success) return exists;
  return device_.Write(request_.source, address, bytes);
}

void CommandExecution::AddWritten(std::uint32_t address, std::uint32_t length) {
  if (listens_) steps_.push_back({Step::Kind::TellWritten, address, length});
  steps_.push_back({Step::Kind::FinishCommands, address, length});
}

Listeners CommandExecution::RunStep(const Step& step) {
  switch (step.kind) {
    case Step::Kind::TellRead:
      return device_.Registers().Listeners(step.address, step.length, NodeEvent::Read);
    case Step::Kind::TellWritten:
      return device_.Registers().Listeners(step.address, step.length, NodeEvent::Write);
    case Step::Kind::FinishCommands:
      // A client that waits for the end of a command reads its register until the number is gone.
      device_.Registers().FinishCommands(step.address, step.length);
      return {};
    case Step::Kind::SaveUserSet:
      device_.SaveUserSet();
      return {};
  }
  return {};
}

/// Commands that are no lists of accesses.
void CommandExecution::RunWhole(Instant now) {
  ++units_done_;
  switch (header_.command) {
    case Command::Discovery:
      status_ = Discovery();
      break;
    case Command::ForceIp:
      status_ = ForceIp();
      break;
    case Command::Action:
      status_ = Action(now);
      break;
    case Command::PacketResend:
      Resend();
      silent_ = true;
      break;
    default:
      status_ = WireStatus::NotImplemented;
      break;
  }
}

WireStatus CommandExecution::Discovery() {
  std::array<std::uint8_t, Bootstrap::kDiscoveryEnd> block{};
  device_.Registers().Read(0, block);
  ByteWriter out = Out();
  out.PutBytes(block);
  out_size_ = out.Size();
  return WireStatus::Success;
}

WireStatus CommandExecution::ForceIp() {
  ByteReader in(payload_);
  const std::optional<ForceIpCommand> wanted = ForceIpCommand::Decode(in);
  const SparseMemory& memory = device_.Tree().Memory();
  const std::uint64_t own_mac = memory.Load64(Bootstrap::kMacHigh);
  // Addressed to another device, or for a restart of an address configuration that the host does for us; and
  // a device that somebody controls is left alone.
  const bool ours = wanted && wanted->mac == own_mac && wanted->address != 0;
  silent_ = silent_ || !ours || device_.Session().Privilege().Held();
  if (silent_) return WireStatus::Success;
  const bool as_it_is = wanted->address == memory.Load32(Bootstrap::kCurrentAddress) &&
                        wanted->mask == memory.Load32(Bootstrap::kCurrentMask) &&
                        wanted->gateway == memory.Load32(Bootstrap::kCurrentGateway);
  return as_it_is ? WireStatus::Success : WireStatus::AccessDenied;
}

WireStatus CommandExecution::Action(Instant now) {
  ByteReader in(payload_);
  const bool scheduled = (header_.flags & CommandFlag::kScheduled) != 0;
  const std::optional<ActionCommand> action = ActionCommand::Decode(in, scheduled);
  if (!action) {
    silent_ = silent_ || request_.broadcast;
    return WireStatus::InvalidHeader;
  }
  const std::optional<WireStatus> status = device_.Act(*action, request_.source, now);
  // Most actions that a device hears by broadcast are addressed to others.
  for_others_ = !status;
  silent_ = silent_ || for_others_;
  return status.value_or(WireStatus::Success);
}

void CommandExecution::Resend() {
  if (device_.Session().Privilege().Primary().address != request_.source.address) return;
  ByteReader in(payload_);
  const bool extended = (header_.flags & CommandFlag::kExtendedIds) != 0;
  const std::optional<ResendCommand> command = ResendCommand::Decode(in, extended);
  if (command && command->channel == 0) device_.Resend(*command, request_.source);
}

void CommandExecution::Finish() {
  done_ = true;
  if (IsWrite(header_.command)) {  // also a refused one says how far it came: reserved, then the index
    ByteWriter out = Out();
    out.Put(std::uint16_t{0});
    out.Put(static_cast<std::uint16_t>(units_done_));
    out_size_ = out.Size();
  }
  const bool has_payload = status_ == WireStatus::Success || IsWrite(header_.command);
  AckHeader header;
  header.status = status_;
  header.acknowledge = static_cast<std::uint16_t>(static_cast<std::uint16_t>(header_.command) + 1);
  header.length = static_cast<std::uint16_t>(has_payload ? out_size_ : 0);
  header.ack_id = header_.request_id;
  ByteWriter out(acknowledge_);
  header.Encode(out);
  acknowledge_size_ = AckHeader::kSize + header.length;
}

}  // namespace Tarn
