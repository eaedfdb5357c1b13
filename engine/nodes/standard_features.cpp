#include "engine/nodes/standard_features.h"

#include "engine/nodes/feature_builder.h"
#include "engine/nodes/node_links.h"
#include "engine/nodes/node_values.h"
#include "engine/registers/bootstrap_rules.h"
#include "engine/registers/own_registers.h"
#include "engine/stream/image_layout.h"
#include "wire/bootstrap.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

NodePtr ReadOnlyNode(NodePtr node) {
  node->imposed_access = ReadOnly;
  return node;
}

NodePtr Limited(NodePtr node, Setting min, Setting max, Setting increment = {}) {
  node->min = std::move(min);
  node->max = std::move(max);
  node->increment = std::move(increment);
  return node;
}

NodePtr Unit(NodePtr node, const char* unit) {
  node->unit = unit;
  return node;
}

NodePtr Shown(NodePtr node, Representation representation) {
  node->representation = representation;
  return node;
}

void AddIdentity(FeatureBuilder& add, bool has_stream) {
  const NodePtr device_class =
      add.Value("DeviceTypeValue", Bootstrap::kDeviceMode, 4, ReadOnly, BitRange{1, 3});
  add.Enumeration("DeviceType", device_class,
                  {{"Transmitter", 0}, {"Receiver", 1}, {"Transceiver", 2}, {"Peripheral", 3}}, Guru,
                  "What the device does with images");
  if (has_stream) {
    ReadOnlyNode(add.Enumeration("DeviceScanType", std::int64_t{0}, {{"Areascan", 0}}, Expert,
                                 "Scan type of the sensor"));
  }
  add.StringRegister("DeviceVendorName", Bootstrap::kManufacturerName, 32, Beginner, "Name of the maker");
  add.StringRegister("DeviceModelName", Bootstrap::kModelName, 32, Beginner, "Model of the device");
  add.StringRegister("DeviceManufacturerInfo", Bootstrap::kManufacturerInfo, 48, Beginner,
                     "More about the device");
  add.StringRegister("DeviceVersion", Bootstrap::kDeviceVersion, 32, Beginner, "Version of the device");
  add.StringRegister("DeviceSerialNumber", Bootstrap::kSerialNumber, 16, Expert,
                     "Serial number of the device");
  FeatureBuilder::Deprecate(
      add.StringRegister("DeviceID", Bootstrap::kSerialNumber, 16, Invisible, "Serial number of the device"));
  add.StringRegister("DeviceUserID", Bootstrap::kUserDefinedName, 16, Beginner,
                     "Name of this device, given by the program that runs it");
}

void AddVersions(FeatureBuilder& add) {
  const auto constant = [&](const char* name, std::int64_t value, const char* tool_tip) {
    ReadOnlyNode(add.Integer(name, value, Beginner, tool_tip));
  };
  constant("DeviceSFNCVersionMajor", 2, "Major version of the feature naming convention");
  constant("DeviceSFNCVersionMinor", 7, "Minor version of the feature naming convention");
  constant("DeviceSFNCVersionSubMinor", 1, "Sub-minor version of the feature naming convention");
  ReadOnlyNode(add.Enumeration("DeviceTLType", std::int64_t{0}, {{"GigEVision", 0}}, Beginner,
                               "Transport layer of the device"));
  const NodePtr major =
      add.Value("DeviceTLVersionMajorValue", Bootstrap::kVersion, 4, ReadOnly, BitRange{0, 15});
  const NodePtr minor =
      add.Value("DeviceTLVersionMinorValue", Bootstrap::kVersion, 4, ReadOnly, BitRange{16, 31});
  add.Integer("DeviceTLVersionMajor", major, Beginner, "Major version of the transport layer");
  add.Integer("DeviceTLVersionMinor", minor, Beginner, "Minor version of the transport layer");
  constant("DeviceTLVersionSubMinor", 0, "Sub-minor version of the transport layer");
}

