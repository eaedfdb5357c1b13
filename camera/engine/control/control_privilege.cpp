#include "camera/engine/control/control_privilege.h"

#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

bool AsksForControl(std::uint32_t value) {
  return (value & (ControlPrivilegeBits::Exclusive::kMask | ControlPrivilegeBits::Control::kMask)) != 0;
}

}  // namespace

bool ControlPrivilege::NeedsKey(Endpoint who, std::uint32_t value) const {
  return held_ && who != primary_ && switchover_ && AsksForControl(value);
}

void ControlPrivilege::Write(Endpoint who, std::uint32_t value) {
  if (!AsksForControl(value)) return Release();
  held_ = true;
  exclusive_ = ControlPrivilegeBits::Exclusive::Get(value) != 0;
  switchover_ = ControlPrivilegeBits::SwitchoverEnable::Get(value) != 0;
  primary_ = who;
}

std::uint32_t ControlPrivilege::Register() const {
  if (!held_) return 0;
  return ControlPrivilegeBits::Control::kMask | (exclusive_ ? ControlPrivilegeBits::Exclusive::kMask : 0) |
         (switchover_ ? ControlPrivilegeBits::SwitchoverEnable::kMask : 0);
}

}  // namespace Tarn
