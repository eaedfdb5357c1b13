#pragma once

/// Nodes for tests, made in one expression, and what a call was refused with.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node.h"
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
