#include "engine/nodes/node_access.h"

#include "engine/nodes/node_values.h"

namespace Tarn {
namespace {

bool Holds(const NodePtr& condition, bool without) {
  return condition ? ReadInteger(*condition) != 0 : without;
}

AccessMode Make(bool readable, bool writable) {
  if (readable) return writable ? AccessMode::ReadWrite : AccessMode::ReadOnly;
  return writable ? AccessMode::WriteOnly : AccessMode::NotAvailable;
}

/// Before the node's own restrictions.
AccessMode BaseAccess(const Node& node) {
  if (node.is_register()) return node.reg->access;
  switch (node.kind) {
    case NodeKind::Category:
    case NodeKind::EnumEntry:
    case NodeKind::IntSwissKnife:
      return AccessMode::ReadOnly;
    default:
      break;
  }
  const NodePtr source = NodeOf(node.value);
  return source ? AccessOf(*source) : AccessMode::ReadWrite;
}

}  // namespace

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
  if (node.is_register()) return node.reg->cache;
  const NodePtr source = NodeOf(node.value);
  return source ? CacheOf(*source) : CacheMode::NoCache;
}

}  // namespace Tarn
