#include "camera/engine/control/action_signals.h"

#include <algorithm>
#include <chrono>

#include "camera/engine/memory/sparse_memory.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

// Hosts plan fractions of a second ahead, people at most to the next full minutes.
constexpr std::chrono::minutes kHorizon{5};

}  // namespace

SignalSet MatchingSignals(const ActionCommand& command, const SparseMemory& memory) {
  SignalSet matching;
  if (command.device_key != memory.Load32(Bootstrap::kActionDeviceKey)) return matching;
  for (std::uint32_t n = 0; n < kActionSignals; ++n) {
    const std::uint32_t group = n * Bootstrap::kActionGroupStep;
    const bool key = command.group_key == memory.Load32(Bootstrap::kActionGroupKeys + group);
    const bool mask = (command.group_mask & memory.Load32(Bootstrap::kActionGroupMasks + group)) != 0;
    matching[n] = key && mask;
  }
  return matching;
}

bool ActionSchedule::Add(SignalSet signals, Instant due, std::uint32_t source, Instant now) {
  if (queue_.size() == kActionQueueSize || due > now + kHorizon) return false;
  const auto after = std::ranges::upper_bound(queue_, due, {}, &Scheduled::due);
  queue_.insert(after, {due, signals, source});
  return true;
}

SignalSet ActionSchedule::TakeDue(Instant now) {
  if (now < NextDue() || queue_.empty()) return {};
  const SignalSet signals = queue_.front().signals;
  queue_.erase(queue_.begin());
  return signals;
}

void ActionSchedule::Forget(std::uint32_t source) {
  std::erase_if(queue_, [source](const Scheduled& scheduled) { return scheduled.source == source; });
}

}  // namespace Tarn
