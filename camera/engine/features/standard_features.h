#pragma once

/// The features that every GigE Vision client expects to find, put into a new tree.

#include <cstdint>
#include <optional>
#include <string>

#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// What a streaming device sends.
struct SensorFormat {
  std::uint32_t pixel_format = 0;  ///< PFNC value
  std::string pixel_format_name;   ///< PFNC name of it
  std::int64_t width = 0;          ///< pixels; of a variable size the largest
  std::int64_t height = 0;         ///< lines
  bool variable_size = false;      ///< clients choose width, height and offsets
};

/// Adds the categories Root, DeviceControl and TransportLayerControl with their features, and, for a device
/// with a stream, ImageFormatControl and AcquisitionControl. Source: GenICam SFNC 2.7, features marked
/// mandatory or recommended for a transmitter that have something behind them here; GigE Vision, mandatory
/// features; the older Gev names for clients that know no others.
/// \param format  empty for a device without a stream
void AddStandardFeatures(FeatureTree& tree, const std::optional<SensorFormat>& format);

}  // namespace Tarn
