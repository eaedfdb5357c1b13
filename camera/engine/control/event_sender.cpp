#include "camera/engine/control/event_sender.h"

#include <algorithm>

namespace Tarn {

void EventSender::Configure(const EventChannelConfig& config) {
  deadline_ +=
      config.timeout - config_.timeout;  // what waits for its acknowledge waits no longer than new ones
  config_ = config;
  if (config.IsOpen()) return;
  count_ = 0;
  awaiting_ = false;
}

void EventSender::Push(const EventItem& item, ByteView data) {
  if (!config_.IsOpen()) return;
  if (count_ == kMaxWaiting) {
    ++counters_.dropped;
    return;
  }
  Waiting& waiting = waiting_[(first_ + count_++) % kMaxWaiting];
  waiting.item = item;
  waiting.data_size = data.size() <= kMaxEventData ? data.size() : 0;
  std::copy_n(data.begin(), waiting.data_size, waiting.data.begin());
}

ByteView EventSender::Next(Instant now) {
  if (awaiting_ && now < deadline_) return {};
  if (awaiting_) {
    if (repeats_left_ != 0 && config_.timeout.count() != 0) return Repeat(now);
    awaiting_ = false;
    ++counters_.lost;
  }
  return count_ == 0 ? ByteView() : SendFirst(now);
}

ByteView EventSender::Repeat(Instant now) {
  --repeats_left_;
  deadline_ = now + config_.timeout;
  ++counters_.repeated;
  return ByteView(command_).first(command_size_);
}

ByteView EventSender::SendFirst(Instant now) {
  const Waiting& waiting = waiting_[first_];
  first_ = (first_ + 1) % kMaxWaiting;
  --count_;
  if (++last_id_ == 0) last_id_ = 1;

  EventCommand command;
  command.item = waiting.item;
  command.data = ByteView(waiting.data).first(waiting.data_size);
  command.request_id = last_id_;
  command.extended = config_.extended_ids;
  command.wants_answer = config_.timeout.count() != 0;
  ByteWriter out(command_);
  command.Encode(out);
  command_size_ = out.Size();
  code_ = command.Code();

  awaiting_ = command.wants_answer;
  deadline_ = now + config_.timeout;
  repeats_left_ = config_.retries;
  ++counters_.sent;
  return out.Written();
}

bool EventSender::MayAcknowledge(Endpoint source) const {
  constexpr std::uint32_t kMulticastPrefix = 0xE;  // 224.0.0.0/4
  return source == config_.destination || config_.destination.address >> 28 == kMulticastPrefix;
}

void EventSender::Receive(ByteView datagram, Endpoint source) {
  ByteReader in(datagram);
  const std::optional<AckHeader> ack = AckHeader::Decode(in);
  if (!awaiting_ || !ack || !MayAcknowledge(source)) return;
  if (ack->acknowledge != static_cast<std::uint16_t>(code_) + 1 || ack->ack_id != last_id_) return;
  awaiting_ = false;
}

}  // namespace Tarn
