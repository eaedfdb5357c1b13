#include "gevserver/node_map.h"

#include <stdexcept>
#include <utility>

#include "core/tarn_exception.h"
#include "core/two_call_text.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/node_name.h"
#include "gevserver/nodes/enumeration_node.h"
#include "gevserver/nodes/node_factory.h"
#include "gevserver/nodes/value_node.h"
#include "gevserver/server_base.h"
#include "gevserver/server_call.h"

namespace Tarn::GevServer {

namespace {

constexpr const char* kRootCategory = "Root";

// The lent server lives to the end of the library call that this argument belongs to. Null when it is gone;
// the library refuses that handle.
TR_HANDLE HandleOf(const std::shared_ptr<ServerBase>& server) { return server ? server->Handle() : nullptr; }

void CheckNodeMap(TR_STATUS status) { CheckServerCall(kNodeMapPrefix, status); }

auto FailWith(const char* text) {
  return [text](TR_STATUS status) {
    if (status < 0) ThrowStatus(status, text);
  };
}

std::vector<std::shared_ptr<EnumEntryNode>> EntriesOf(const std::shared_ptr<Node>& node) {
  const auto enumeration = std::dynamic_pointer_cast<EnumerationNode>(node);
  return enumeration ? enumeration->Entries() : std::vector<std::shared_ptr<EnumEntryNode>>();
}

std::string TextOf(const std::shared_ptr<Node>& node, const char* otherwise) {
  const auto value = std::dynamic_pointer_cast<ValueNode>(node);
  return value ? value->ToString() : otherwise;
}

}  // namespace

std::shared_ptr<NodeMap> NodeMap::Create(const std::shared_ptr<ServerBase>& server) {
  std::shared_ptr<NodeMap> map(new NodeMap(server));
  map->LoadNames();
  return map;
}

NodeMap::NodeMap(std::weak_ptr<ServerBase> server) : server_(std::move(server)) {}

void NodeMap::LoadNames() {
  const auto server = Server();
  std::int64_t count = 0;
  FailWith("failed to get node count")(GSNodeCount(HandleOf(server), &count));
  for (std::int64_t index = 0; index < count; ++index) {
    std::string name = ReadTwoCallText(
        [&](char* text, std::size_t* size) { return GSNodeList(HandleOf(server), index, text, size); },
        FailWith("failed to get node name length"), FailWith("failed to get node name"));
    const MutexLock lock(mutex_);
    nodes_.emplace(std::move(name), std::weak_ptr<Node>());
  }
}

void NodeMap::AddNode(const std::string& key, const std::shared_ptr<Node>& node) { AddIfNew(key, node); }

bool NodeMap::AddIfNew(const std::string& key, const std::shared_ptr<Node>& node) {
  if (key.empty()) throw std::runtime_error("key must not be empty");
  if (!node) throw std::runtime_error("node must not be null");
  if (Cached(key) == node) return false;
  if (key != node->NameOnly()) throw std::runtime_error("key and value->NameOnly() must be equal");
  CheckNodeMap(GSAddNode(HandleOf(Server()), node->Handle()));
  Join(key, node);
  for (const auto& entry : EntriesOf(node)) ListEntry(entry);
  return true;
}

void NodeMap::AddNode(const std::string& key, const std::shared_ptr<Node>& node, std::int32_t list) {
  const bool added = AddIfNew(key, node);
  try {
    At(kRootCategory)->Add(node, list);
  } catch (const std::exception&) {
    if (added) RemoveNode(node);
    throw;
  }
}

bool NodeMap::RemoveNode(const std::string& key) {
  const auto node = TryGet(key);
  return node && RemoveNode(node);
}

bool NodeMap::RemoveNode(const std::shared_ptr<Node>& node) {
  if (!node) return false;
  const std::string name = node->NameOnly();
  if (TryGet(name) != node) return false;
  // The library takes the entries of an enumeration out with it.
  std::vector<std::shared_ptr<Node>> leaving = {node};
  for (const auto& entry : EntriesOf(node)) leaving.push_back(entry);
  CheckNodeMap(GSRemoveNode(HandleOf(Server()), node->Handle()));
  Refresh(leaving);
  return true;
}

std::shared_ptr<Node> NodeMap::At(const std::string& name) {
  const std::string name_only = NameOnly(name);
  if (!Contains(name_only)) throw std::out_of_range("no node for name");
  return ObjectOf(name_only, Private::kNoLengthOfNode);
}

std::shared_ptr<Node> NodeMap::TryGet(const std::string& name) {
  if (name.empty()) return nullptr;
  const std::string name_only = NameOnly(name);
  return Contains(name_only) ? ObjectOf(name_only, Private::kNoLengthOfNode) : nullptr;
}

std::vector<std::shared_ptr<Node>> NodeMap::Nodes() {
  std::vector<std::string> names;
  {
    const MutexLock lock(mutex_);
    for (const auto& [name, node] : nodes_) names.push_back(name);
  }
  std::vector<std::shared_ptr<Node>> nodes;
  nodes.reserve(names.size());
  for (const std::string& name : names) nodes.push_back(ObjectOf(name, Private::kNoLengthInListing));
  return nodes;
}

bool NodeMap::Contains(const std::string& name_only) const {
  const MutexLock lock(mutex_);
  return nodes_.contains(name_only);
}

std::int64_t NodeMap::GetInfoAsInt(std::int32_t info) const {
  std::int64_t value = 0;
  CheckNodeMap(GSGetInfoAsInteger(HandleOf(Server()), info, &value));
  return value;
}

void NodeMap::SetInfoAsInt(std::int32_t info, std::int64_t value) {
  CheckNodeMap(GSSetInfoAsInteger(HandleOf(Server()), info, value));
}

GenApiVersion NodeMap::XmlFileVersion() const {
  return {GetInfoAsInt(GS_INFO_XML_VERSION_MAJOR), GetInfoAsInt(GS_INFO_XML_VERSION_MINOR),
          GetInfoAsInt(GS_INFO_XML_VERSION_SUB_MINOR)};
}

void NodeMap::SetXmlFileVersion(const GenApiVersion& version) {
  const auto store = [this](const GenApiVersion& parts) {
    SetInfoAsInt(GS_INFO_XML_VERSION_MAJOR, parts.major_version);
    SetInfoAsInt(GS_INFO_XML_VERSION_MINOR, parts.minor_version);
    SetInfoAsInt(GS_INFO_XML_VERSION_SUB_MINOR, parts.sub_minor_version);
  };
  const GenApiVersion before = XmlFileVersion();
  try {
    store(version);
  } catch (const std::exception&) {
    store(before);  // the library judges each part by itself
    throw;
  }
}

// Source: GenApi, schema 1.1, which the description is written for.
GenApiVersion NodeMap::XmlFileSchemaVersion() const noexcept { return {1, 1, 0}; }

std::string NodeMap::VendorName() { return TextOf(TryGet("DeviceVendorName"), "NORDHAVNOPTICS"); }
std::string NodeMap::ModelName() { return TextOf(TryGet("DeviceModelName"), "TRGevServer"); }

bool NodeMap::IsReadOnly() const {
  const auto server = Server();
  if (!server) throw std::runtime_error("this node map is not attached to a server");
  return server->State() != State::Configuration;
}

std::shared_ptr<Node> NodeMap::ObjectOf(const std::string& name_only, const char* length_failure) {
  if (auto node = Cached(name_only)) return node;
  TR_HANDLE handle = nullptr;
  FailWith("failed to get node")(GSGetNode(HandleOf(Server()), name_only.c_str(), &handle));
  auto node = Private::NodeOfHandle(HandleGuard<Node>(handle), weak_from_this(), length_failure);
  const MutexLock lock(mutex_);
  nodes_[name_only] = node;
  return node;
}

std::shared_ptr<Node> NodeMap::Cached(const std::string& name_only) const {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(name_only);
  return found == nodes_.end() ? nullptr : found->second.lock();
}

void NodeMap::Join(const std::string& name_only, const std::shared_ptr<Node>& node) {
  node->map_ = weak_from_this();
  const MutexLock lock(mutex_);
  nodes_[name_only] = node;
}

void NodeMap::ListEntry(const std::shared_ptr<Node>& entry) {
  entry->map_ = weak_from_this();
  const std::string name = entry->NameOnly();
  const MutexLock lock(mutex_);
  // A later entry of the same name lives in its enumeration only.
  nodes_.emplace(name, entry);
}

void NodeMap::Refresh(const std::vector<std::shared_ptr<Node>>& nodes) {
  for (const auto& node : nodes) {
    const std::string name = node->NameOnly();
    TR_HANDLE handle = nullptr;
    const bool known = GSGetNode(HandleOf(Server()), name.c_str(), &handle) >= 0;
    const HandleGuard<Node> found(handle);
    if (known && found.Get() == node->Handle()) continue;
    node->map_.reset();
    const MutexLock lock(mutex_);
    nodes_.erase(name);
    // An entry of another enumeration may have that name too, and is the one that it means from now on.
    if (known) nodes_.emplace(name, std::weak_ptr<Node>());
  }
}

}  // namespace Tarn::GevServer
