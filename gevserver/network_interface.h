#pragma once

/// The machine's IPv4 interfaces, one of which a server is started on.

#include <cstdint>
#include <string>
#include <vector>

namespace Tarn::GevServer {

/// An IPv4 interface. Address text and number are two views of one address; a text that is no address is
/// kept, and its number is 0.
class LogicalNetworkInterface {
 public:
  LogicalNetworkInterface(std::string ip_address, std::string ipv4_mask);

  const std::string& IpAddress() const noexcept { return ip_address_; }
  void SetIpAddress(std::string text);

  /// Host order.
  std::uint32_t IpAddressNumber() const noexcept { return ip_address_number_; }
  void SetIpAddressNumber(std::uint32_t address);

  const std::string& Ipv4Mask() const noexcept { return ipv4_mask_; }
  void SetIpv4Mask(std::string text) { ipv4_mask_ = std::move(text); }

 private:
  std::string ip_address_;
  std::uint32_t ip_address_number_;
  std::string ipv4_mask_;
};

/// All interfaces, in the library's order.
/// Throws: std::runtime_error "Failed to create interface list", "error retrieving IP",
///   "error retrieving subnet mask".
std::vector<LogicalNetworkInterface> AllNetworkInterfaces();

}  // namespace Tarn::GevServer
