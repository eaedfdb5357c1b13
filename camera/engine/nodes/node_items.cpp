#include "camera/engine/nodes/node_items.h"

#include <unordered_set>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/nodes/node_access.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

[[noreturn]] void ThrowNoItem(const Node& node, NodeItem item) {
  throw EngineError(Failure::kNotSupported, node.name + " has no information item " +
                                                std::to_string(static_cast<std::int32_t>(item)) +
                                                " of this type");
}

const RegisterPart& RegisterOf(const Node& node, NodeItem item) {
  if (!node.reg) ThrowNoItem(node, item);
  return *node.reg;
}

/// Whether clients come to the node from the root category on.
bool IsFeature(const Node& node) {
  const NodePtr root = node.tree ? node.tree->Find("Root") : nullptr;
  std::vector<const Node*> open{root.get()};
  std::unordered_set<const Node*> seen(open.begin(), open.end());
  while (!open.empty()) {
    const Node* next = open.back();
    open.pop_back();
    if (next == &node) return true;
    if (!next || next->traits.children != ChildRole::Member) continue;
    for (const NodePtr& child : next->children) {
      if (seen.insert(child.get()).second) open.push_back(child.get());
    }
  }
  return false;
}

/// The first node along the value chain that says how its value is shown, else the node itself: where a node
/// does not say it, clients ask the node that supplies the value.
template <class Says>
const Node& ShownBy(const Node& node, Says says) {
  for (const Node* next = &node; next; next = NodeOf(next->value).get()) {
    if (says(*next)) return *next;
    if (next->traits.value != ValueType::Integer && next->traits.value != ValueType::Float) break;
  }
  return node;
}

Representation RepresentationOf(const Node& node) {
  const Node& shown_by = ShownBy(node, [](const Node& next) { return next.representation.has_value(); });
  return shown_by.representation.value_or(Representation::PureNumber);  // GenApi's default
}

std::int64_t DisplayPrecisionOf(const Node& node) {
  const Node& shown_by = ShownBy(node, [](const Node& next) { return next.display_precision.has_value(); });
  return shown_by.display_precision.value_or(6);  // GenApi's default
}

/// `value` as an enumerator between 0 and `last`.
template <class Code>
Code CodeOf(const Node& node, std::int64_t value, Code last) {
  if (value < 0 || value > static_cast<std::int64_t>(last)) {
    throw EngineError(Failure::kOutOfRange, node.name + ": there is no code " + std::to_string(value));
  }
  return static_cast<Code>(value);
}

AccessMode SettableAccess(const Node& node, std::int64_t value) {
  const auto mode = CodeOf(node, value, AccessMode::ReadWrite);
  if (!IsReadable(mode) && !IsWritable(mode)) {
    throw EngineError(Failure::kOutOfRange,
                      node.name + ": only read only, write only and read-write can be set");
  }
  return mode;
}

/// The setting behind a value-like item; null when the kind has none. As const as the node.
template <class AnyNode>
auto SettingOf(AnyNode& node, NodeItem item) -> decltype(&node.value) {
  if (!node.traits.settings.Has(item)) return nullptr;
  switch (item) {
    case NodeItem::Value:
      return &node.value;
    case NodeItem::Min:
      return &node.min;
    case NodeItem::Max:
      return &node.max;
    case NodeItem::Increment:
      return &node.increment;
    case NodeItem::OnValue:
      return &node.on_value;
    case NodeItem::OffValue:
      return &node.off_value;
    default:
      return nullptr;
  }
}

template <class AnyNode>
auto ConditionOf(AnyNode& node, NodeItem item) -> decltype(&node.is_locked) {
  switch (item) {
    case NodeItem::IsImplemented:
      return &node.is_implemented;
    case NodeItem::IsAvailable:
      return &node.is_available;
    case NodeItem::IsLocked:
      return &node.is_locked;
    default:
      return nullptr;
  }
}

template <class AnyNode>
auto TextOf(AnyNode& node, NodeItem item) -> decltype(&node.unit) {
  switch (item) {
    case NodeItem::DisplayName:
      return &node.display_name;
    case NodeItem::ToolTip:
      return &node.tool_tip;
    case NodeItem::Description:
      return &node.description;
    case NodeItem::Unit:
      return &node.unit;
    default:
      return nullptr;
  }
}

