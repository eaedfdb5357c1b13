#include "camera/engine/features/standard_features.h"

#include "camera/engine/features/feature_parts.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "camera/engine/stream/image_layout.h"

namespace Tarn {

using enum Visibility;
using enum AccessMode;

void AddStandardFeatures(FeatureTree& tree, const std::optional<SensorFormat>& format) {
  FeatureBuilder add(tree);
  add.Category("Root", "", Beginner);
  AddDeviceControl(add, format.has_value());

  add.Category("TransportLayerControl", "Root", Beginner);
  const NodePtr locked =
      Limited(add.Integer("TLParamsLocked", std::int64_t{0}, Invisible, "Set while the client streams"),
              std::int64_t{0}, std::int64_t{1});
  NodePtr payload_size;
  if (format) {
    payload_size = add.Value("PayloadSizeValue", ManufacturerRegister::kPayloadSize, 4, ReadOnly);
    Unit(
        add.Integer("PayloadSize", payload_size, Expert, "Largest number of bytes in a block's data packets"),
        "B");
    const ImageFormat image{format->pixel_format, static_cast<std::size_t>(format->width),
                            static_cast<std::size_t>(format->height)};
    WriteInteger(*payload_size, static_cast<std::int64_t>(image.PayloadBytes()));
    AddPayloadType(add, locked);
  }
  AddGigEVision(add, tree);
  AddControlChannel(add, tree);
  AddMessageChannel(add);
  if (format) AddStreamChannel(add, locked);
  AddCounters(add, format.has_value());
  AddPtp(add);
  if (format) {
    AddImageFormat(add, *format, locked, payload_size);
    AddAcquisition(add, locked);
    AddChunkData(add, tree, *format, locked);
  }
  AddEventControl(add, tree);
  AddActions(add);
  AddUserSets(add, tree, locked);
}

}  // namespace Tarn
