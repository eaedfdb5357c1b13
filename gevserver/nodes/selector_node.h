#pragma once

/// Nodes that others may depend on.

#include <memory>
#include <vector>

#include "gevserver/nodes/value_node.h"

namespace Tarn::GevServer {

/// Groups nodes whose meaning depends on this node's value.
class SelectorNode : public ValueNode {
 public:
  using ValueNode::ValueNode;

  /// True when it selects at least one node.
  bool IsSelector() const { return RelatedCount(GSN_LIST_SELECTED) > 0; }
  std::vector<std::shared_ptr<Node>> SelectedNodes() const { return Related(GSN_LIST_SELECTED); }
};

}  // namespace Tarn::GevServer
