#include "camera/device/message_channel.h"

#include "camera/engine/features/event_numbers.h"

namespace Tarn {
namespace {

constexpr int kMostInOneGo = 64;  // acknowledges before others get their turn

}  // namespace

MessageChannel::MessageChannel(std::uint32_t address, std::shared_ptr<const DeviceClock> clock)
    : clock_(std::move(clock)), socket_(address) {}

void MessageChannel::Configure(const EventChannelConfig& config) {
  const MutexLock lock(mutex_);
  const Instant before = sender_.Deadline();
  sender_.Configure(config);
  if (sender_.Deadline() < before) wakeup_.Wake();
}

void MessageChannel::TellFrames(bool starts, bool ends) {
  tells_starts_ = starts;
  tells_ends_ = ends;
}

void MessageChannel::Tell(std::uint16_t number, ByteView data) {
  EventItem item;
  item.number = number;
  Tell(item, data);
}

void MessageChannel::Tell(EventItem item, ByteView data) {
  const MutexLock lock(mutex_);
  item.timestamp = clock_->Ticks();  // here, so that timestamps rise in the order of sending
  const Instant before = sender_.Deadline();
  sender_.Push(item, data);
  SendDue();
  if (sender_.Deadline() < before) wakeup_.Wake();
}

void MessageChannel::SendDue() {
  const Instant now = Now();
  for (ByteView command = sender_.Next(now); !command.empty(); command = sender_.Next(now)) {
    socket_.Send(command, sender_.Config().destination);
  }
}

void MessageChannel::FrameStarts(std::uint64_t block_id) noexcept {
  if (tells_starts_) Tell({EventNumber::kFrameStart, 0, block_id, 0}, {});
}

void MessageChannel::FrameEnds(std::uint64_t block_id) noexcept {
  if (tells_ends_) Tell({EventNumber::kFrameEnd, 0, block_id, 0}, {});
}

Instant MessageChannel::Deadline() {
  const MutexLock lock(mutex_);
  return sender_.Deadline();
}

void MessageChannel::Serve() {
  wakeup_.Clear();
  const MutexLock lock(mutex_);
  std::array<std::uint8_t, kMaxControlDatagram> buffer;
  for (int i = 0; i < kMostInOneGo; ++i) {
    const auto received = socket_.Receive(buffer);
    if (!received) break;
    sender_.Heard(received->bytes, received->source);
    SendDue();  // before the next acknowledge: it may be for what is sent now
  }
  SendDue();
}

EventCounters MessageChannel::Counters() const {
  const MutexLock lock(mutex_);
  return sender_.Counters();
}

}  // namespace Tarn
