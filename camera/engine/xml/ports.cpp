#include "camera/engine/xml/ports.h"

#include <cstdio>
#include <set>
#include <utility>

namespace Tarn {
namespace {

/// An even number of digits without 0x, as the schema wants. Chunk ids have 32 bits, event ids 16.
std::string IdText(const RegisterPart& reg) {
  char text[12];
  std::snprintf(text, sizeof text, "%0*X", reg.port == PortKind::Chunk ? 8 : 4, reg.port_id);
  return text;
}

void WritePort(XmlWriter& out, const Node& reg) {
  const bool chunk = reg.reg->port == PortKind::Chunk;
  out.Open("Port", {{"Name", PortName(reg)}, {"NameSpace", "Custom"}});
  out.Element("ToolTip", chunk ? "Data behind an image" : "Data of an event");
  out.Element("Visibility", "Invisible");
  if (!chunk) out.Element("EventID", IdText(*reg.reg));
  if (chunk) out.Element("ChunkID", IdText(*reg.reg));
  out.Close("Port");
}

}  // namespace

std::string PortName(const Node& reg) {
  if (reg.reg->port == PortKind::Device) return kPortName;
  std::string name = (reg.reg->port == PortKind::Chunk ? "ChunkPort" : "EventPort") + IdText(*reg.reg);
  while (reg.tree && reg.tree->Find(name)) name += '_';
  return name;
}

void WritePorts(XmlWriter& out, const FeatureTree& tree) {
  out.Open("Port", {{"Name", kPortName}, {"NameSpace", "Standard"}});
  out.Element("ToolTip", "Register access to the device");
  out.Element("Visibility", "Invisible");
  out.Close("Port");
  std::set<std::pair<PortKind, std::uint32_t>> written;
  for (const NodePtr& node : tree.Nodes()) {
    if (!node->is_register() || node->reg->port == PortKind::Device) continue;
    if (written.emplace(node->reg->port, node->reg->port_id).second) WritePort(out, *node);
  }
}

}  // namespace Tarn
