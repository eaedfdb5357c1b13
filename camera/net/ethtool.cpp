#include "camera/net/ethtool.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "camera/net/owned_fd.h"

namespace Tarn {
namespace {

/// \param question  begins with its ETHTOOL_ command, and takes the answer
bool Ask(const std::string& interface, void* question) {
  const OwnedFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  interface.copy(request.ifr_name, sizeof request.ifr_name - 1);
  request.ifr_data = static_cast<char*>(question);
  return socket && ::ioctl(socket.Get(), SIOCETHTOOL, &request) == 0;
}

/// The answer has three masks behind it whose size the question has to name, in words.
/// Returns the head only; zeros when the driver has no answer.
ethtool_link_settings LinkSettings(const std::string& interface, std::int8_t mask_words) {
  ethtool_link_settings head{};
  head.cmd = ETHTOOL_GLINKSETTINGS;
  head.link_mode_masks_nwords = mask_words;
  std::vector<std::uint8_t> bytes(sizeof head + 3 * sizeof(std::uint32_t) * INT8_MAX);
  std::memcpy(bytes.data(), &head, sizeof head);
  if (!Ask(interface, bytes.data())) return {};
  std::memcpy(&head, bytes.data(), sizeof head);
  return head;
}

}  // namespace

unsigned LinkSpeedOf(const std::string& interface) {
  // A wrong size is answered with the right one, negated.
  const auto words = static_cast<std::int8_t>(-LinkSettings(interface, 0).link_mode_masks_nwords);
  const std::uint32_t speed = LinkSettings(interface, words).speed;
  // Source: Linux, SPEED_UNKNOWN is -1.
  return speed <= INT32_MAX ? speed : 0;
}

std::string BusAddressOf(const std::string& interface) {
  ethtool_drvinfo info{};
  info.cmd = ETHTOOL_GDRVINFO;
  if (!Ask(interface, &info)) return {};
  info.bus_info[sizeof info.bus_info - 1] = '\0';
  return info.bus_info;
}

bool OffloadsChecksums(const std::string& interface) {
  ethtool_value value{};
  value.cmd = ETHTOOL_GTXCSUM;
  return Ask(interface, &value) && value.data != 0;
}

}  // namespace Tarn
