#pragma once

/// One node as an element of the description, its children in the order that the schema demands.

#include "camera/engine/nodes/node.h"
#include "camera/engine/xml/xml_writer.h"

namespace Tarn {

/// Entries are written inside their enumeration and nowhere else.
void WriteNodeElement(XmlWriter& out, const Node& node);

}  // namespace Tarn
