#include "camera/engine/features/feature_parts.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/gvsp.h"

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
  const Axis axes[] = {{"Width", "OffsetX", "pixel", format.width, ManufacturerRegister::kWidth,
                        ManufacturerRegister::kOffsetX},
                       {"Height", "OffsetY", "pixel", format.height, ManufacturerRegister::kHeight,
                        ManufacturerRegister::kOffsetY}};
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
    AddRelated(payload_size, NodeList::Invalidator, extent_value, nullptr);
    WriteInteger(*extent_value, axis.size);
  }
}

}  // namespace

void AddImageFormat(FeatureBuilder& add, const SensorFormat& format, const NodePtr& locked,
                    const NodePtr& payload_size) {
  add.Category("ImageFormatControl", "Root", Beginner);
  AddRegion(add, format, locked, payload_size);
  // Writable with one value, as a constant size is.
  const NodePtr value = add.Value("PixelFormatValue", ManufacturerRegister::kPixelFormat, 4, ReadWrite);
  WriteInteger(*value, format.pixel_format);
  AddRelated(payload_size, NodeList::Invalidator, value, nullptr);
  add.Enumeration("PixelFormat", value, {{format.pixel_format_name, format.pixel_format}}, Beginner,
                  "Format of the pixels")
      ->is_locked = locked;
}

void AddPayloadType(FeatureBuilder& add, const NodePtr& locked) {
  const auto number = [](PayloadType type) { return static_cast<std::int64_t>(type); };
  const NodePtr type = add.Value("PayloadTypeValue", ManufacturerRegister::kPayloadType, 4, ReadWrite);
  WriteInteger(*type, number(PayloadType::Image));
  add.Custom()
      .Enumeration("PayloadType", type,
                   {{"Image", number(PayloadType::Image)},
                    {"RawData", number(PayloadType::RawData)},
                    {"File", number(PayloadType::File)}},
                   Expert, "As what images are sent: with their geometry, as bytes, or as a file")
      ->is_locked = locked;
  const NodePtr name = add.Custom().StringRegister("PayloadFileName", ManufacturerRegister::kPayloadFileName,
                                                   kPayloadFileNameLength, Expert,
                                                   "Name that goes with payloads of the type File");
  name->reg->access = ReadWrite;
  name->is_locked = locked;
  WriteText(*name, "image.raw");
}

}  // namespace Tarn
