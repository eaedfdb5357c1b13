#pragma once

/// The items of a node's description, by code: what the information calls of the C line read and write.

#include <cstdint>
#include <string>

#include "camera/engine/nodes/node.h"

namespace Tarn {

/// Throw: EngineError kNotSupported when nodes of the kind have no such item of that type.
std::int64_t IntegerItem(const Node& node, NodeItem item);
double FloatItem(const Node& node, NodeItem item);
std::string TextItem(const Node& node, NodeItem item);
NodePtr NodeOfItem(const Node& node, NodeItem item);  ///< null when no node is set

/// Throw: as above, kWrongState while the tree is frozen, kOutOfRange for a code that the item does not know,
/// kFormula, kCycle. After a throw nothing has changed.
void SetIntegerItem(Node& node, NodeItem item, std::int64_t value);
void SetFloatItem(Node& node, NodeItem item, double value);
void SetTextItem(Node& node, NodeItem item, const std::string& text);
void SetNodeItem(Node& node, NodeItem item, const NodePtr& related);

}  // namespace Tarn
