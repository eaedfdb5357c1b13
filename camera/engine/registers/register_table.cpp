#include "camera/engine/registers/register_table.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kAllBits = 0xFFFF'FFFF;
constexpr std::uint32_t kAddressSources = InterfaceBits::LinkLocal::kMask | InterfaceBits::Dhcp::kMask;

enum class Where { Always, WithStream, Fixed };
enum class Access { ReadOnly, ReadWrite };

constexpr std::array kRegisters{
#define STANDARD(name, address, bytes, where, access, bits, initial, effect, streamable) \
  DeviceRegister{address,                                                                \
                 bytes,                                                                  \
                 Where::where != Where::Always,                                          \
                 Where::where == Where::Fixed,                                           \
                 Access::access == Access::ReadWrite,                                    \
                 bits,                                                                   \
                 initial,                                                                \
                 RegisterEffect::effect,                                                 \
                 streamable},
#define MANUFACTURER(name, offset, bytes, where, initial, effect, streamable) \
  DeviceRegister{ManufacturerRegister::k##name,                               \
                 bytes,                                                       \
                 Where::where != Where::Always,                               \
                 Where::where == Where::Fixed,                                \
                 false,                                                       \
                 0,                                                           \
                 initial,                                                     \
                 RegisterEffect::effect,                                      \
                 streamable},
#include "camera/engine/registers/device_registers.def"
};

constexpr bool AreApart() {
  for (std::size_t i = 1; i < kRegisters.size(); ++i) {
    if (kRegisters[i - 1].address + kRegisters[i - 1].length > kRegisters[i].address) return false;
  }
  return true;
}
static_assert(ManufacturerRegister::kBase == kManufacturerRegisters);
static_assert(AreApart(), "rows are in the order of the addresses, and do not overlap");

}  // namespace

std::span<const DeviceRegister> DeviceRegisters() { return kRegisters; }

const DeviceRegister* FindDeviceRegister(std::uint64_t address) {
  const auto after = std::ranges::upper_bound(kRegisters, address, {}, &DeviceRegister::address);
  if (after == kRegisters.begin()) return nullptr;
  const DeviceRegister& found = *std::prev(after);
  return address - found.address < found.length ? &found : nullptr;
}

}  // namespace Tarn
