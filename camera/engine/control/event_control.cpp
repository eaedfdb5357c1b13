#include "camera/engine/control/event_control.h"

#include <unordered_set>
#include <utility>

#include "camera/engine/features/event_features.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

std::uint16_t MessagePortOf(const SparseMemory& memory) {
  return static_cast<std::uint16_t>(MessagePort::HostPort::Get(memory.Load32(Bootstrap::kMessagePort)));
}

}  // namespace

void EventControl::Publish() {
  DefineUserEvents(tree_);
  sources_ = FindEventSources(tree_);
}

void EventControl::Open(std::uint16_t source_port) {
  source_port_ = source_port;
  std::unordered_set<const Node*> registers;
  for (const auto& [reg, numbers] : sources_) registers.insert(reg);
  tree_.Watch(std::move(registers));
  OnChannelWritten();
  OnNotificationWritten();
}

void EventControl::Close() {
  source_port_ = 0;
  tree_.Watch({});
  sources_.clear();
}

void EventControl::OnChannelWritten() {
  if (source_port_ == 0) return;
  SparseMemory& memory = tree_.Memory();
  const std::uint16_t port = MessagePortOf(memory);
  EventChannelConfig config;
  config.destination = {memory.Load32(Bootstrap::kMessageDestination), port};
  config.timeout = std::chrono::milliseconds(memory.Load32(Bootstrap::kMessageTimeout));
  config.retries = memory.Load32(Bootstrap::kMessageRetries);
  config.extended_ids =
      StreamConfiguration::ExtendedIds::Get(memory.Load32(Bootstrap::kStreamConfiguration)) != 0;
  memory.Store32(Bootstrap::kMessageSourcePort, port != 0 ? source_port_ : 0);
  effects_.channels.emplace_back(config);
}

void EventControl::OnNotificationWritten() {
  if (source_port_ == 0) return;
  const SparseMemory& memory = tree_.Memory();
  effects_.channels.emplace_back(FrameNotification{IsNotified(memory, EventNumber::kFrameStart),
                                                   IsNotified(memory, EventNumber::kFrameEnd)});
}

void EventControl::OnSourceWritten(const FeatureTree::WatchedStore& store, Instant now) {
  const auto found = sources_.find(store.reg);
  if (found == sources_.end()) return;
  std::vector<std::uint8_t> bytes(store.reg->reg->length);
  tree_.Memory().Read(store.address, bytes);
  for (const std::uint16_t number : found->second) Report(number, now, bytes);
}

void EventControl::Report(std::uint16_t number, Instant when, std::vector<std::uint8_t> data) {
  if (source_port_ == 0 || MessagePortOf(tree_.Memory()) == 0 || !IsNotified(tree_.Memory(), number)) return;
  EventItem item;
  item.number = number;
  item.timestamp = clock_.TicksAt(when);
  effects_.channels.emplace_back(EventReport{item, std::move(data)});
}

}  // namespace Tarn
