#include "camera/engine/control/control_plane.h"

#include <algorithm>
#include <array>
#include <utility>

#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kLimitedBroadcast = 0xFFFF'FFFF;
constexpr std::size_t kMaxDelayed = 64;  // discoveries

// Milliseconds. The program can store any number behind the feature: 0 would have pending acknowledges sent
// without a break, and twice as much as the largest would not fit into one.
constexpr std::uint32_t kMinPendingTimeout = 10;
constexpr std::uint32_t kMaxPendingTimeout = 0x7FFF;

/// The header of a command that is as long as it says; the rest of `in` is its payload.
std::optional<CommandHeader> HeaderOf(ByteReader& in) {
  const std::optional<CommandHeader> header = CommandHeader::Decode(in);
  return header && header->length == in.Rest().size() ? header : std::nullopt;
}

/// Whether the answer to a discovery or address assignment may go to everybody: to a client whose address is
/// outside the device's subnet no other way leads.
bool AllowsBroadcast(const ControlRequest& request) {
  ByteReader in(request.bytes);
  const CommandHeader header = *CommandHeader::Decode(in);
  return header.command != Command::Action && (header.flags & CommandFlag::kBroadcastAck) != 0;
}

/// Asks the client to wait: | reserved 16 | milliseconds 16 | behind an acknowledge's header.
std::array<std::uint8_t, AckHeader::kSize + 4> PendingAcknowledge(std::uint16_t request_id,
                                                                  std::chrono::milliseconds time) {
  std::array<std::uint8_t, AckHeader::kSize + 4> bytes;
  AckHeader header;
  header.acknowledge = kPendingAck;
  header.length = 4;
  header.ack_id = request_id;
  ByteWriter out(bytes);
  header.Encode(out);
  out.Put(std::uint16_t{0});
  out.Put(static_cast<std::uint16_t>(time.count()));
  return bytes;
}

/// What a read costs: bytes by which its answer is longer, and registers.
struct ReadCost {
  std::uint32_t excess_bytes = 0;
  std::uint32_t registers = 0;
};

ReadCost CostOf(const CommandHeader& header, ByteReader payload, const RegisterFile& registers) {
  constexpr std::uint32_t kWithoutExcess = 4;  // the question's own length
  if (header.command == Command::ReadReg) return {0, header.length / 4u};
  const auto address = payload.Take<std::uint32_t>();
  payload.Skip(2);
  const std::uint32_t count = payload.Take<std::uint16_t>();
  return {std::max(count, kWithoutExcess) - kWithoutExcess, 1 + registers.CountRegisters(address, count)};
}

}  // namespace

ControlPlane::ControlPlane(FeatureTree& tree, const std::optional<SensorFormat>& format, DeviceClock& clock,
                           Effects& effects, std::uint64_t secret)
    : effects_(effects), functions_(tree, format, clock, counters_, effects, secret), open_access_(secret) {}

void ControlPlane::Open(const DeviceFunctions::Ports& ports) {
  counters_ = {};
  functions_.Open(ports);
}

void ControlPlane::Close(Instant now) {
  functions_.Close(now);
  answered_writes_.Clear();
  answered_actions_.Clear();
  queue_.Clear();
  delayed_.clear();
  calling_ = false;
}

void ControlPlane::Receive(const ControlRequest& request) {
  ByteReader in(request.bytes);
  const std::optional<CommandHeader> header = HeaderOf(in);
  if (!header) return;
  if (!request.broadcast && IsSignOfLife(header->command)) {
    functions_.Session().Heard(request.source, request.arrival);
  }
  const Turn turn = TurnOf(request, *header, in, functions_.Session());
  if (turn == Turn::Dropped || Repeats(request, *header) || !Admit(request, *header, in)) return;
  const bool in_order =
      turn == Turn::InOrder && (queue_.HasCommandOf(request.source) || HasListeners(*header, in));
  if (in_order) {
    Enqueue(request);
  } else {
    ExecuteAtOnce(request, *header, request.arrival);
  }
}

/// Answers a command that was carried out before.
bool ControlPlane::Repeats(const ControlRequest& request, const CommandHeader& header) {
  const bool action = header.command == Command::Action;
  const bool write = IsWrite(header.command) && Privilege().IsPrimary(request.source);
  if (!action && !write) return false;
  const ByteView known =
      (action ? answered_actions_ : AnsweredWrites()).Find(request.source, request.bytes, request.arrival);
  if (known.empty()) return false;
  if ((header.flags & CommandFlag::kAckRequired) != 0) Send(known, request);
  return true;
}

