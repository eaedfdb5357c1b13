#include "camera/engine/control/command_queue.h"

#include <algorithm>
#include <iterator>

namespace Tarn {
namespace {

constexpr std::ptrdiff_t kMaxOfPrimary = 64;
constexpr std::ptrdiff_t kMaxOfOne = 2;
constexpr std::ptrdiff_t kMaxOfOthers = 8;

}  // namespace

CommandQueue::Result CommandQueue::Add(const ControlRequest& request, Endpoint primary) {
  const bool repeated = std::ranges::any_of(commands_, [&](const WaitingCommand& command) {
    return command.source == request.source && std::ranges::equal(command.bytes, request.bytes);
  });
  if (repeated) return Result::Repeated;
  const auto of_source = std::ranges::count(commands_, request.source, &WaitingCommand::source);
  const auto of_primary = std::ranges::count(commands_, primary, &WaitingCommand::source);
  const bool full = request.source == primary
                        ? of_source >= kMaxOfPrimary
                        : of_source >= kMaxOfOne || std::ssize(commands_) - of_primary >= kMaxOfOthers;
  if (full) return Result::Full;
  commands_.emplace_back(request);
  return Result::Waits;
}

bool CommandQueue::HasCommandOf(Endpoint source) const {
  return std::ranges::find(commands_, source, &WaitingCommand::source) != commands_.end();
}

std::optional<Instant> CommandQueue::WaitsSince(Endpoint source) const {
  const auto oldest = std::ranges::find(commands_, source, &WaitingCommand::source);
  return oldest == commands_.end() ? std::nullopt : std::optional(oldest->arrival);
}

const WaitingCommand* CommandQueue::Take(Endpoint primary) {
  if (commands_.empty()) return nullptr;
  auto next = std::ranges::find(commands_, primary, &WaitingCommand::source);
  if (next == commands_.end()) next = commands_.begin();
  commands_.splice(commands_.begin(), commands_, next);
  return &commands_.front();
}

Instant CommandQueue::NextPending(Endpoint primary, std::chrono::milliseconds interval) const {
  Instant next = Instant::max();
  for (const WaitingCommand& command : commands_) {
    if (command.source == primary) next = std::min(next, command.last_told + interval);
  }
  return next;
}

}  // namespace Tarn
