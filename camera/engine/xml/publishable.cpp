#include <algorithm>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/number_text.h"
#include "camera/engine/xml/description.h"

namespace Tarn {
namespace {

[[noreturn]] void Refuse(const std::string& reason) { throw EngineError(Failure::kInvalidArgument, reason); }

void CheckLinks(const FeatureTree& tree, const Node& node) {
  for (const NodePtr& related : DirectDependencies(node)) {
    if (related->tree != &tree) {
      Refuse(node.name + " refers to " + related->name + ", which is not in the node map");
    }
  }
}

void CheckEntries(const Node& enumeration) {
  if (enumeration.children.empty()) Refuse("the enumeration " + enumeration.name + " has no entries");
  std::set<std::int64_t> numbers;
  std::set<std::string> names;
  for (const NodePtr& entry : enumeration.children) {
    if (!names.insert(SymbolicOf(*entry)).second) {
      Refuse("two entries of " + enumeration.name + " are called " + SymbolicOf(*entry));
    }
    if (!numbers.insert(ReadInteger(*entry)).second) {
      Refuse("two entries of " + enumeration.name + " have the number " +
             std::to_string(ReadInteger(*entry)));
    }
  }
}

void CheckLimits(const Node& node) {
  if (!node.traits.settings.Has(NodeItem::Min)) return;
  Evaluation now;
  if (node.traits.value == ValueType::Integer) {
    const IntegerLimits limits = IntegerLimitsOf(node, now);
    if (limits.min > limits.max) {
      Refuse("the minimum " + std::to_string(limits.min) + " of " + node.name + " is above its maximum " +
             std::to_string(limits.max));
    }
  } else {
    const FloatLimits limits = FloatLimitsOf(node, now);
    if (limits.min > limits.max) {
      Refuse("the minimum " + FloatText(limits.min) + " of " + node.name + " is above its maximum " +
             FloatText(limits.max));
    }
  }
}

/// Clients follow values from node to node on their stacks, and so does the device.
void CheckDepths(const FeatureTree& tree) {
  std::unordered_map<const Node*, unsigned> depths;
  std::vector<NodePtr> open(tree.Nodes().rbegin(), tree.Nodes().rend());
  while (!open.empty()) {
    const NodePtr node = open.back();
    unsigned depth = 1;
    const std::size_t before = open.size();
    for (const NodePtr& dependency : DirectDependencies(*node)) {
      const auto known = depths.find(dependency.get());
      if (known == depths.end()) open.push_back(dependency);
      if (known != depths.end()) depth = std::max(depth, known->second + 1);
    }
    if (open.size() > before) continue;  // these first
    open.pop_back();
    depths[node.get()] = depth;
    if (depth > kMaxNodeDepth) {
      Refuse(node->name + " is at the end of more than " + std::to_string(kMaxNodeDepth) + " nodes in a row");
    }
  }
}

void CheckSelector(const Node& node) {
  for (const NodePtr& selected : Related(node, NodeList::Selected)) {
    if (DependsOn(node, *selected))
      Refuse(node.name + " selects " + selected->name + ", on which it depends");
  }
}

}  // namespace

void CheckPublishable(const FeatureTree& tree) {
  CheckDepths(tree);
  for (const NodePtr& node : tree.Nodes()) {
    CheckLinks(tree, *node);
    if (node->traits.children == ChildRole::Entry) CheckEntries(*node);
    if (node->traits.source == ValueSource::Formula && node->formula.Empty())
      Refuse(node->name + " has no formula");
    CheckLimits(*node);
    CheckSelector(*node);
  }
}

}  // namespace Tarn
