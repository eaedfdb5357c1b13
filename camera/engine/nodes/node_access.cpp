#include "camera/engine/nodes/node_access.h"

#include <algorithm>

#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

bool Holds(const NodePtr& condition, bool without, Evaluation& at) {
  return condition ? ReadInteger(*condition, at) != 0 : without;
}

AccessMode Make(bool readable, bool writable) {
  if (readable) return writable ? AccessMode::ReadWrite : AccessMode::ReadOnly;
  return writable ? AccessMode::WriteOnly : AccessMode::NotAvailable;
}

bool AllAvailable(const std::vector<NodePtr>& nodes, Evaluation& at) {
  return std::ranges::all_of(nodes, [&](const NodePtr& node) {
    if (!node) return true;
    const AccessMode mode = AccessOf(*node, at);
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
AccessMode BaseAccess(const Node& node, Evaluation& at) {
  if (node.is_register()) return RegisterAccess(*node.reg);
  if (node.traits.source == ValueSource::Formula) {
    return AllAvailable(UsedVariables(node), at) ? AccessMode::ReadOnly : AccessMode::NotAvailable;
  }
  if (!node.traits.suppliable.Has(NodeItem::Value)) return AccessMode::ReadOnly;  // a category, an entry
  // What cannot be checked cannot be written, and clients give up on the whole node.
  if (!AllAvailable({NodeOf(node.min), NodeOf(node.max), NodeOf(node.increment)}, at)) {
    return AccessMode::NotAvailable;
  }
  const NodePtr source = NodeOf(node.value);
  return source ? AccessOf(*source, at) : AccessMode::ReadWrite;
}

AccessMode ComputeAccess(const Node& node, Evaluation& at) {
  if (!IsImplemented(node, at)) return AccessMode::NotImplemented;
  const AccessMode base = BaseAccess(node, at);
  if (base == AccessMode::NotImplemented || !IsAvailable(node, at)) {
    return base == AccessMode::NotImplemented ? base : AccessMode::NotAvailable;
  }
  const AccessMode imposed = node.imposed_access.value_or(AccessMode::ReadWrite);
  return Make(IsReadable(base) && IsReadable(imposed),
              IsWritable(base) && IsWritable(imposed) && !IsLocked(node, at));
}

}  // namespace

AccessMode RegisterAccess(const RegisterPart& reg) {
  return reg.port == PortKind::Device ? reg.access : AccessMode::ReadOnly;
}

bool IsImplemented(const Node& node, Evaluation& at) { return Holds(node.is_implemented, true, at); }
bool IsAvailable(const Node& node, Evaluation& at) { return Holds(node.is_available, true, at); }
bool IsLocked(const Node& node, Evaluation& at) { return Holds(node.is_locked, false, at); }

AccessMode AccessOf(const Node& node, Evaluation& at) {
  const Evaluation::Level level(at, node);
  return at.Access(node, [&] { return ComputeAccess(node, at); });
}

AccessMode AccessOf(const Node& node) {
  Evaluation now;
  return AccessOf(node, now);
}

CacheMode CacheOf(const Node& node) {
  const Node* end = &node;
  while (!end->is_register()) {
    end = NodeOf(end->value).get();
    if (!end) return CacheMode::NoCache;
  }
  return end->reg->port == PortKind::Device ? end->reg->cache : CacheMode::NoCache;
}

}  // namespace Tarn
