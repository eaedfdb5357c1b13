#include "gevserver/nodes/node.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <stdexcept>

#include "binding/core_values.h"
#include "gevserver/node_map.h"
#include "module/node_listeners.h"
#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

/// Members of a category or selector belong to its map. Entries have joined it with the link.
void JoinMapOf(Native::Node& parent, const NodePtr& node, std::int32_t kind) {
  if (node->NodeMap()) return;
  try {
    parent.NodeMap()->AddNode(node->NameOnly(), node);
  } catch (const std::exception&) {
    parent.Remove(node, kind);
    throw;
  }
}

/// An entry leaves the map together with its enumeration, as clients reach it through that alone.
bool Remove(Native::Node& parent, const GivenNode& given, std::int32_t kind) {
  const PyRef map = NodeMapOf(parent);
  const auto record = map ? FindMeta<NodeMapMeta>(map.Get()) : nullptr;
  if (!parent.Remove(given.node, kind)) return false;
  if (record) NodesLeftMap(*record, {given.node});
  return true;
}

void AddNode(Native::Node& parent, const NodePtr& node, std::int32_t kind) {
  if (!NodeMapOf(parent)) throw std::runtime_error("Parent python node must have node map");
  parent.Add(node, kind);
  JoinMapOf(parent, node, kind);
  NodeJoinedMap(node);
}

const ParamDoc kKindOfNode{"kind", "int", "Kind of node."};

void AddRelations(TypeBuilder& type) {
  type.Method<Signature<&AddNode, "node", "kind">>(
          "add", {{.summary = "Adds a node to this node.",
                   .description = WithConfigurationRule(
                       "See tarn.gevserver.NodeList for the kinds. A node that is in no node map is added to "
                       "the node map of this node as well."),
                   .params = {{"node", "tarn.gevserver.Node", "Node to add."}, kKindOfNode}}})
      .Method<Signature<&Remove, "node", "kind">>(
          "remove",
          {{.summary = "Removes a node from this node.",
            .description = WithConfigurationRule(
                "See tarn.gevserver.NodeList for the kinds. The node stays in its node map; only an entry "
                "leaves it together with its enumeration."),
            .params = {{"node", "tarn.gevserver.Node", "Node to remove."}, kKindOfNode},
            .returns = {"bool", "True if the node was removed, otherwise false."}}})
      .ReadOnly<&NodeMapOf>("node_map", "Gets the node map of this GevServer node.",
                            "None as long as the node is in no node map.");
}

void AddTexts(TypeBuilder& type) {
  type.ReadWrite<&Native::Node::ToolTip, &Native::Node::SetToolTip>(
          "tool_tip", "Gets or sets the short descriptive text of this node.", kConfigurationOnly)
      .ReadWrite<&Native::Node::Description, &Native::Node::SetDescription>(
          "description", "Gets or sets the long descriptive text of this node.", kConfigurationOnly);
}

void AddAccess(TypeBuilder& type) {
  type.ReadOnly<&Native::Node::AccessMode>("access_mode",
                                           "Gets the access mode of this node (see tarn.AccessMode).")
      .ReadWrite<&Native::Node::ImposedAccessMode, &Native::Node::SetImposedAccessMode>(
          "imposed_access_mode", "Gets or sets the default access mode of this node (see tarn.AccessMode).",
          WithConfigurationRule("None when no access mode is imposed; setting None lifts it."))
      .ReadOnly<&Native::Node::IsImplemented>("is_implemented", "Gets whether the node is implemented.")
      .ReadWrite<&Native::Node::IsImplementedConfig, &Native::Node::SetIsImplementedConfig>(
          "is_implemented_config",
          "Gets or sets the node that specifies whether a node is implemented in the device or not.",
          kConfigurationOnly)
      .ReadWrite<&Native::Node::IsAvailableConfig, &Native::Node::SetIsAvailableConfig>(
          "is_available_config",
          "Gets or sets the node that specifies whether a node is currently available or not.",
          kConfigurationOnly)
      .ReadWrite<&Native::Node::IsLockedConfig, &Native::Node::SetIsLockedConfig>(
          "is_locked_config",
          "Gets or sets the node that specifies whether a node is currently read only or not.",
          kConfigurationOnly)
      .ReadOnly<&Native::Node::IsReadable>("is_readable", "Helper to check whether this node is readable.")
      .ReadOnly<&Native::Node::IsWritable>("is_writable", "Helper to check whether this node is writable.")
      .ReadOnly<&Native::Node::CacheMode>("cache_mode",
                                          "Gets the cache mode of this node (see tarn.CacheMode).")
      .ReadOnly<&Native::Node::Visibility>("visibility",
                                           "Gets the complexity level of this node (see tarn.Visibility).");
}

void AddIdentity(TypeBuilder& type) {
  type.ReadWrite<&Native::Node::AliasNode, &Native::Node::SetAliasNode>(
          "alias_node", "Gets or sets the node that is an alias value for this node.", kConfigurationOnly)
      .ReadOnly<&Native::Node::Name>("name", "Gets the full name of this node.")
      .ReadOnly<&Native::Node::NameOnly>("name_only", "Gets the full name of this node without namespace.")
      .ReadOnly<&Native::Node::NameSpace>(
          "name_space", "Gets the namespace this node is in (see tarn.gevserver.NameSpace).")
      .ReadOnly<&Native::Node::EventId>(
          "event_id",
          "Nodes with an event identifier may become invalidated if an event/message is delivered from the "
          "device.",
          "0 when the node has none.")
      .ReadOnly<&Native::Node::IsFeature>("is_feature",
                                          "Gets whether this node is considered a feature node.")
      .ReadOnly<&Native::Node::IsDeprecated>("is_deprecated",
                                             "Gets whether this node is considered deprecated.")
      .ReadWrite<&Native::Node::DisplayName, &Native::Node::SetDisplayName>(
          "display_name", "Gets or sets the display name of this node.", kConfigurationOnly);
}

}  // namespace

template <>
void TypeDef<Node>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.Node", "Basic GevServer node for device feature access.");
  AddRelations(type);
  AddTexts(type);
  AddAccess(type);
  AddIdentity(type);
  AddListener<&RegisterEventUpdated, &UnregisterEventUpdated>(
      type, "event_updated", "Register a listener to node updated event.",
      "Manually unregister a listener to the node updated event.");
}

}  // namespace _tarn::gevserver
