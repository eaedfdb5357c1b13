#pragma once

/// The items of a node's description, by code: what the information calls of the C line read and write.

#include <cstdint>
#include <string>

#include "camera/engine/nodes/node.h"

namespace Tarn {

/// Codes of the items. The values cross the C line; capi/ asserts that they agree with its headers.
enum class NodeItem : std::int32_t {
  Name = 0,
  DisplayName = 1,
  AccessMode = 2,
  Max = 3,
  Min = 4,
  Increment = 5,
  NumEnumEntries = 6,
  Streamable = 7,
  CachingMode = 8,
  ToolTip = 9,
  Description = 10,
  Visibility = 11,
  PollingTime = 12,
  EventId = 13,
  NameSpace = 14,
  RegisterLength = 15,
  RegisterAddress = 16,
  Representation = 17,
  Value = 18,
  OnValue = 19,
  OffValue = 20,
  Formula = 21,
  ImposedAccessMode = 22,
  IsImplemented = 23,
  IsAvailable = 24,
  IsLocked = 25,
  Alias = 26,
  Sign = 27,
  Unit = 28,
  DisplayPrecision = 29,
  // As integers, which alias and unit are not.
  IsDeprecated = Alias,
  IsFeature = Unit,
};

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