/// Limits as they stand now, whatever supplies them.
std::int64_t IntegerLimit(const Node& node, NodeItem item) {
  Evaluation now;
  const IntegerLimits limits = IntegerLimitsOf(node, now);
  if (item == NodeItem::Min) return limits.min;
  return item == NodeItem::Max ? limits.max : limits.increment;
}

void CheckIncrement(const Node& node, NodeItem item, bool positive) {
  if (item == NodeItem::Increment && !positive) {
    throw EngineError(Failure::kOutOfRange, node.name + ": an increment must be positive");
  }
}

void SetFormula(Node& node, const std::string& text) {
  if (node.traits.source != ValueSource::Formula) ThrowNoItem(node, NodeItem::Formula);
  std::vector<std::string> names;
  for (const NodePtr& variable : node.children) names.push_back(variable->name);
  node.formula = Formula::Parse(text, names);
  node.formula_text = text;
}

}  // namespace

std::int64_t IntegerItem(const Node& node, NodeItem item) {
  Evaluation now;
  switch (item) {
    case NodeItem::AccessMode:
      return static_cast<std::int64_t>(AccessOf(node, now));
    case NodeItem::CachingMode:
      return static_cast<std::int64_t>(CacheOf(node));
    case NodeItem::NumEnumEntries:
      if (node.traits.children != ChildRole::Entry) ThrowNoItem(node, item);
      return static_cast<std::int64_t>(node.children.size());
    case NodeItem::Streamable:
      return node.streamable;
    case NodeItem::Visibility:
      return static_cast<std::int64_t>(node.visibility);
    case NodeItem::PollingTime:
      return node.polling_time;
    case NodeItem::EventId:
      return node.event_id;
    case NodeItem::NameSpace:
      return static_cast<std::int64_t>(node.name_space);
    case NodeItem::RegisterLength:
      return RegisterOf(node, item).length;
    case NodeItem::RegisterAddress:
      RegisterOf(node, item);
      return CurrentAddress(node, now);
    case NodeItem::Representation:
      return static_cast<std::int64_t>(RepresentationOf(node));
    case NodeItem::ImposedAccessMode:
      return node.imposed_access ? static_cast<std::int64_t>(*node.imposed_access) : -1;
    case NodeItem::IsImplemented:
      return IsImplemented(node, now);
    case NodeItem::IsAvailable:
      return IsAvailable(node, now);
    case NodeItem::IsLocked:
      return IsLocked(node, now);
    case NodeItem::Sign:
      return RegisterOf(node, item).is_signed;
    case NodeItem::DisplayPrecision:
      return DisplayPrecisionOf(node);
    case NodeItem::IsFeature:
      return IsFeature(node);
    case NodeItem::IsDeprecated:
      return node.deprecated;
    case NodeItem::Min:
    case NodeItem::Max:
    case NodeItem::Increment:
      return IntegerLimit(node, item);
    default:
      break;
  }
  const Setting* setting = SettingOf(node, item);
  if (!setting) ThrowNoItem(node, item);
  if (const auto* number = std::get_if<std::int64_t>(setting)) return *number;
  if (const NodePtr source = NodeOf(*setting)) return ReadInteger(*source, now);
  return 0;
}

double FloatItem(const Node& node, NodeItem item) {
  if (item != NodeItem::Min && item != NodeItem::Max && item != NodeItem::Increment) {
    const Setting* setting = SettingOf(node, item);
    if (!setting || node.traits.value != ValueType::Float) ThrowNoItem(node, item);
    return ReadFloat(node);
  }
  Evaluation now;
  const FloatLimits limits = FloatLimitsOf(node, now);
  if (item == NodeItem::Min) return limits.min;
  return item == NodeItem::Max ? limits.max : limits.increment.value_or(0.0);
}

std::string TextItem(const Node& node, NodeItem item) {
  switch (item) {
    case NodeItem::Name:
      return FullName(node);
    case NodeItem::DisplayName:
      return node.display_name.empty() ? node.name : node.display_name;
    case NodeItem::Formula:
      if (node.traits.source != ValueSource::Formula) ThrowNoItem(node, item);
      return node.formula_text;
    case NodeItem::Alias: {
      const NodePtr alias = node.alias.lock();
      return alias ? FullName(*alias) : std::string();
    }
    case NodeItem::Value:
      return ReadText(node);
    case NodeItem::Unit:
      return ShownBy(node, [](const Node& next) { return !next.unit.empty(); }).unit;
    default:
      break;
  }
  const std::string* text = TextOf(node, item);
  if (!text) ThrowNoItem(node, item);
  return *text;
}

