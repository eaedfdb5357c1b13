#include "engine/features/feature_parts.h"
#include "engine/nodes/node_values.h"
#include "engine/registers/own_registers.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

/// The largest value of an extent or an offset: what the other leaves of the sensor.
void AddRegion(FeatureBuilder& add, const SensorFormat& format, const NodePtr& locked,
               const NodePtr& payload_size) {
  struct Axis {
    const char* extent;
    const char* offset;
    const char* unit;
    std::int64_t size;
    std::uint32_t extent_register;
    std::uint32_t offset_register;
  };
  const Axis axes[] = {
      {"Width", "OffsetX", "pixel", format.width, OwnRegisters::kWidth, OwnRegisters::kOffsetX},
      {"Height", "OffsetY", "pixel", format.height, OwnRegisters::kHeight, OwnRegisters::kOffsetY}};
  for (const Axis& axis : axes) {
    const std::string extent_name = axis.extent;
    const NodePtr sensor =
        Unit(ReadOnlyNode(add.Integer("Sensor" + extent_name, axis.size, Expert, "Size of the sensor")),
             axis.unit);
    const NodePtr largest =
        Unit(ReadOnlyNode(add.Integer(extent_name + "Max", axis.size, Expert, "Largest size of an image")),
             axis.unit);
    const NodePtr extent_value = add.Value(extent_name + "Value", axis.extent_register, 4, ReadWrite);
    extent_value->reg->cache = CacheMode::WriteThrough;
    const NodePtr extent =
        Unit(add.Integer(extent_name, extent_value, Beginner, "Size of the image"), axis.unit);
    const NodePtr offset_value =
        add.Value(std::string(axis.offset) + "Value", axis.offset_register, 4, ReadWrite);
    offset_value->reg->cache = CacheMode::WriteThrough;
    const NodePtr offset =
        Unit(add.Integer(axis.offset, offset_value, Beginner, "Place of the image on the sensor"), axis.unit);
    // A constant size is writable as well, with one value: clients set what they found, and give up when that
    // is refused.
    Limited(extent, format.variable_size ? std::int64_t{1} : axis.size,
            add.Formula(extent_name + "Limit", {largest, offset_value},
                        extent_name + "Max - " + axis.offset + "Value"),
            std::int64_t{1});
    Limited(offset, std::int64_t{0},
            add.Formula(std::string(axis.offset) + "Limit", {largest, extent_value},
                        extent_name + "Max - " + extent_name + "Value"),
            std::int64_t{1});
    for (const NodePtr& node : {extent, offset}) {
      node->is_locked = locked;
      node->streamable = format.variable_size;
      node->representation = Representation::Linear;
    }
    payload_size->invalidators.push_back(extent_value);
    WriteInteger(*extent_value, axis.size);
  }
}

}  // namespace

void AddImageFormat(FeatureBuilder& add, const SensorFormat& format, const NodePtr& locked,
                    const NodePtr& payload_size) {
  add.Category("ImageFormatControl", "Root", Beginner);
  AddRegion(add, format, locked, payload_size);
  // Writable with one value, as a constant size is.
  const NodePtr value = add.Value("PixelFormatValue", OwnRegisters::kPixelFormat, 4, ReadWrite);
  WriteInteger(*value, format.pixel_format);
  add.Enumeration("PixelFormat", value, {{format.pixel_format_name, format.pixel_format}}, Beginner,
                  "Format of the pixels")
      ->is_locked = locked;
}

}  // namespace Tarn
