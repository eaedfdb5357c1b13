#include "camera/engine/features/feature_parts.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

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
  add.StringRegister("DeviceVendorName", Bootstrap::kManufacturerName, 32, Beginner,
                     "Name of the manufacturer");
  add.StringRegister("DeviceModelName", Bootstrap::kModelName, 32, Beginner, "Model of the device");
  add.StringRegister("DeviceManufacturerInfo", Bootstrap::kManufacturerInfo, 48, Beginner,
                     "More about the device");
  add.StringRegister("DeviceVersion", Bootstrap::kDeviceVersion, 32, Beginner, "Version of the device");
  add.StringRegister("DeviceSerialNumber", Bootstrap::kSerialNumber, 16, Expert,
                     "Serial number of the device");
  FeatureBuilder::Deprecate(
      add.StringRegister("DeviceID", Bootstrap::kSerialNumber, 16, Invisible, "Serial number of the device"));
  add.StringRegister("DeviceUserID", Bootstrap::kUserDefinedName, 16, Beginner,
                     "Name of this device, given by its user; kept until the program ends")
      ->reg->access = ReadWrite;
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
  AddRelated(value, NodeList::Invalidator, latch, nullptr);
}

void AddStreamRate(FeatureBuilder& add) {
  const NodePtr mode =
      add.Value("DeviceStreamRateModeValue", ManufacturerRegister::kStreamRateMode, 4, ReadWrite);
  add.Custom().Enumeration(
      "DeviceStreamRateMode", mode, {{"Constant", 0}, {"Adaptive", 1}}, Expert,
      "Whether frames leave at the limit, or are spread over the time until the next and slowed down for "
      "clients that lose packets");
  Unit(add.Custom().IntRegister(
           "DeviceStreamRate", ManufacturerRegister::kStreamRate, 8, Expert,
           "Rate that the stream keeps to at present, Ethernet framing included; 0: not limited"),
       "Bps");
  add.Custom().Enumeration(
      "DeviceStreamState",
      add.Value("DeviceStreamStateValue", ManufacturerRegister::kStreamState, 4, ReadOnly),
      {{"Closed", 0},
       {"Open", 1},
       {"NoLink", 2},
       {"NoRoute", 3},
       {"Refused", 4},
       {"Unreachable", 5},
       {"Failing", 6}},
      Expert, "What becomes of the stream's packets");
  // Only the program can write them, and no category leads to them.
  add.Value("StreamThreadPriority", ManufacturerRegister::kStreamThreadPriority, 4, ReadOnly);
  add.Value("StreamThreadProcessors", ManufacturerRegister::kStreamThreadProcessors, 8, ReadOnly);
}

void AddLink(FeatureBuilder& add, bool has_stream) {
  Limited(
      ReadOnlyNode(add.Integer("DeviceLinkSelector", std::int64_t{0}, Beginner, "Link that is described")),
      std::int64_t{0}, std::int64_t{0});
  Unit(add.IntRegister("DeviceLinkSpeed", ManufacturerRegister::kLinkSpeed, 8, Expert, "Speed of the link"),
       "Bps");
  const NodePtr disable = add.Value("DeviceLinkHeartbeatModeValue", Bootstrap::kControlConfiguration, 4,
                                    ReadWrite, BitRange{31, 31});
  add.Enumeration("DeviceLinkHeartbeatMode", disable, {{"On", 0}, {"Off", 1}}, Expert,
                  "Whether a silent client loses control");
  add.IntRegister("DeviceStreamChannelCount", Bootstrap::kStreamChannelCount, 4, Expert,
                  "Number of stream channels");
  add.IntRegister("DeviceEventChannelCount", Bootstrap::kMessageChannelCount, 4, Expert,
                  "Number of event channels");
  if (!has_stream) return;
  const NodePtr mode = add.Value("DeviceLinkThroughputLimitModeValue",
                                 ManufacturerRegister::kThroughputLimitMode, 4, ReadWrite);
  add.Enumeration("DeviceLinkThroughputLimitMode", mode, {{"Off", 0}, {"On", 1}}, Expert,
                  "Whether the stream is held back to the limit");
  const NodePtr limit =
      add.Value("DeviceLinkThroughputLimitValue", ManufacturerRegister::kThroughputLimit, 8, ReadWrite);
  // Below a hundred kilobytes per second a single image takes longer than clients wait.
  Limited(Unit(add.Integer("DeviceLinkThroughputLimit", limit, Expert, "Largest rate of the stream"), "Bps"),
          std::int64_t{100'000}, std::int64_t{100'000'000'000});
  AddStreamRate(add);
}

}  // namespace

void AddDeviceControl(FeatureBuilder& add, bool has_stream) {
  add.Category("DeviceControl", "Root", Beginner);
  AddIdentity(add, has_stream);
  AddVersions(add);
  AddTimestamp(add);
  AddLink(add, has_stream);
}

}  // namespace Tarn
