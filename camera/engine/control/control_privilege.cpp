#include "camera/engine/control/control_privilege.h"

#include "camera/wire/bootstrap.h"

namespace Tarn {

WireStatus ControlPrivilege::Write(Endpoint who, std::uint32_t value, std::uint32_t switchover_key,
                                   Instant now) {
  const bool exclusive = ControlPrivilegeBits::Exclusive::Get(value) != 0;
  const bool asks = exclusive || ControlPrivilegeBits::Control::Get(value) != 0;
  const bool knows_key = ControlPrivilegeBits::SwitchoverKey::Get(value) == switchover_key;
  const bool may_take_over = switchover_ && asks && knows_key;
  if (held_ && who != holder_ && !may_take_over) return WireStatus::AccessDenied;
  if (!asks) {
    Release();
    return WireStatus::Success;
  }
  held_ = true;
  exclusive_ = exclusive;
  switchover_ = ControlPrivilegeBits::SwitchoverEnable::Get(value) != 0;
  holder_ = who;
  last_heard_ = now;
  return WireStatus::Success;
}

void ControlPrivilege::Release() {
  held_ = false;
  exclusive_ = false;
  switchover_ = false;
  holder_ = {};
}

void ControlPrivilege::Heard(Endpoint who, Instant arrival) {
  if (IsHolder(who) && arrival > last_heard_) last_heard_ = arrival;
}

std::uint32_t ControlPrivilege::Register() const {
  if (!held_) return 0;
  return ControlPrivilegeBits::Control::kMask | (exclusive_ ? ControlPrivilegeBits::Exclusive::kMask : 0) |
         (switchover_ ? ControlPrivilegeBits::SwitchoverEnable::kMask : 0);
}

}  // namespace Tarn
