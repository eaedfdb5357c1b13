#include "camera/engine/nodes/node_access.h"

#include <algorithm>

#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

bool Holds(const NodePtr& condition, bool without) {
  return condition ? ReadInteger(*condition) != 0 : without;
}

AccessMode Make(bool readable, bool writable) {
  if (readable) return writable ? AccessMode::ReadWrite : AccessMode::ReadOnly;
  return writable ? AccessMode::WriteOnly : AccessMode::NotAvailable;
}

bool AllAvailable(const std::vector<NodePtr>& nodes) {
  return std::ranges::all_of(nodes, [](const NodePtr& node) {
    if (!node) return true;
    const AccessMode mode = AccessOf(*node);
    return mode != AccessMode::NotImplemented && mode != AccessMode::NotAvailable;
  });
}

/// Only these are published: a client knows nothing of the others.
std::vector<NodePtr> UsedVariables(const Node& knife) {
  std::vector<NodePtr> used;
  for (std::size_t i = 0; i < knife.children.size() && !knife.formula.Empty(); ++i) {
    if (knife.formula.Uses(i)) used.push_back(knife.children[i]);
  }
  return used;
}

/// Before the node's own restrictions.
AccessMode BaseAccess(const Node& node) {
  if (node.is_register()) return RegisterAccess(*node.reg);
  switch (node.kind) {
    case NodeKind::Category:
    case NodeKind::EnumEntry:
      return AccessMode::ReadOnly;
    case NodeKind::IntSwissKnife:
      return AllAvailable(UsedVariables(node)) ? AccessMode::ReadOnly : AccessMode::NotAvailable;
    default:
      break;
  }
  // What cannot be checked cannot be written, and clients give up on the whole node.
  if (!AllAvailable({NodeOf(node.min), NodeOf(node.max), NodeOf(node.increment)}))
    return AccessMode::NotAvailable;
  const NodePtr source = NodeOf(node.value);
  return source ? AccessOf(*source) : AccessMode::ReadWrite;
}

}  // namespace

AccessMode RegisterAccess(const RegisterPart& reg) {
  return reg.port == PortKind::Device ? reg.access : AccessMode::ReadOnly;
}

bool IsImplemented(const Node& node) { return Holds(node.is_implemented, true); }
bool IsAvailable(const Node& node) { return Holds(node.is_available, true); }
bool IsLocked(const Node& node) { return Holds(node.is_locked, false); }

AccessMode AccessOf(const Node& node) {
  if (!IsImplemented(node)) return AccessMode::NotImplemented;
  const AccessMode base = BaseAccess(node);
  if (base == AccessMode::NotImplemented || !IsAvailable(node)) {
    return base == AccessMode::NotImplemented ? base : AccessMode::NotAvailable;
  }
  const AccessMode imposed = node.imposed_access.value_or(AccessMode::ReadWrite);
  return Make(IsReadable(base) && IsReadable(imposed),
              IsWritable(base) && IsWritable(imposed) && !IsLocked(node));
}

CacheMode CacheOf(const Node& node) {
  if (node.is_register()) return node.reg->port == PortKind::Device ? node.reg->cache : CacheMode::NoCache;
  const NodePtr source = NodeOf(node.value);
  return source ? CacheOf(*source) : CacheMode::NoCache;
}

}  // namespace Tarn
