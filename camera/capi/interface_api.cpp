#include "camera/capi/entry.h"
#include "camera/capi/pinned.h"
#include "camera/net/interface_list.h"
#include "gevserver/library/tr_gev_server.h"

namespace {

using Tarn::EngineError;
using Tarn::Failure;
using Tarn::Interface;
using Tarn::InterfaceList;
using Tarn::Pinned;

const Interface& At(const InterfaceList& list, uint64_t index) {
  if (index >= list.All().size()) {
    throw EngineError(Failure::kOutOfRange, "there is no interface " + std::to_string(index) +
                                                " in a list of " + std::to_string(list.All().size()));
  }
  return list.All()[index];
}

}  // namespace

TR_HANDLE CreateInterfaceList() {
  return Tarn::HandleEntry([] { return Tarn::MakeHandle(std::make_unique<InterfaceList>()); });
}

uint64_t ILCount(TR_HANDLE list) {
  uint64_t count = 0;
  Tarn::Entry([&] { count = Pinned<InterfaceList>(list)->All().size(); });
  return count;
}

TR_STATUS ILIPv4Address(TR_HANDLE list, uint64_t index, uint32_t* address) {
  return Tarn::Entry(
      [&] { Tarn::Output(address, "address") = At(*Pinned<InterfaceList>(list), index).address; });
}

TR_STATUS ILIPv4SubnetMask(TR_HANDLE list, uint64_t index, uint32_t* mask) {
  return Tarn::Entry([&] { Tarn::Output(mask, "mask") = At(*Pinned<InterfaceList>(list), index).netmask; });
}