NodePtr NodeOfItem(const Node& node, NodeItem item) {
  if (item == NodeItem::Alias) return node.alias.lock();
  if (const NodePtr* condition = ConditionOf(node, item)) return *condition;
  // A register's value is its own.
  if (item == NodeItem::Value && node.is_register()) return nullptr;
  const Setting* setting = SettingOf(node, item);
  if (!setting) ThrowNoItem(node, item);
  return NodeOf(*setting);
}

void SetIntegerItem(Node& node, NodeItem item, std::int64_t value) {
  CheckChangeable(node);
  switch (item) {
    case NodeItem::AccessMode:
      RegisterOf(node, item);
      node.reg->access = SettableAccess(node, value);
      return;
    case NodeItem::CachingMode:
      RegisterOf(node, item);
      node.reg->cache = CodeOf(node, value, CacheMode::WriteAround);
      return;
    case NodeItem::Streamable:
      node.streamable = value != 0;
      return;
    case NodeItem::Visibility:
      node.visibility = CodeOf(node, value, Visibility::Invisible);
      return;
    case NodeItem::PollingTime:
      if (value < 0)
        throw EngineError(Failure::kOutOfRange, node.name + ": a polling time cannot be negative");
      node.polling_time = value;
      return;
    case NodeItem::EventId:
      // Source: GigE Vision, event numbers are 16 bit; 0 stands for none.
      if (value < 0 || value > 0xFFFF) {
        throw EngineError(Failure::kOutOfRange, node.name + ": an event id is a number of 16 bits");
      }
      node.event_id = value;
      return;
    case NodeItem::Representation:
      node.representation = CodeOf(node, value, Representation::MacAddress);
      return;
    case NodeItem::ImposedAccessMode:
      node.imposed_access = value == -1 ? std::nullopt : std::optional(SettableAccess(node, value));
      return;
    case NodeItem::Sign:
      if (!node.reg || node.traits.value != ValueType::Integer) ThrowNoItem(node, item);
      node.reg->is_signed = value != 0;
      return;
    case NodeItem::DisplayPrecision:
      if (value < 0) throw EngineError(Failure::kOutOfRange, node.name + ": a precision cannot be negative");
      node.display_precision = value;
      return;
    case NodeItem::IsDeprecated:
      node.deprecated = value != 0;
      return;
    default:
      break;
  }
  Setting* setting = SettingOf(node, item);
  if (!setting || node.traits.value == ValueType::Text) ThrowNoItem(node, item);
  CheckIncrement(node, item, value > 0);
  if (node.traits.value == ValueType::Float) return SetFloatItem(node, item, static_cast<double>(value));
  *setting = value;
}

void SetFloatItem(Node& node, NodeItem item, double value) {
  CheckChangeable(node);
  Setting* setting = SettingOf(node, item);
  if (!setting || node.traits.value != ValueType::Float) ThrowNoItem(node, item);
  CheckIncrement(node, item, value > 0);
  *setting = value;
}

void SetTextItem(Node& node, NodeItem item, const std::string& text) {
  CheckChangeable(node);
  if (item == NodeItem::Formula) return SetFormula(node, text);
  if (item == NodeItem::Value && node.traits.value == ValueType::Entry) {
    CheckName(text);
    node.symbolic = text;
    return;
  }
  Setting* setting = SettingOf(node, item);
  if (setting && node.traits.value == ValueType::Text) {
    *setting = text;
    return;
  }
  std::string* target = TextOf(node, item);
  if (!target) ThrowNoItem(node, item);
  *target = text;
}

void SetNodeItem(Node& node, NodeItem item, const NodePtr& related) {
  CheckChangeable(node);
  if (item == NodeItem::Alias) {
    if (!HasName(related->traits)) {
      throw EngineError(Failure::kNotSupported, related->name + " cannot be the alias of " + node.name);
    }
    node.alias = related;
    return;
  }
  CheckLink(node, *related);
  if (NodePtr* condition = ConditionOf(node, item)) {
    if (!CanBeCondition(related->traits)) {
      throw EngineError(Failure::kNotSupported, related->name + " cannot decide about " + node.name);
    }
    *condition = related;
    return;
  }
  if (!node.traits.suppliable.Has(item)) ThrowNoItem(node, item);
  if (!CanSupply(related->traits, node.traits)) {
    throw EngineError(Failure::kNotSupported, related->name + " cannot supply a value to " + node.name);
  }
  *SettingOf(node, item) = related;
}

}  // namespace Tarn
