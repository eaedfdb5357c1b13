#include "camera/device/message_channel.h"

#include "camera/engine/features/event_features.h"

namespace Tarn {
namespace {

constexpr int kMaxInOneGo = 64;  // acknowledges before others get their turn

}  // namespace

MessageChannel::MessageChannel(std::uint32_t address, std::shared_ptr<const DeviceClock> clock)
    : clock_(std::move(clock)), socket_(address) {}

void MessageChannel::Configure(const EventChannelConfig& config) {
  const MutexLock lock(mutex_);
  const Instant before = sender_.Deadline();
  sender_.Configure(config);
  if (sender_.Deadline() < before) wakeup_.Wake();
}

void MessageChannel::NotifyFrames(bool starts, bool ends) {
  notifies_starts_ = starts;
  notifies_ends_ = ends;
}

void MessageChannel::Queue(const EventItem& item, ByteView data) {
  const MutexLock lock(mutex_);
  sender_.Push(item, data);
}

void MessageChannel::SendDue() {
  const MutexLock lock(mutex_);
  const Instant before = sender_.Deadline();
  SendDueLocked();
  if (sender_.Deadline() < before) wakeup_.Wake();
}

void MessageChannel::SendDueLocked() {
  const Instant now = Now();
  for (ByteView command = sender_.Next(now); !command.empty(); command = sender_.Next(now)) {
    socket_.Send(command, sender_.Config().destination);
  }
}

void MessageChannel::SendFrame(std::uint16_t number, std::uint64_t block_id) {
  EventItem item;
  item.number = number;
  item.channel = 0;
  item.block_id = block_id;
  item.timestamp = clock_->TicksAt(Now());
  Queue(item, {});
  SendDue();
}

void MessageChannel::FrameStarts(std::uint64_t block_id) noexcept {
  if (notifies_starts_) SendFrame(EventNumber::kFrameStart, block_id);
}

void MessageChannel::FrameEnds(std::uint64_t block_id) noexcept {
  if (notifies_ends_) SendFrame(EventNumber::kFrameEnd, block_id);
}

Instant MessageChannel::Deadline() const {
  const MutexLock lock(mutex_);
  return sender_.Deadline();
}

void MessageChannel::Serve() {
  wakeup_.Clear();
  const MutexLock lock(mutex_);
  std::array<std::uint8_t, kMaxControlDatagram> buffer;
  for (int i = 0; i < kMaxInOneGo; ++i) {
    const auto received = socket_.Receive(buffer);
    if (!received) break;
    sender_.Receive(received->bytes, received->source);
    SendDueLocked();  // before the next acknowledge: it may be for what is sent now
  }
  SendDueLocked();
}

EventCounters MessageChannel::Counters() const {
  const MutexLock lock(mutex_);
  return sender_.Counters();
}

}  // namespace Tarn