/// False when the source asks for too much, or the answer is to go later.
bool ControlPlane::Admit(const ControlRequest& request, const CommandHeader& header, ByteReader payload) {
  const std::uint32_t source = request.source.address;
  bool admitted = true;
  if (header.command == Command::Discovery) {
    admitted = open_access_.AdmitsDiscovery(source, request.arrival);
    const std::uint32_t max =
        DiscoveryDelay::Milliseconds::Get(functions_.Tree().Memory().Load32(Bootstrap::kDiscoveryDelay));
    if (admitted && request.broadcast && max != 0) {
      if (delayed_.size() < kMaxDelayed) {
        delayed_.push_back({request.arrival + open_access_.Delay(max), WaitingCommand(request)});
        return false;
      }
      admitted = false;
    }
  } else if ((header.command == Command::ReadMem || header.command == Command::ReadReg) &&
             !Privilege().IsPrimary(request.source)) {
    const ReadCost cost = CostOf(header, payload, functions_.Registers());
    admitted = open_access_.AdmitsRead(source, cost.excess_bytes, cost.registers, request.arrival);
  }
  if (!admitted) ++counters_.dropped_commands;
  return admitted;
}

bool ControlPlane::IsInSubnet(std::uint32_t address) const {
  const SparseMemory& memory = functions_.Tree().Memory();
  const std::uint32_t mask = memory.Load32(Bootstrap::kCurrentMask);
  return (address & mask) == (memory.Load32(Bootstrap::kCurrentAddress) & mask);
}

/// Whether nodes hear of the command's accesses.
bool ControlPlane::HasListeners(const CommandHeader& header, ByteReader payload) const {
  const RegisterFile& registers = functions_.Registers();
  const bool write = IsWrite(header.command);
  const NodeEvent event = write ? NodeEvent::Write : NodeEvent::Read;
  const auto address = payload.Take<std::uint32_t>();
  switch (header.command) {
    case Command::ReadMem:
      payload.Skip(2);
      return registers.HasListeners(address, payload.Take<std::uint16_t>(), event);
    case Command::WriteMem:
      return registers.HasListeners(address, static_cast<std::uint32_t>(payload.Rest().size()), event);
    case Command::ReadReg:
    case Command::WriteReg:
      for (auto next = address; payload.Ok(); next = payload.Take<std::uint32_t>()) {
        if (registers.HasListeners(next, 4, event)) return true;
        if (write) payload.Skip(4);
      }
      return false;
    default:
      return false;
  }
}

void ControlPlane::Enqueue(const ControlRequest& request) {
  if (queue_.Add(request, Privilege().Primary()) == CommandQueue::Result::Full) ++counters_.dropped_commands;
}

/// A client begins anew with the ids that it used in an earlier session.
AnsweredCommands& ControlPlane::AnsweredWrites() {
  const std::uint64_t session = functions_.Session().Number();
  if (std::exchange(answered_session_, session) != session) answered_writes_.Clear();
  return answered_writes_;
}

void ControlPlane::ExecuteAtOnce(const ControlRequest& request, const CommandHeader& header, Instant now) {
  at_once_.Begin(request, header, false);
  at_once_.Run(now);
  functions_.ApplyStores(now);
  Finish(at_once_, request, now);
}

void ControlPlane::Finish(const CommandExecution& execution, const ControlRequest& request, Instant now) {
  ByteReader in(request.bytes);
  const Command command = CommandHeader::Decode(in)->command;
  if (execution.Status() == WireStatus::AccessDenied) ++counters_.refused_commands;
  if (IsWrite(command) && Privilege().IsPrimary(request.source)) {
    AnsweredWrites().Remember(request.source, request.bytes, execution.Acknowledge(), now);
  } else if (command == Command::Action && !execution.WasForOthers()) {
    answered_actions_.Remember(request.source, request.bytes, execution.Acknowledge(), now);
  }
  Send(execution.Answer(), request);
}

