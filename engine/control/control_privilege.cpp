#include "engine/control/control_privilege.h"

#include "wire/bootstrap.h"

namespace Tarn {

WireStatus ControlPrivilege::Write(Endpoint who, std::uint32_t value, Instant now) {
  if (held_ && who != holder_) return WireStatus::AccessDenied;
  const bool exclusive = ControlPrivilegeBits::Exclusive::Get(value) != 0;
  if (!exclusive && ControlPrivilegeBits::Control::Get(value) == 0) {
    Release();
    return WireStatus::Success;
  }
  held_ = true;
  exclusive_ = exclusive;
  holder_ = who;
  last_heard_ = now;
  return WireStatus::Success;
}

void ControlPrivilege::Release() {
  held_ = false;
  exclusive_ = false;
  holder_ = {};
}

void ControlPrivilege::Heard(Endpoint who, Instant arrival) {
  if (IsHolder(who) && arrival > last_heard_) last_heard_ = arrival;
}

std::uint32_t ControlPrivilege::Register() const {
  if (!held_) return 0;
  return ControlPrivilegeBits::Control::kMask | (exclusive_ ? ControlPrivilegeBits::Exclusive::kMask : 0);
}

}  // namespace Tarn
