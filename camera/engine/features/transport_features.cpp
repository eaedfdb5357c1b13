#include "camera/engine/features/feature_parts.h"
#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

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

}  // namespace

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
  Limited(ReadOnlyNode(add.Integer("GevStreamChannelSelector", std::int64_t{0}, Expert,
                                   "Stream channel that is described")),
          std::int64_t{0}, std::int64_t{0});
  FeatureBuilder::Deprecate(add.Enumeration(
      "GevSCPDirection", field("GevSCPDirectionValue", Bootstrap::kStreamPort, 0, 0, ReadOnly),
      {{"Transmitter", 0}, {"Receiver", 1}}, Invisible, "Direction of the stream"));
  add.Integer("GevSCPInterfaceIndex",
              field("GevSCPInterfaceIndexValue", Bootstrap::kStreamPort, 12, 15, ReadOnly), Guru,
              "Interface that the stream uses");
  add.Boolean("GevSCCFGPacketResendDestination",
              field("GevSCCFGPacketResendDestinationValue", Bootstrap::kStreamChannelConfiguration, 28, 28,
                    ReadWrite),
              Guru, "Whether packets sent again go to who asked for them");
  add.Boolean(
      "GevSCCFGExtendedChunkData",
      field("GevSCCFGExtendedChunkDataValue", Bootstrap::kStreamChannelConfiguration, 31, 31, ReadOnly), Guru,
      "Whether blocks with chunks tell of the image too");
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

/// The device's clock is the host's monotonic one. Whether the host keeps it by IEEE 1588 is not visible from
/// here, so the features say that it is not done; clients that ask learn it without an error.
void AddPtp(FeatureBuilder& add) {
  using enum Visibility;
  add.Category("PtpControl", "TransportLayerControl", Expert);
  ReadOnlyNode(add.Boolean("PtpEnable", std::int64_t{0}, Expert, "Whether the clock follows IEEE 1588"));
  ReadOnlyNode(add.Enumeration("PtpStatus", std::int64_t{3}, {{"Disabled", 3}}, Expert,
                               "State of the IEEE 1588 clock"));
}

}  // namespace Tarn
