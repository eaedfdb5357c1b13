#include "gevserver/network_interface.h"

#include <stdexcept>
#include <utility>

#include "camera/base/endpoint.h"
#include "core/handle_guard.h"
#include "gevserver/address_text.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn::GevServer {

LogicalNetworkInterface::LogicalNetworkInterface(std::string ip_address, std::string ipv4_mask)
    : ip_address_(std::move(ip_address)),
      ip_address_number_(StrictAddress(ip_address_).value_or(0)),
      ipv4_mask_(std::move(ipv4_mask)) {}

void LogicalNetworkInterface::SetIpAddress(std::string text) {
  ip_address_ = std::move(text);
  ip_address_number_ = StrictAddress(ip_address_).value_or(0);
}

void LogicalNetworkInterface::SetIpAddressNumber(std::uint32_t address) {
  ip_address_ = DottedAddress(address);
  ip_address_number_ = address;
}

std::vector<LogicalNetworkInterface> AllNetworkInterfaces() {
  const RawHandleGuard list(CreateInterfaceList());
  if (!list) throw std::runtime_error("Failed to create interface list");
  std::vector<LogicalNetworkInterface> interfaces;
  const std::uint64_t count = ILCount(list.Get());
  for (std::uint64_t index = 0; index < count; ++index) {
    std::uint32_t address = 0;
    std::uint32_t mask = 0;
    if (ILIPv4Address(list.Get(), index, &address) != TR_OK) throw std::runtime_error("error retrieving IP");
    if (ILIPv4SubnetMask(list.Get(), index, &mask) != TR_OK) {
      throw std::runtime_error("error retrieving subnet mask");
    }
    interfaces.emplace_back(DottedAddress(address), DottedAddress(mask));
  }
  return interfaces;
}

}  // namespace Tarn::GevServer
