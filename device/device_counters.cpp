// What the device counts, as its features show it.

#include "device/device.h"
#include "engine/registers/own_registers.h"
#include "wire/gvcp.h"

namespace Tarn {
namespace {

void Store64(SparseMemory& memory, std::uint32_t address, std::uint64_t value) {
  memory.Store32(address, static_cast<std::uint32_t>(value >> 32));
  memory.Store32(address + 4, static_cast<std::uint32_t>(value));
}

}  // namespace

/// \param answer  as it goes to the client; empty for silence
void Device::CountAnswer(ByteView answer) {
  ByteReader in(answer);
  const std::optional<AckHeader> header = AckHeader::Decode(in);
  if (header && header->status == WireStatus::AccessDenied) ++refused_commands_;
}

void Device::ShowCounters() {
  SparseMemory& memory = tree_.Memory();
  Store64(memory, OwnRegisters::kHeartbeatTimeouts, heartbeat_timeouts_);
  Store64(memory, OwnRegisters::kRefusedCommands, refused_commands_);
  if (messages_) {
    const EventCounters events = messages_->Counters();
    Store64(memory, OwnRegisters::kEventsSent, events.sent);
    Store64(memory, OwnRegisters::kEventsRepeated, events.repeated);
    Store64(memory, OwnRegisters::kEventsLost, events.lost);
    Store64(memory, OwnRegisters::kEventsDropped, events.dropped);
  }
  if (!stream_) return;  // what the last run counted stays
  const StreamCounters counters = stream_->Counters();
  Store64(memory, OwnRegisters::kStreamFrames, counters.frames);
  Store64(memory, OwnRegisters::kStreamDroppedFrames, counters.dropped_blocks);
  Store64(memory, OwnRegisters::kStreamPackets, counters.packets);
  Store64(memory, OwnRegisters::kStreamBytes, counters.bytes);
  Store64(memory, OwnRegisters::kStreamResentPackets, counters.resent_packets);
  Store64(memory, OwnRegisters::kStreamFailedPackets, counters.failed_sends);
  Store64(memory, OwnRegisters::kStreamUnreachable, counters.unreachable);
}

}  // namespace Tarn
