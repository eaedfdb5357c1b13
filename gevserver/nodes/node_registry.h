#pragma once

/// The node objects of the process by their handles.

#include <map>
#include <memory>

#include "camera/base/process_mutex.h"
#include "gevserver/library/tr_types.h"

namespace Tarn::GevServer {
class Node;
}

namespace Tarn::GevServer::Private {

/// Finds the object of a library node, so that there is one at a time, also for free nodes and for entries
/// that share their name with another. A handle means one node for as long as an object owns it.
/// Threads: any thread.
class NodeRegistry {
 public:
  static NodeRegistry& Instance();

  /// The object of a handle; null when there is none.
  std::shared_ptr<Node> Find(TR_HANDLE handle) const;

  /// Makes a node known.
  /// \return the node, or the one that is known already
  std::shared_ptr<Node> Insert(const std::shared_ptr<Node>& node);

  /// Called by dying nodes. A new object over the same handle stays known.
  void RemoveDead(TR_HANDLE handle);

 private:
  mutable ProcessMutex mutex_;
  std::map<TR_HANDLE, std::weak_ptr<Node>> nodes_ TARN_GUARDED_BY(mutex_);
};

}  // namespace Tarn::GevServer::Private
