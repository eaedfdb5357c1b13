// The device's clock is the host's monotonic one. Whether the host keeps it by IEEE 1588 is not visible from
// here, so the features say that it is not done; clients that ask learn it without an error.

#include "camera/engine/features/feature_parts.h"

namespace Tarn {

void AddPtp(FeatureBuilder& add) {
  using enum Visibility;
  add.Category("PtpControl", "TransportLayerControl", Expert);
  ReadOnlyNode(add.Boolean("PtpEnable", std::int64_t{0}, Expert, "Whether the clock follows IEEE 1588"));
  ReadOnlyNode(add.Enumeration("PtpStatus", std::int64_t{3}, {{"Disabled", 3}}, Expert,
                               "State of the IEEE 1588 clock"));
}

}  // namespace Tarn
