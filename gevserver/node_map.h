#pragma once

/// The feature tree of a server: its nodes by name.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "camera/base/mutex.h"
#include "core/gen_api_version.h"

namespace Tarn::GevServer {

class Node;
class ServerBase;

/// Finds, adds and removes the nodes of one server. Made by ServerBase::NodeMap; does not keep the server
/// alive.
///
/// Names are names only, without a namespace; a name with a prefix is looked up without it. Node objects live
/// as long as somebody holds them and are made again on demand. Library failures throw the kind of their
/// code, with texts that begin with "NodeMap: ". Once the server is gone every library call fails.
/// Threads: any thread.
class NodeMap : public std::enable_shared_from_this<NodeMap> {
 public:
  /// The map of a server, filled with the names that the library knows already.
  /// Throws: the kind of the library's code, with "failed to get node count", "failed to get node name
  /// length" or "failed to get node name".
  static std::shared_ptr<NodeMap> Create(const std::shared_ptr<ServerBase>& server);

  /// Adds a node to the top of the map. Adding the same node again does nothing.
  /// Throws: std::runtime_error "key must not be empty", "node must not be null", "key and value->NameOnly()
  /// must be equal".
  void AddNode(const std::string& key, const std::shared_ptr<Node>& node);

  /// The same, and links the node to the category Root.
  /// \param list  GSNodeList; when the link fails, a node that was not there before is taken out again
  void AddNode(const std::string& key, const std::shared_ptr<Node>& node, std::int32_t list);

  /// Takes a node out, with its entries when it is an enumeration. False: no such node here.
  bool RemoveNode(const std::string& key);
  /// The same; false also when the node of that name is another one.
  bool RemoveNode(const std::shared_ptr<Node>& node);

  /// Throws: std::runtime_error "Node name must not be empty", std::out_of_range "no node for name".
  std::shared_ptr<Node> At(const std::string& name);

  /// Null when there is no node of that name.
  std::shared_ptr<Node> TryGet(const std::string& name);

  /// All nodes, ordered by name only. Node::Name tells the full name of each.
  std::vector<std::shared_ptr<Node>> Nodes();

  /// True when a name is listed here, whether its node object exists or not.
  bool Contains(const std::string& name_only) const;

  /// A GSInfo item of the server.
  std::int64_t GetInfoAsInt(std::int32_t info) const;
  void SetInfoAsInt(std::int32_t info, std::int64_t value);

  /// Version of the description that clients download.
  GenApiVersion XmlFileVersion() const;
  /// Sets all parts or none.
  void SetXmlFileVersion(const GenApiVersion& version);
  /// Version of the schema that the description follows.
  GenApiVersion XmlFileSchemaVersion() const noexcept;

  /// Value of DeviceVendorName, "NORDHAVNOPTICS" without such a node.
  std::string VendorName();
  /// Value of DeviceModelName, "TRGevServer" without such a node.
  std::string ModelName();

  /// True while the server is started.
  /// Throws: std::runtime_error "this node map is not attached to a server".
  bool IsReadOnly() const;

  /// Null when the server is gone.
  std::shared_ptr<ServerBase> Server() const { return server_.lock(); }

 private:
  friend class Node;  // lists entries that it adopts, and those that it loses

  explicit NodeMap(std::weak_ptr<ServerBase> server);

  void LoadNames();
  // False when this very node was there before.
  bool AddIfNew(const std::string& key, const std::shared_ptr<Node>& node);
  std::shared_ptr<Node> ObjectOf(const std::string& name_only, const char* length_failure);
  std::shared_ptr<Node> Cached(const std::string& name_only) const;
  void Join(const std::string& name_only, const std::shared_ptr<Node>& node);
  // An entry joins the map together with its enumeration; the name goes on meaning the first entry of that
  // name.
  void ListEntry(const std::shared_ptr<Node>& entry);
  // Has the map agree with the library again about nodes that may have left.
  void Refresh(const std::vector<std::shared_ptr<Node>>& nodes);

  const std::weak_ptr<ServerBase> server_;
  mutable Mutex mutex_;  // not held during library calls
  std::map<std::string, std::weak_ptr<Node>> nodes_ TARN_GUARDED_BY(mutex_);
};

}  // namespace Tarn::GevServer