void AddTimestamp(FeatureBuilder& add) {
  const NodePtr control = add.Value("TimestampControlValue", Bootstrap::kTimestampControl, 4, WriteOnly);
  add.Command("TimestampReset", control, TimestampControl::Reset::kMask, Expert,
              "Sets the device's clock to zero");
  const NodePtr latch = add.Command("TimestampLatch", control, TimestampControl::Latch::kMask, Expert,
                                    "Latches the device's clock");
  const NodePtr value = Unit(
      add.IntRegister("TimestampLatchValue", Bootstrap::kTimestampHigh, 8, Expert, "The latched time"), "ns");
  value->invalidators.push_back(latch);
}

void AddLink(FeatureBuilder& add, bool has_stream) {
  Limited(
      ReadOnlyNode(add.Integer("DeviceLinkSelector", std::int64_t{0}, Beginner, "Link that is described")),
      std::int64_t{0}, std::int64_t{0});
  Unit(add.IntRegister("DeviceLinkSpeed", OwnRegisters::kLinkSpeed, 8, Expert, "Speed of the link"), "Bps");
  const NodePtr disable = add.Value("DeviceLinkHeartbeatModeValue", Bootstrap::kControlConfiguration, 4,
                                    ReadWrite, BitRange{31, 31});
  add.Enumeration("DeviceLinkHeartbeatMode", disable, {{"On", 0}, {"Off", 1}}, Expert,
                  "Whether a silent client loses control");
  add.IntRegister("DeviceStreamChannelCount", Bootstrap::kStreamChannelCount, 4, Expert,
                  "Number of stream channels");
  add.IntRegister("DeviceEventChannelCount", Bootstrap::kMessageChannelCount, 4, Expert,
                  "Number of event channels");
  if (!has_stream) return;
  const NodePtr mode =
      add.Value("DeviceLinkThroughputLimitModeValue", OwnRegisters::kThroughputLimitMode, 4, ReadWrite);
  add.Enumeration("DeviceLinkThroughputLimitMode", mode, {{"Off", 0}, {"On", 1}}, Expert,
                  "Whether the stream is held back to the limit");
  const NodePtr limit =
      add.Value("DeviceLinkThroughputLimitValue", OwnRegisters::kThroughputLimit, 8, ReadWrite);
  // Below a hundred kilobytes per second a single image takes longer than clients wait.
  Limited(Unit(add.Integer("DeviceLinkThroughputLimit", limit, Expert, "Largest rate of the stream"), "Bps"),
          std::int64_t{100'000}, std::int64_t{100'000'000'000});
}

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
    const AccessMode access = format.variable_size ? ReadWrite : ReadOnly;
    const NodePtr extent_value = add.Value(extent_name + "Value", axis.extent_register, 4, access);
    extent_value->reg->cache = CacheMode::WriteThrough;
    const NodePtr extent =
        Unit(add.Integer(extent_name, extent_value, Beginner, "Size of the image"), axis.unit);
    const NodePtr offset_value =
        add.Value(std::string(axis.offset) + "Value", axis.offset_register, 4, access);
    offset_value->reg->cache = CacheMode::WriteThrough;
    const NodePtr offset =
        Unit(add.Integer(axis.offset, offset_value, Beginner, "Place of the image on the sensor"), axis.unit);
    Limited(extent, std::int64_t{1},
            add.Formula(extent_name + "Limit", {largest, offset_value},
                        extent_name + "Max - " + axis.offset + "Value"),
            std::int64_t{1});
    Limited(offset, std::int64_t{0},
            add.Formula(std::string(axis.offset) + "Limit", {largest, extent_value},
                        extent_name + "Max - " + extent_name + "Value"),
            std::int64_t{1});
    for (const NodePtr& node : {extent, offset}) {
      if (format.variable_size) node->is_locked = locked;
      node->streamable = format.variable_size;
      node->representation = Representation::Linear;
    }
    payload_size->invalidators.push_back(extent_value);
    WriteInteger(*extent_value, axis.size);
  }
}

