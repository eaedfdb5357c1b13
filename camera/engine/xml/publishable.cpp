#include <set>
#include <string>

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
  if (node.kind == NodeKind::Integer) {
    const IntegerLimits limits = IntegerLimitsOf(node);
    if (limits.min > limits.max) {
      Refuse("the minimum " + std::to_string(limits.min) + " of " + node.name + " is above its maximum " +
             std::to_string(limits.max));
    }
  } else if (node.kind == NodeKind::Float) {
    const FloatLimits limits = FloatLimitsOf(node);
    if (limits.min > limits.max) {
      Refuse("the minimum " + FloatText(limits.min) + " of " + node.name + " is above its maximum " +
             FloatText(limits.max));
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
  for (const NodePtr& node : tree.Nodes()) {
    CheckLinks(tree, *node);
    if (node->kind == NodeKind::Enumeration) CheckEntries(*node);
    if (node->kind == NodeKind::IntSwissKnife && node->formula.Empty())
      Refuse(node->name + " has no formula");
    CheckLimits(*node);
    CheckSelector(*node);
  }
}

}  // namespace Tarn
