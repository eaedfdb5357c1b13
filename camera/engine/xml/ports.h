#pragma once

/// The ports through which clients reach registers: the device, the chunks of images, event messages.

#include <string>

#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/xml/xml_writer.h"

namespace Tarn {

/// What the description calls the port of a register; no node of the register's tree has the name.
std::string PortName(const Node& reg);

/// The device's port, and one for each chunk id and event id that registers of the tree have.
void WritePorts(XmlWriter& out, const FeatureTree& tree);

}  // namespace Tarn