void AddImageFormat(FeatureBuilder& add, const SensorFormat& format, const NodePtr& locked,
                    const NodePtr& payload_size) {
  add.Category("ImageFormatControl", "Root", Beginner);
  AddRegion(add, format, locked, payload_size);
  const NodePtr value = add.Value("PixelFormatValue", OwnRegisters::kPixelFormat, 4, ReadOnly);
  WriteInteger(*value, format.pixel_format);
  add.Enumeration("PixelFormat", value, {{format.pixel_format_name, format.pixel_format}}, Beginner,
                  "Format of the pixels");
}

void AddAcquisition(FeatureBuilder& add, const NodePtr& locked) {
  add.Category("AcquisitionControl", "Root", Beginner);
  const NodePtr mode = add.Value("AcquisitionModeValue", OwnRegisters::kAcquisitionMode, 4, ReadWrite);
  add.Enumeration("AcquisitionMode", mode, {{"Continuous", 0}, {"SingleFrame", 1}, {"MultiFrame", 2}},
                  Beginner, "How many images one acquisition takes")
      ->is_locked = locked;
  const NodePtr count =
      add.Value("AcquisitionFrameCountValue", OwnRegisters::kAcquisitionFrameCount, 4, ReadWrite);
  WriteInteger(*count, 1);
  Limited(add.Integer("AcquisitionFrameCount", count, Beginner, "Images that a MultiFrame acquisition takes"),
          std::int64_t{1}, std::int64_t{0x7FFF'FFFF})
      ->is_locked = locked;
  add.Command("AcquisitionStart",
              add.Value("AcquisitionStartValue", OwnRegisters::kAcquisitionStart, 4, WriteOnly), 1, Beginner,
              "Starts the acquisition");
  const NodePtr stop = add.Value("AcquisitionStopValue", OwnRegisters::kAcquisitionStop, 4, WriteOnly);
  add.Command("AcquisitionStop", stop, 1, Beginner, "Stops the acquisition");
  add.Command("AcquisitionAbort", stop, 1, Expert, "Stops the acquisition at once");
}

struct RegisterFeature {
  const char* name;
  std::uint32_t address;
  std::uint32_t length;
  Visibility visibility;
  bool deprecated;
  std::optional<Representation> representation;
  const char* unit;
  const char* tool_tip;
};

void AddRegisterFeatures(FeatureBuilder& add, std::initializer_list<RegisterFeature> features) {
  for (const RegisterFeature& feature : features) {
    const NodePtr node =
        add.IntRegister(feature.name, feature.address, feature.length, feature.visibility, feature.tool_tip);
    node->representation = feature.representation;
    node->unit = feature.unit;
    if (feature.deprecated) FeatureBuilder::Deprecate(node);
  }
}

void AddGigEVision(FeatureBuilder& add, FeatureTree& tree) {
  using enum Representation;
  add.Category("GigEVision", "TransportLayerControl", Beginner);
  for (const char* part : {"Major", "Minor"}) {
    FeatureBuilder::Deprecate(add.Integer(std::string("GevVersion") + part,
                                          tree.Find(std::string("DeviceTLVersion") + part + "Value"),
                                          Invisible, "Version of the transport layer"));
  }
  FeatureBuilder::Deprecate(add.Boolean(
      "GevDeviceModeIsBigEndian",
      add.Value("GevDeviceModeIsBigEndianValue", Bootstrap::kDeviceMode, 4, ReadOnly, BitRange{0, 0}),
      Invisible, "Byte order of the registers"));
  FeatureBuilder::Deprecate(add.Enumeration(
      "GevDeviceModeCharacterSet",
      add.Value("GevDeviceModeCharacterSetValue", Bootstrap::kDeviceMode, 4, ReadOnly, BitRange{24, 31}),
      {{"UTF8", 1}, {"ASCII", 2}}, Invisible, "Character set of the texts"));
  AddRegisterFeatures(
      add,
      {{"GevMACAddress", Bootstrap::kMacHigh, 8, Beginner, false, MacAddress, "",
        "MAC address of the interface"},
       {"GevCurrentIPAddress", Bootstrap::kCurrentAddress, 4, Beginner, false, Ipv4Address, "",
        "Address in use"},
       {"GevCurrentSubnetMask", Bootstrap::kCurrentMask, 4, Beginner, false, Ipv4Address, "",
        "Subnet mask in use"},
       {"GevCurrentDefaultGateway", Bootstrap::kCurrentGateway, 4, Beginner, false, Ipv4Address, "",
        "Default gateway in use"},
       {"GevNumberOfInterfaces",
        Bootstrap::kInterfaceCount,
        4,
        Invisible,
        true,
        {},
        "",
        "Number of interfaces"},
       {"GevLinkSpeed", Bootstrap::kLinkSpeed, 4, Invisible, true, {}, "Mbps", "Speed of the link"},
       {"GevMessageChannelCount",
        Bootstrap::kMessageChannelCount,
        4,
        Invisible,
        true,
        {},
        "",
        "Number of message channels"},
       {"GevStreamChannelCount",
        Bootstrap::kStreamChannelCount,
        4,
        Invisible,
        true,
        {},
        "",
        "Number of stream channels"},
       {"GevTimestampTickFrequency",
        Bootstrap::kTickFrequencyHigh,
        8,
        Invisible,
        true,
        {},
        "Hz",
        "Ticks per second of the device's clock"},
       {"GevTimestampValue", Bootstrap::kTimestampHigh, 8, Invisible, true, {}, "tick", "The latched time"},
       {"GevPrimaryApplicationIPAddress", Bootstrap::kPrimaryAddress, 4, Guru, false, Ipv4Address, "",
        "Address of the client in control"}});
  add.StringRegister("GevFirstURL", Bootstrap::kFirstUrl, Bootstrap::kUrlLength, Invisible,
                     "First place of this file");
  add.StringRegister("GevSecondURL", Bootstrap::kSecondUrl, Bootstrap::kUrlLength, Invisible,
                     "Second place of this file");
  const NodePtr timestamp_control = tree.Find("TimestampControlValue");
  FeatureBuilder::Deprecate(add.Command("GevTimestampControlLatch", timestamp_control,
                                        TimestampControl::Latch::kMask, Invisible,
                                        "Latches the device's clock"));
  FeatureBuilder::Deprecate(add.Command("GevTimestampControlReset", timestamp_control,
                                        TimestampControl::Reset::kMask, Invisible, "Sets the clock to zero"));
  const NodePtr heartbeat = add.Value("GevHeartbeatTimeoutValue", Bootstrap::kHeartbeatTimeout, 4, ReadWrite);
  Unit(Limited(
           add.Integer("GevHeartbeatTimeout", heartbeat, Guru, "Silence after which a client loses control"),
           std::int64_t{kMinHeartbeatTimeout}, std::int64_t{0xFFFF'FFFF}),
       "ms");
  FeatureBuilder::Deprecate(add.Boolean("GevGVCPHeartbeatDisable", tree.Find("DeviceLinkHeartbeatModeValue"),
                                        Invisible, "Lets a silent client keep control"));
  const NodePtr privilege = add.Value("GevCCPValue", Bootstrap::kControlPrivilege, 4, ReadWrite);
  add.Enumeration("GevCCP", privilege, {{"OpenAccess", 0}, {"ExclusiveAccess", 1}, {"ControlAccess", 2}},
                  Guru, "Who may control the device");
}

void AddStreamChannel(FeatureBuilder& add, const NodePtr& locked) {
  const auto field = [&](const char* name, std::uint32_t address, unsigned first, unsigned last,
                         AccessMode access) {
    return add.Value(name, address, 4, access, BitRange{first, last});
  };
  const NodePtr size = field("GevSCPSPacketSizeValue", Bootstrap::kStreamPacketSize, 16, 31, ReadWrite);
  // The largest size depends on the interface and is set when the device starts.
  for (const char* name : {"GevSCPSPacketSize", "DeviceStreamChannelPacketSize"}) {
    Unit(Limited(add.Integer(name, size, Expert, "Size of a stream packet with its IP, UDP and GVSP headers"),
                 std::int64_t{kMinPacketSize}, std::int64_t{1500}, std::int64_t{kPacketSizeStep}),
         "B")
        ->is_locked = locked;
  }
  add.Boolean("GevSCPSFireTestPacket",
              field("GevSCPSFireTestPacketValue", Bootstrap::kStreamPacketSize, 0, 0, ReadWrite), Guru,
              "Sends one test packet")
      ->is_locked = locked;
  add.Boolean("GevSCPSDoNotFragment",
              field("GevSCPSDoNotFragmentValue", Bootstrap::kStreamPacketSize, 1, 1, ReadWrite), Guru,
              "Forbids routers to cut stream packets")
      ->is_locked = locked;
  const NodePtr delay = add.Value("GevSCPDValue", Bootstrap::kStreamPacketDelay, 4, ReadWrite);
  Unit(Limited(add.Integer("GevSCPD", delay, Expert, "Delay from the start of a packet to that of the next"),
               std::int64_t{0}, std::int64_t{0xFFFF'FFFF}),
       "tick");
  add.Integer("GevSCPHostPort", field("GevSCPHostPortValue", Bootstrap::kStreamPort, 16, 31, ReadWrite), Guru,
              "Port to which the stream goes; 0 closes the channel");
  const NodePtr destination = add.Value("GevSCDAValue", Bootstrap::kStreamDestination, 4, ReadWrite);
  Shown(add.Integer("GevSCDA", destination, Guru, "Address to which the stream goes"),
        Representation::Ipv4Address)
      ->is_locked = locked;
  add.Integer("GevSCSP", field("GevSCSPValue", Bootstrap::kStreamSourcePort, 16, 31, ReadOnly), Guru,
              "Port from which the stream comes");
  add.Enumeration("GevGVSPExtendedIDMode",
                  field("GevGVSPExtendedIDModeValue", Bootstrap::kStreamConfiguration, 1, 1, ReadWrite),
                  {{"Off", 0}, {"On", 1}}, Expert, "Whether block ids have 64 bits")
      ->is_locked = locked;
}

}  // namespace

void AddStandardFeatures(FeatureTree& tree, const std::optional<SensorFormat>& format) {
  FeatureBuilder add(tree);
  add.Category("Root", "", Beginner);
  add.Category("DeviceControl", "Root", Beginner);
  AddIdentity(add, format.has_value());
  AddVersions(add);
  AddTimestamp(add);
  AddLink(add, format.has_value());

  add.Category("TransportLayerControl", "Root", Beginner);
  const NodePtr locked =
      Limited(add.Integer("TLParamsLocked", std::int64_t{0}, Invisible, "Set while the client streams"),
              std::int64_t{0}, std::int64_t{1});
  NodePtr payload_size;
  if (format) {
    payload_size = add.Value("PayloadSizeValue", OwnRegisters::kPayloadSize, 4, ReadOnly);
    Unit(add.Integer("PayloadSize", payload_size, Expert,
                     "Largest number of bytes in an image's data packets"),
         "B");
    const ImageFormat image{format->pixel_format, static_cast<std::size_t>(format->width),
                            static_cast<std::size_t>(format->height)};
    WriteInteger(*payload_size, static_cast<std::int64_t>(image.PayloadBytes()));
  }
  AddGigEVision(add, tree);
  if (!format) return;
  AddStreamChannel(add, locked);
  AddImageFormat(add, *format, locked, payload_size);
  AddAcquisition(add, locked);
}

}  // namespace Tarn
