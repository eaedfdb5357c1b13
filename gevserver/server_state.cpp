#include "gevserver/server_state.h"

namespace Tarn::GevServer::Private {

std::int32_t ServerState::Code() const noexcept {
  const std::int32_t word = word_;
  return word == kStarting ? State::Configuration : word;
}

void ServerState::Event(std::int32_t state) noexcept {
  std::int32_t current = word_;
  while (current != State::Configuration && !word_.compare_exchange_weak(current, state)) {
  }
}

}  // namespace Tarn::GevServer::Private
