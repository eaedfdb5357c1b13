#pragma once

/// What a node handle stands for. A node has one handle at a time, so that equal handles mean the same node.

#include "camera/capi/pinned.h"
#include "camera/device/node_lock.h"
#include "camera/engine/nodes/node.h"
#include "gevserver/library/tr_status.h"

namespace Tarn {

/// Lets go of a node under the lock that its end needs: the last reference takes it out of the lists of others.
inline void LetGo(NodePtr& node) {
  const MutexLock lock(BuildLock());
  node.reset();
}

struct NodeBox {
  static constexpr std::uint32_t kHandleKind = 0x4E4F4445;  // "NODE"

  explicit NodeBox(NodePtr its_node) : node(std::move(its_node)) {}
  ~NodeBox() {
    {
      const NodeLock lock(*node);
      // Another handle may have been made since the last reference to this one went.
      if (node->handle == handle) node->handle = nullptr;
    }
    LetGo(node);
  }

  NodePtr node;
  TR_HANDLE handle = nullptr;
};

/// A handle of the node with a reference for the caller.
/// Requires: the node's lock is not held.
/// Throws: std::bad_alloc.
inline TR_HANDLE HandleOf(const NodePtr& node) {
  const NodeLock lock(*node);
  if (node->handle && ShareObject(node->handle) == TR_OK) return node->handle;
  auto box = std::make_unique<NodeBox>(node);
  NodeBox& made = *box;
  made.handle = MakeHandle(std::move(box));
  node->handle = made.handle;
  return made.handle;
}

}  // namespace Tarn
