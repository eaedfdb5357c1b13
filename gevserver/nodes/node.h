#pragma once

/// The root of the node classes.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/handle_guard.h"
#include "gevserver/library/tr_codes.h"
#include "gevserver/nodes/cb_carrier.h"

namespace Tarn::GevServer {

class Node;
class NodeMap;

namespace Private {
/// What a node object is made of; see MakeNode.
struct NewNode {
  HandleGuard<Node> handle;
  std::weak_ptr<GevServer::NodeMap> map;  ///< empty for a free node
};
}  // namespace Private

/// A feature of the camera: the owner of one node handle of the library, where all its properties live.
///
/// Made by the factories of the concrete classes, then free until it is added to a node map; or made by a
/// node map for a node that the library has. One library node has one node object at a time. Setters of the
/// description work while the server is in Configuration; the library refuses them otherwise. Library
/// failures throw by the thread's last error (CheckLastError).
/// Threads: any thread for the listeners; otherwise one at a time. Destruction waits for nothing.
class Node {
 public:
  explicit Node(Private::NewNode parts);
  virtual ~Node();
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  /// Current GSAccessMode.
  virtual std::int32_t AccessMode() const;
  /// GSCacheMode.
  virtual std::int32_t CacheMode() const;

  bool IsReadable() const;
  bool IsWritable() const;

  TR_HANDLE Handle() const noexcept { return handle_.Get(); }
  /// GSNodeType.
  std::int32_t Type() const;
  /// The map that the node is in; null for a free node, and when the map is gone.
  std::shared_ptr<GevServer::NodeMap> NodeMap() const { return map_.lock(); }

  std::string Name() const;      ///< with namespace prefix
  std::string NameOnly() const;  ///< without
  std::int32_t NameSpace() const;

  std::string DisplayName() const;
  /// Throws: std::runtime_error "Display name must not be empty".
  void SetDisplayName(const std::string& text);
  std::string ToolTip() const;
  /// Throws: std::runtime_error "Tooltip short descriptive text must not be empty".
  void SetToolTip(const std::string& text);
  std::string Description() const;
  /// Throws: std::runtime_error "Description must not be empty".
  void SetDescription(const std::string& text);

  std::int32_t Visibility() const;
  void SetVisibility(std::int32_t visibility);
  std::int64_t EventId() const;  ///< 0 when there is none
  void SetEventId(std::int64_t id);

  /// GSAccessMode that the node is restricted to, if any; setting none lifts it.
  std::optional<std::int32_t> ImposedAccessMode() const;
  void SetImposedAccessMode(std::optional<std::int32_t> mode);

  bool IsImplemented() const;
  bool IsFeature() const;
  bool IsDeprecated() const;

  /// Nodes that decide about this one; null when none is set. Setters throw: "node to set must not be empty".
  std::shared_ptr<Node> IsImplementedConfig() const;
  void SetIsImplementedConfig(const std::shared_ptr<Node>& node);
  std::shared_ptr<Node> IsAvailableConfig() const;
  void SetIsAvailableConfig(const std::shared_ptr<Node>& node);
  std::shared_ptr<Node> IsLockedConfig() const;
  void SetIsLockedConfig(const std::shared_ptr<Node>& node);
  std::shared_ptr<Node> AliasNode() const;
  void SetAliasNode(const std::shared_ptr<Node>& node);

  /// Links a node to this one.
  /// \param kind  GSNodeList A free entry that is added to an enumeration joins its map; other nodes are put
  /// into a map by the map.
  /// Throws: std::runtime_error "Added Node must not be nullptr", "Parent Node must have node map",
  ///   "Added Node must be in the same node map as this Parent".
  void Add(const std::shared_ptr<Node>& node, std::int32_t kind);
  /// False when the node was not linked so. An entry that its enumeration loses leaves the map, unless it was
  /// added to the map by itself.
  bool Remove(const std::shared_ptr<Node>& node, std::int32_t kind);
  /// The linked nodes of one kind, in the library's order.
  std::vector<std::shared_ptr<Node>> Related(std::int32_t kind) const;
  /// The same with the name of each in this relation.
  std::vector<std::pair<std::string, std::shared_ptr<Node>>> NamedRelated(std::int32_t kind) const;
  /// Their number.
  /// Throws: the kind of the library's code, with "failed calling GSNListCount".
  std::int64_t RelatedCount(std::int32_t kind) const;

  /// Listeners that run after a client has changed the value; nodes without a value never call them.
  std::uint64_t RegisterUpdated(CbCarrier<>::Callback callback) {
    const std::uint64_t cookie = updated_.Register(std::move(callback));
    OnListenersChanged();
    return cookie;
  }
  bool UnregisterUpdated(std::uint64_t cookie) {
    const bool found = updated_.Unregister(cookie);
    OnListenersChanged();
    return found;
  }

  // Items of the description by their GSNodeInfo code.
  std::string GetInfoAsString(std::int32_t info) const;
  std::int64_t GetInfoAsInt(std::int32_t info) const;
  double GetInfoAsFloat(std::int32_t info) const;
  /// Null when no node is set.
  std::shared_ptr<Node> GetInfoAsNode(std::int32_t info) const;
  void SetInfoAsString(std::int32_t info, const std::string& text);
  void SetInfoAsInt(std::int32_t info, std::int64_t value);
  void SetInfoAsFloat(std::int32_t info, double value);
  /// Throws: std::runtime_error "value to set must not be empty".
  void SetInfo(std::int32_t info, const std::string& text);
  /// Throws: std::runtime_error "node to set must not be empty".
  void SetInfo(std::int32_t info, const std::shared_ptr<Node>& node);

 protected:
  /// A listener came or went.
  virtual void OnListenersChanged() {}

  /// GetInfoAsInt for the codes that fit 32 bits.
  std::int32_t GetInfoAsCode(std::int32_t info) const;

  CbCarrier<> updated_;

 private:
  friend class GevServer::NodeMap;  // sets map_

  // Whether linking `node` with this kind makes it an entry of this enumeration.
  bool IsEntryOfThis(const Node& node, std::int32_t kind) const;

  // The node object behind a handle that the library gave us; takes over its reference.
  std::shared_ptr<Node> ObjectOf(TR_HANDLE handle) const;

  std::weak_ptr<GevServer::NodeMap> map_;
  const HandleGuard<Node> handle_;
};

}  // namespace Tarn::GevServer
