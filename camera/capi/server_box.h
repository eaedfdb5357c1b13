#pragma once

/// What a server handle stands for.

#include <memory>
#include <new>

#include "camera/device/device.h"

namespace Tarn {

struct ServerBox {
  static constexpr std::uint32_t kHandleKind = 0x53525652;  // "SRVR"

  explicit ServerBox(std::shared_ptr<Device> its_device) : device(std::move(its_device)) {}
  /// A running device ends by itself: whoever drops the last handle may hold a lock that its callbacks wait
  /// for.
  ~ServerBox() {
    if (device->Inherited()) {
      // Its threads do not exist here and will never let go of its locks.
      new (std::nothrow) std::shared_ptr<Device>(device);
    } else {
      device->Abandon();
    }
  }

  const std::shared_ptr<Device> device;
};

}  // namespace Tarn
