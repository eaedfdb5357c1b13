#pragma once

/// The locks of nodes and feature trees.
///
///   | what                                                          | its lock                             |
///   |---------------------------------------------------------------+--------------------------------------|
///   | the tree of a started device, and the nodes in it             | that device's own                    |
///   | trees of devices that are not started, and nodes in no tree   | one that they share, see BuildLock() |
///
/// So whoever builds one device never waits for another one's start, and what a started device does never waits
/// for anything but the device itself. Values do not flow from one to the other (CheckSameGuard). Both kinds of lock are held for moments, never across a call out, and
/// where both are needed the shared one is taken first.

#include <optional>

#include "camera/base/mutex.h"
#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// The lock of what belongs to no started device.
Mutex& BuildLock();

/// A lock for one device. It outlives the device, as nodes may still be reached that had it: the next device
/// that is made uses it again.
class DeviceMutex {
 public:
  DeviceMutex();
  ~DeviceMutex();
  DeviceMutex(const DeviceMutex&) = delete;
  DeviceMutex& operator=(const DeviceMutex&) = delete;

  Mutex& Get() const { return mutex_; }

 private:
  Mutex& mutex_;
};

/// Holds the lock of a tree, of a node, or of a node and others that it is to be linked to.
class NodeLock {
 public:
  explicit NodeLock(const FeatureTree& tree) : NodeLock(tree.guard) {}
  explicit NodeLock(const Node& node) : NodeLock(node.guard) {}
  /// The nodes of a started device cannot be linked anew, so its lock is enough when `node` is one of them.
  NodeLock(const Node& node, const Node& related);
  ~NodeLock();
  NodeLock(const NodeLock&) = delete;
  NodeLock& operator=(const NodeLock&) = delete;

 private:
  explicit NodeLock(const std::atomic<Mutex*>& guard);

  Mutex* first_;
  Mutex* second_ = nullptr;
};

}  // namespace Tarn
