#pragma once

/// Changing how nodes are linked to each other.

#include <string>
#include <vector>

#include "camera/engine/nodes/node.h"

namespace Tarn {

/// Adds `related` to a list of `node`, in front of `before` or, when that is null, at the end. A free entry
/// joins the tree of its enumeration. Adding twice changes nothing.
/// Throws: EngineError kNotSupported when the kinds do not go together, kCycle, kExists for a second entry of
///   one name, kInvalidArgument when the nodes are in different trees, kWrongState while the tree is frozen.
void AddRelated(const NodePtr& node, NodeList list, const NodePtr& related, const NodePtr& before);

/// Throws: EngineError kNotFound when `related` is not in the list, kWrongState while frozen.
void RemoveRelated(const NodePtr& node, NodeList list, const NodePtr& related);

/// Takes a node out of the categories, enumerations, selectors and invalidators of its tree.
void RemoveFromLists(const NodePtr& node);

/// Whether an enumeration of the entry's tree has it.
bool IsListedEntry(const Node& entry);

/// The nodes of a list in order; weak links to nodes that are gone are left out.
std::vector<NodePtr> Related(const Node& node, NodeList list);

/// True when the value, limits, address, conditions or members of `node` lead to `target`, or they are the
/// same.
bool DependsOn(const Node& node, const Node& target);

/// Every node that `node` is directly linked to by what DependsOn follows.
std::vector<NodePtr> DirectDependencies(const Node& node);

/// The register at the end of the node's value chain; null when the value is a constant or computed.
NodePtr RegisterBehind(NodePtr node);

/// Throws: EngineError kCycle when a link from `node` to `related` would close a circle, kInvalidArgument
/// when both are in trees, and not in the same.
void CheckLink(const Node& node, const Node& related);

/// Throws: EngineError kWrongState while the node's tree is frozen.
void CheckChangeable(const Node& node);

}  // namespace Tarn
