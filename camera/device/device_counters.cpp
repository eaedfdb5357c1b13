// What the device counts, as its features show it.

#include "camera/device/device.h"
#include "camera/engine/registers/own_registers.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// \param answer  as it goes to the client; empty for silence
void Device::CountAnswer(ByteView answer) {
  ByteReader in(answer);
  const std::optional<AckHeader> header = AckHeader::Decode(in);
  if (header && header->status == WireStatus::AccessDenied) ++refused_commands_;
}

void Device::ShowCounters() {
  SparseMemory& memory = tree_.Memory();
  memory.Store64(OwnRegisters::kHeartbeatTimeouts, heartbeat_timeouts_);
  memory.Store64(OwnRegisters::kRefusedCommands, refused_commands_);
  if (messages_) {
    const EventCounters events = messages_->Counters();
    memory.Store64(OwnRegisters::kEventsSent, events.sent);
    memory.Store64(OwnRegisters::kEventsRepeated, events.repeated);
    memory.Store64(OwnRegisters::kEventsLost, events.lost);
    memory.Store64(OwnRegisters::kEventsDropped, events.dropped);
  }
  if (!stream_) return;  // what the last run counted stays
  const StreamCounters counters = stream_->Counters();
  memory.Store64(OwnRegisters::kStreamFrames, counters.frames);
  memory.Store64(OwnRegisters::kStreamDroppedFrames, counters.dropped_blocks);
  memory.Store64(OwnRegisters::kStreamPackets, counters.packets);
  memory.Store64(OwnRegisters::kStreamBytes, counters.bytes);
  memory.Store64(OwnRegisters::kStreamResentPackets, counters.resent_packets);
  memory.Store64(OwnRegisters::kStreamFailedPackets, counters.failed_sends);
  memory.Store64(OwnRegisters::kStreamUnreachable, counters.unreachable);
}

}  // namespace Tarn
