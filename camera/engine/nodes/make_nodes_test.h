#pragma once

/// Nodes for tests, made in one expression, and what a call was refused with.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_links.h"

namespace Tarn {

inline NodePtr NewNode(NodeKind kind, const std::string& name, Setting value = {}) {
  NodePtr node = MakeNode(kind, name, NameSpace::Custom);
  if (IsSet(value)) node->value = std::move(value);
  return node;
}

inline NodePtr NewInteger(const std::string& name, Setting value = std::int64_t{0}) {
  return NewNode(NodeKind::Integer, name, std::move(value));
}

inline NodePtr NewRegister(NodeKind kind, const std::string& name, std::int64_t address,
                           std::int64_t length) {
  return MakeRegister(kind, name, NameSpace::Custom, address, length);
}

inline NodePtr NewIntReg(const std::string& name, std::int64_t address = -1, std::int64_t length = 4) {
  return NewRegister(NodeKind::IntReg, name, address, length);
}

inline NodePtr NewEntry(const std::string& name, std::int64_t number) {
  return NewNode(NodeKind::EnumEntry, name, number);
}

inline NodePtr NewEnumeration(const std::string& name, Setting value,
                              const std::vector<std::pair<std::string, std::int64_t>>& entries) {
  NodePtr node = NewNode(NodeKind::Enumeration, name, std::move(value));
  for (const auto& [entry, number] : entries) {
    AddRelated(node, NodeList::Child, NewEntry(entry, number), nullptr);
  }
  return node;
}

inline NodePtr NewBounded(const std::string& name, std::int64_t min, std::int64_t max,
                          std::int64_t increment = 1) {
  NodePtr node = NewInteger(name);
  node->min = min;
  node->max = max;
  node->increment = increment;
  return node;
}

/// Adds `related` at the end, and returns the node.
inline NodePtr Link(const NodePtr& node, NodeList list, const NodePtr& related) {
  AddRelated(node, list, related, nullptr);
  return node;
}

/// A swiss knife of these variables; an empty formula is not set.
inline NodePtr NewKnife(const std::string& name, const std::vector<NodePtr>& variables,
                        const std::string& formula) {
  NodePtr node = NewNode(NodeKind::IntSwissKnife, name);
  for (const NodePtr& variable : variables) Link(node, NodeList::Child, variable);
  if (!formula.empty()) SetTextItem(*node, NodeItem::Formula, formula);
  return node;
}

/// Adds the node, and returns it.
inline NodePtr Put(FeatureTree& tree, NodePtr node) {
  tree.Add(node);
  return node;
}

/// The reason with which `call` is refused; nothing when it is not.
template <class Call>
std::optional<Failure> Refusal(Call&& call) {
  try {
    call();
  } catch (const EngineError& error) {
    return error.failure();
  }
  return std::nullopt;
}

}  // namespace Tarn
