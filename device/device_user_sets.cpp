// What the commands of the user sets do.

#include "device/device.h"
#include "engine/registers/own_registers.h"

namespace Tarn {

void Device::LoadUserSet() {
  if (acquiring_) return;  // clients are refused before; the program's own command comes here
  const auto set = static_cast<UserSet>(tree_.Memory().Load32(OwnRegisters::kUserSetSelector));
  loaded_ = user_sets_.Load(set, {channel_.Privilege().Holder(), false});
  FollowStores();
}

void Device::SaveUserSet() {
  const auto set = static_cast<UserSet>(tree_.Memory().Load32(OwnRegisters::kUserSetSelector));
  if (set != UserSet::Default) user_sets_.Save(set);  // as above
}

}  // namespace Tarn
