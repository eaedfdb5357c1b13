#include "camera/engine/control/publication.h"

#include <cstdio>
#include <string>

#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "camera/engine/xml/description.h"

namespace Tarn {
namespace {

std::string TextOf(FeatureTree& tree, const char* name) {
  const NodePtr node = tree.Find(name);
  return node ? ReadText(*node) : std::string();
}

void SetLimit(FeatureTree& tree, const char* feature, std::int64_t max) {
  if (const NodePtr node = tree.Find(feature)) node->max = max;
}

/// A program that makes the feature read only keeps the heartbeat in its own hands.
bool HeartbeatCanEnd(const FeatureTree& tree) {
  const NodePtr mode = tree.Find("DeviceLinkHeartbeatMode");
  const NodePtr older = tree.Find("GevGVCPHeartbeatDisable");
  if (mode && older) older->imposed_access = mode->imposed_access;
  return !mode || mode->imposed_access != AccessMode::ReadOnly;
}

/// \return its size in bytes
std::size_t StoreDescription(FeatureTree& tree, const XmlVersionNumbers& version) {
  const DescriptionIdentity identity{TextOf(tree, "DeviceVendorName"), TextOf(tree, "DeviceModelName"),
                                     version[0], version[1], version[2]};
  const Description description = WriteDescription(tree, identity);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(description.xml.data());
  tree.Memory().Write(kDescriptionFile, ByteView(bytes, description.xml.size()));
  char url[512];
  // Eight digits, so that no client takes them for decimal.
  std::snprintf(url, sizeof url, "Local:%s;%08llX;%08zX", description.file_name.c_str(),
                static_cast<unsigned long long>(kDescriptionFile), description.xml.size());
  StoreText(tree.Memory(), Bootstrap::kFirstUrl, Bootstrap::kUrlLength, url);
  return description.xml.size();
}

}  // namespace

void Publish(DeviceFunctions& device, const NetworkIdentity& network, bool has_stream, bool resends,
             const XmlVersionNumbers& version) {
  FeatureTree& tree = device.Tree();
  tree.SetFrozen(false);
  const BootstrapProfile profile{has_stream, network.max_packet_size, resends, HeartbeatCanEnd(tree)};
  FillNetwork(tree.Memory(), network, profile);
  SetLimit(tree, "GevSCPSPacketSize", UsablePacketSize(network.max_packet_size, profile));
  SetLimit(tree, "DeviceStreamChannelPacketSize", UsablePacketSize(network.max_packet_size, profile));
  InvalidateByUserSets(tree);
  device.Stream().Publish();
  device.Events().Publish();
  CheckPublishable(tree);
  device.Registers().Index(profile, StoreDescription(tree, version));
  device.TheUserSets().Complete();
  tree.SetFrozen(true);
}

}  // namespace Tarn
