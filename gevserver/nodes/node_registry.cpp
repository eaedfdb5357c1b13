#include "gevserver/nodes/node_registry.h"

#include "gevserver/nodes/node.h"

namespace Tarn::GevServer::Private {

// Never destroyed: node objects may outlive static destruction.
NodeRegistry& NodeRegistry::Instance() {
  static NodeRegistry& registry = *new NodeRegistry;
  return registry;
}

std::shared_ptr<Node> NodeRegistry::Find(TR_HANDLE handle) const {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(handle);
  return found == nodes_.end() ? nullptr : found->second.lock();
}

std::shared_ptr<Node> NodeRegistry::Insert(const std::shared_ptr<Node>& node) {
  const MutexLock lock(mutex_);
  std::weak_ptr<Node>& known = nodes_[node->Handle()];
  if (auto other = known.lock()) return other;
  known = node;
  return node;
}

void NodeRegistry::RemoveDead(TR_HANDLE handle) {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(handle);
  if (found != nodes_.end() && found->second.expired()) nodes_.erase(found);
}

}  // namespace Tarn::GevServer::Private
