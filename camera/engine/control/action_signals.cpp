#include "camera/engine/control/action_signals.h"

#include <algorithm>
#include <chrono>

#include "camera/engine/memory/sparse_memory.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

// Clients ask again within a few seconds. Afterwards the same id is a new command: programs begin anew with
// the ids that they used before.
constexpr std::chrono::seconds kRepeatWindow{5};

}  // namespace

SignalSet ActionSignals::Meant(const ActionCommand& command, const SparseMemory& memory) {
  SignalSet meant;
  if (command.device_key != memory.Load32(Bootstrap::kActionDeviceKey)) return meant;
  for (std::uint32_t n = 0; n < kActionSignals; ++n) {
    const std::uint32_t group = n * Bootstrap::kActionGroupStep;
    const bool key = command.group_key == memory.Load32(Bootstrap::kActionGroupKeys + group);
    const bool mask = (command.group_mask & memory.Load32(Bootstrap::kActionGroupMasks + group)) != 0;
    meant[n] = key && mask;
  }
  return meant;
}

bool ActionSignals::Schedule(SignalSet signals, Instant due) {
  if (queue_.size() == kActionQueueSize) return false;
  const auto after = std::ranges::upper_bound(queue_, due, {}, &Scheduled::due);
  queue_.insert(after, {due, signals});
  return true;
}

SignalSet ActionSignals::TakeDue(Instant now) {
  if (now < NextDue() || queue_.empty()) return {};
  const SignalSet signals = queue_.front().signals;
  queue_.erase(queue_.begin());
  return signals;
}

std::optional<WireStatus> ActionSignals::Answered(Endpoint source, std::uint16_t request_id,
                                                  Instant now) const {
  const auto done = std::ranges::find(done_, source, &Done::source);
  if (done == done_.end() || done->request_id != request_id || now - done->when > kRepeatWindow) {
    return std::nullopt;
  }
  return done->status;
}

void ActionSignals::Remember(Endpoint source, std::uint16_t request_id, WireStatus status, Instant now) {
  auto place = std::ranges::find(done_, source, &Done::source);
  if (place == done_.end()) place = std::ranges::min_element(done_, {}, &Done::when);
  *place = {source, request_id, status, now};
}

}  // namespace Tarn
