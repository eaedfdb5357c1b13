#include "gevserver/network_interface.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "binding/type_builder.h"
#include "module/native_types.h"
#include "module/type_def.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
using NativeInterface = Tarn::GevServer::LogicalNetworkInterface;

namespace {

PyRef New(NewType type, std::string ip_address, std::string ipv4_mask) {
  return Construct(type.type, std::make_shared<NativeInterface>(std::move(ip_address), std::move(ipv4_mask)));
}

PyRef GetAllAvailable() {
  const auto interfaces = Tarn::GevServer::AllNetworkInterfaces();
  return MakeList(interfaces.size(), [&](std::size_t i) {
    return Bind(TypeObject__LogicalNetworkInterface__(), std::make_shared<NativeInterface>(interfaces[i]));
  });
}

void SetIpAddress(NativeInterface& interface, AnyText address) {
  interface.SetIpAddress(std::move(address.text));
}
void SetIpv4Mask(NativeInterface& interface, AnyText mask) { interface.SetIpv4Mask(std::move(mask.text)); }

void SetIpAddressNumber(NativeInterface& interface, ExactInt address) {
  if (!std::in_range<std::uint32_t>(address.value)) throw std::overflow_error("an IPv4 address has 32 bits");
  interface.SetIpAddressNumber(static_cast<std::uint32_t>(address.value));
}

constexpr const char* kSummary = "An IP network interface the GevServer can be bound to.";

}  // namespace

template <>
void TypeDef<LogicalNetworkInterface>::Init() {
  TypeBuilder(Get(), "tarn.gevserver.LogicalNetworkInterface", kSummary)
      .Constructor<Signature<&New, "ip_address", "ipv4_mask">>(
          {{.summary = "Instantiates a LogicalNetworkInterface object.",
            .params = {{"ip_address", "str", "The address of the interface."},
                       {"ipv4_mask", "str", "The subnet mask of the address."}}}})
      .ReadWrite<&NativeInterface::IpAddress, &SetIpAddress>(
          "ip_address", "Gets or sets the address of the interface as string and converted uint.")
      .ReadWrite<&NativeInterface::IpAddressNumber, &SetIpAddressNumber>(
          "ip_address_uint", "Gets or sets the address of the interface as unsigned integer.")
      .ReadWrite<&NativeInterface::Ipv4Mask, &SetIpv4Mask>("ipv4_mask",
                                                           "Gets or sets the subnet mask of the address.")
      .Static<Signature<&GetAllAvailable>>(
          "get_all_available", {{.summary = "Gets all available network interfaces usable by the GevServer.",
                                 .returns = {"List[tarn.gevserver.LogicalNetworkInterface]",
                                             "List containing all available network interfaces."}}});
}

}  // namespace _tarn::gevserver
