#pragma once

/// What happens to the feature tree when the device starts: it is completed, checked, written down and indexed.

#include <array>
#include <cstdint>

#include "camera/engine/control/device_functions.h"
#include "camera/engine/features/power_on_values.h"

namespace Tarn {

/// Version of the description file: major, minor, sub-minor.
using XmlVersionNumbers = std::array<std::uint32_t, 3>;

/// The registers show the network, the description lies in the register space, and the tree is frozen.
/// Throws: EngineError of the first node that cannot be published. The tree is not frozen then.
void Publish(DeviceFunctions& device, const NetworkIdentity& network, bool has_stream, bool resends,
             const XmlVersionNumbers& version);

}  // namespace Tarn
