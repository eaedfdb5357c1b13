#include "camera/engine/features/feature_builder.h"

#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_links.h"

namespace Tarn {

NodePtr FeatureBuilder::Own(NodePtr node, bool feature) {
  tree_.AddOwn(node);
  if (feature && category_) AddRelated(category_, NodeList::Child, node, nullptr);
  return node;
}

NodePtr FeatureBuilder::Category(const std::string& name, const std::string& parent, Visibility visibility) {
  category_ = parent.empty() ? nullptr : tree_.Find(parent);
  category_ = Own(MakeNode(NodeKind::Category, name, name_space_), true);
  category_->visibility = visibility;
  return category_;
}

NodePtr FeatureBuilder::Register(NodeKind kind, const std::string& name, std::uint32_t address,
                                 std::uint32_t length, AccessMode access, bool feature) {
  NodePtr node = MakeRegister(kind, name, name_space_, address, length);
  node->reg->access = access;
  node->reg->cache = CacheMode::NoCache;
  // Numbers of the standard's registers are unsigned; 64-bit ones stay below 2^63 and are published as
  // signed, since clients cannot write unsigned ones.
  node->reg->is_signed = length == 8;
  return Own(node, feature);
}

NodePtr FeatureBuilder::IntRegister(const std::string& name, std::uint32_t address, std::uint32_t length,
                                    Visibility visibility, const std::string& tool_tip) {
  NodePtr node = Register(NodeKind::IntReg, name, address, length, AccessMode::ReadOnly, true);
  node->visibility = visibility;
  node->tool_tip = tool_tip;
  return node;
}

NodePtr FeatureBuilder::StringRegister(const std::string& name, std::uint32_t address, std::uint32_t length,
                                       Visibility visibility, const std::string& tool_tip) {
  NodePtr node = Register(NodeKind::StringReg, name, address, length, AccessMode::ReadOnly, true);
  node->visibility = visibility;
  node->tool_tip = tool_tip;
  return node;
}

NodePtr FeatureBuilder::Value(const std::string& name, std::uint32_t address, std::uint32_t length,
                              AccessMode access, std::optional<BitRange> bits) {
  NodePtr node = Register(NodeKind::IntReg, name, address, length, access, false);
  node->reg->bits = bits;
  node->visibility = Visibility::Invisible;
  return node;
}

namespace {

NodePtr Describe(NodePtr node, Setting value, Visibility visibility, const std::string& tool_tip) {
  node->value = std::move(value);
  node->visibility = visibility;
  node->tool_tip = tool_tip;
  return node;
}

}  // namespace

NodePtr FeatureBuilder::Integer(const std::string& name, Setting value, Visibility visibility,
                                const std::string& tool_tip) {
  return Own(Describe(MakeNode(NodeKind::Integer, name, name_space_), std::move(value), visibility, tool_tip),
             true);
}

NodePtr FeatureBuilder::Boolean(const std::string& name, Setting value, Visibility visibility,
                                const std::string& tool_tip) {
  return Own(Describe(MakeNode(NodeKind::Boolean, name, name_space_), std::move(value), visibility, tool_tip),
             true);
}

NodePtr FeatureBuilder::Command(const std::string& name, const NodePtr& target, std::int64_t number,
                                Visibility visibility, const std::string& tool_tip) {
  NodePtr node =
      Own(Describe(MakeNode(NodeKind::Command, name, name_space_), target, visibility, tool_tip), true);
  node->on_value = number;
  return node;
}

NodePtr FeatureBuilder::Enumeration(const std::string& name, Setting value,
                                    std::initializer_list<std::pair<std::string, std::int64_t>> entries,
                                    Visibility visibility, const std::string& tool_tip) {
  NodePtr node = Own(
      Describe(MakeNode(NodeKind::Enumeration, name, name_space_), std::move(value), visibility, tool_tip),
      true);
  for (const auto& [entry_name, number] : entries) {
    NodePtr entry = MakeNode(NodeKind::EnumEntry, entry_name, name_space_);
    entry->value = number;
    AddRelated(node, NodeList::Child, entry, nullptr);
  }
  return node;
}

NodePtr FeatureBuilder::Formula(const std::string& name, std::initializer_list<NodePtr> variables,
                                const std::string& formula) {
  NodePtr node = Own(MakeNode(NodeKind::IntSwissKnife, name, name_space_), false);
  node->visibility = Visibility::Invisible;
  for (const NodePtr& variable : variables) AddRelated(node, NodeList::Child, variable, nullptr);
  SetTextItem(*node, NodeItem::Formula, formula);
  return node;
}

void FeatureBuilder::Deprecate(const NodePtr& node) {
  node->deprecated = true;
  node->visibility = Visibility::Invisible;
}

NodePtr ReadOnlyNode(NodePtr node) {
  node->imposed_access = AccessMode::ReadOnly;
  return node;
}

NodePtr Limited(NodePtr node, Setting min, Setting max, Setting increment) {
  node->min = std::move(min);
  node->max = std::move(max);
  node->increment = std::move(increment);
  return node;
}

NodePtr Unit(NodePtr node, const char* unit) {
  node->unit = unit;
  return node;
}

NodePtr Shown(NodePtr node, Representation representation) {
  node->representation = representation;
  return node;
}

NodePtr OnPort(NodePtr node, PortKind port, std::uint32_t id) {
  node->reg->port = port;
  node->reg->port_id = id;
  return node;
}

}  // namespace Tarn
