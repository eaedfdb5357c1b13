// The device's side of events: who wants to be told, what happened, and where to send it.

#include "camera/device/device.h"
#include "camera/engine/features/event_features.h"
#include "camera/engine/features/event_numbers.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {

void Device::WatchEventSources() {
  event_sources_ = FindEventSources(tree_);
  std::unordered_set<const Node*> registers;
  for (const auto& [reg, numbers] : event_sources_) registers.insert(reg);
  tree_.Watch(std::move(registers));
}

void Device::ForgetEventSources() {
  tree_.Watch({});
  event_sources_.clear();
}

void Device::OpenMessages(std::uint32_t address) {
  messages_ = std::make_shared<MessageChannel>(address, clock_);
  FollowMessageChannel();  // the last run's source port is none of this one's
  FollowNotification();
}

void Device::FollowMessageChannel() {
  if (!messages_) return;
  SparseMemory& memory = tree_.Memory();
  const auto port =
      static_cast<std::uint16_t>(MessagePort::HostPort::Get(memory.Load32(Bootstrap::kMessagePort)));
  EventChannelConfig config;
  config.destination = {memory.Load32(Bootstrap::kMessageDestination), port};
  config.timeout = std::chrono::milliseconds(memory.Load32(Bootstrap::kMessageTimeout));
  config.retries = memory.Load32(Bootstrap::kMessageRetries);
  config.extended_ids =
      StreamConfiguration::ExtendedIds::Get(memory.Load32(Bootstrap::kStreamConfiguration)) != 0;
  memory.Store32(Bootstrap::kMessageSourcePort, port != 0 ? messages_->SourcePort() : 0);
  actions_.Post([messages = messages_, config] { messages->Configure(config); });
}

void Device::FollowNotification() {
  if (!messages_) return;
  const SparseMemory& memory = tree_.Memory();
  messages_->TellFrames(IsNotified(memory, EventNumber::kFrameStart),
                        IsNotified(memory, EventNumber::kFrameEnd));
}

void Device::FollowEventStore(const FeatureTree::WatchedStore& store) {
  const std::size_t length = store.reg->reg->length;
  std::vector<std::uint8_t> bytes(length <= kMaxEventData ? length : 0);
  tree_.Memory().Read(store.address, bytes);
  for (const std::uint16_t number : event_sources_.at(store.reg)) TellEvent(number, bytes);
}

void Device::TellEvent(std::uint16_t number, std::vector<std::uint8_t> data) {
  const SparseMemory& memory = tree_.Memory();
  const bool open = MessagePort::HostPort::Get(memory.Load32(Bootstrap::kMessagePort)) != 0;
  if (!messages_ || !open || !IsNotified(memory, number)) return;
  actions_.Post([messages = messages_, number, data = std::move(data)] { messages->Tell(number, data); });
}

}  // namespace Tarn