void ControlPlane::Send(ByteView answer, const ControlRequest& request) {
  if (answer.empty()) return;
  ControlDatagram& datagram = effects_.datagrams.emplace_back();
  datagram.destination = request.source;
  if (request.broadcast && AllowsBroadcast(request) && !IsInSubnet(request.source.address)) {
    datagram.destination.address = kLimitedBroadcast;
  }
  datagram.size = answer.size();
  std::ranges::copy(answer, datagram.buffer.begin());
}

Listeners ControlPlane::NextCalls(Instant now) {
  if (calling_ && current_) functions_.Session().Heard(current_->source, now);  // its silence was our doing
  while (calling_ || BeginNext()) {
    Listeners listeners = calling_execution_.Run(now);
    functions_.ApplyStores(now);
    if (!listeners.empty()) return listeners;
    calling_ = false;
    if (!current_) continue;
    Finish(calling_execution_, current_->Request(), now);
    functions_.Session().Heard(current_->source, now);
    queue_.Finish();
  }
  return {};
}

/// Takes what is next: signals and commands take turns, so that neither keeps the other waiting.
bool ControlPlane::BeginNext() {
  const bool signal = functions_.HasFired() && (signal_turn_ || queue_.Empty());
  signal_turn_ = !signal;
  if (signal) {
    current_ = nullptr;
    calling_execution_.BeginNotification(*functions_.TakeFired());
    return calling_ = true;
  }
  current_ = queue_.Take(Privilege().Primary());
  if (!current_) return false;
  const ControlRequest request = current_->Request();
  ByteReader in(request.bytes);
  calling_execution_.Begin(request, *CommandHeader::Decode(in), true);
  return calling_ = true;
}

void ControlPlane::OnStored(Instant now) { functions_.ApplyStores(now); }

void ControlPlane::CountFrame(std::uint64_t acquisition, Instant now) {
  functions_.TheAcquisition().CountFrame(acquisition, now);
  functions_.ApplyStores(now);
}

void ControlPlane::Advance(Instant now) {
  functions_.FireDue(now);
  if (now >= functions_.Session().HeartbeatDeadline(queue_.WaitsSince(Privilege().Primary()))) {
    ++counters_.heartbeat_timeouts;
    functions_.EndControl();
  }
  functions_.ApplyStores(now);
  SendPending(now);
  AnswerDelayed(now);
}

Instant ControlPlane::Deadline() const {
  const Endpoint primary = Privilege().Primary();
  Instant next =
      std::min(functions_.NextAction(), functions_.Session().HeartbeatDeadline(queue_.WaitsSince(primary)));
  if (const auto interval = PendingInterval()) next = std::min(next, queue_.NextPending(primary, *interval));
  for (const Delayed& delayed : delayed_) next = std::min(next, delayed.due);
  return next;
}

/// Nothing when the client wants no pending acknowledges.
std::optional<std::chrono::milliseconds> ControlPlane::PendingInterval() const {
  const SparseMemory& memory = functions_.Tree().Memory();
  if (ControlConfiguration::PendingAck::Get(memory.Load32(Bootstrap::kControlConfiguration)) == 0)
    return std::nullopt;
  return std::chrono::milliseconds(
      std::clamp(memory.Load32(Bootstrap::kPendingTimeout), kMinPendingTimeout, kMaxPendingTimeout));
}

void ControlPlane::SendPending(Instant now) {
  const std::optional<std::chrono::milliseconds> interval = PendingInterval();
  if (!interval) return;
  queue_.ForEachPending(Privilege().Primary(), *interval, now, [&](const WaitingCommand& command) {
    const ControlRequest request = command.Request();
    ByteReader in(request.bytes);
    const CommandHeader header = *CommandHeader::Decode(in);
    if ((header.flags & CommandFlag::kAckRequired) == 0) return;
    // Twice the interval at which they come, so that the client outlives a late one.
    Send(PendingAcknowledge(header.request_id, *interval * 2), request);
  });
}

void ControlPlane::AnswerDelayed(Instant now) {
  for (const Delayed& delayed : delayed_) {
    if (now < delayed.due) continue;
    const ControlRequest request = delayed.command.Request();
    ByteReader in(request.bytes);
    ExecuteAtOnce(request, *CommandHeader::Decode(in), now);
  }
  std::erase_if(delayed_, [now](const Delayed& delayed) { return now >= delayed.due; });
}

}  // namespace Tarn
