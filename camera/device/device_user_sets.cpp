// What the commands of the user sets do.

#include <optional>

#include "camera/device/device.h"
#include "camera/engine/registers/own_registers.h"

namespace Tarn {
namespace {

/// Nothing when the program put the number of no set into the selector's register, which clients cannot.
std::optional<UserSet> SelectedSet(const SparseMemory& memory) {
  const std::uint32_t number = memory.Load32(OwnRegisters::kUserSetSelector);
  return number < kUserSetCount ? std::optional(static_cast<UserSet>(number)) : std::nullopt;
}

}  // namespace

void Device::LoadUserSet() {
  const std::optional<UserSet> set = SelectedSet(tree_.Memory());
  if (!set || acquiring_) return;  // clients are refused before; the program's own command comes here
  loaded_ = user_sets_.Load(*set, {channel_.Privilege().Holder(), false});
  FollowStores();
}

void Device::SaveUserSet() {
  const std::optional<UserSet> set = SelectedSet(tree_.Memory());
  if (set && *set != UserSet::Default) user_sets_.Save(*set);  // as above
}

}  // namespace Tarn
