#include "camera/engine/control/answered_commands.h"

#include <algorithm>
#include <chrono>

namespace Tarn {
namespace {

constexpr std::chrono::seconds kRepeatWindow{5};

}  // namespace

ByteView AnsweredCommands::Find(Endpoint source, ByteView command, Instant now) const {
  const auto found = std::ranges::find_if(answered_, [&](const Answered& answered) {
    return answered.source == source && now - answered.when <= kRepeatWindow &&
           std::ranges::equal(answered.command, command);
  });
  return found == answered_.end() ? ByteView() : ByteView(found->answer);
}

void AnsweredCommands::Remember(Endpoint source, ByteView command, ByteView answer, Instant now) {
  Answered& place = answered_[next_++ % answered_.size()];
  place.source = source;
  place.command.assign(command.begin(), command.end());
  place.answer.assign(answer.begin(), answer.end());
  place.when = now;
}

void AnsweredCommands::Clear() {
  for (Answered& answered : answered_) answered.source = {};
}

}  // namespace Tarn
