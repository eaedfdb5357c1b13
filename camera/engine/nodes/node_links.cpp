#include "camera/engine/nodes/node_links.h"

#include <algorithm>
#include <unordered_set>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {
namespace {

[[noreturn]] void ThrowMismatch(const Node& node, const Node& related, const char* role) {
  throw EngineError(Failure::kNotSupported, related.name + " cannot be " + role + " of " + node.name);
}

const char* RoleOf(ChildRole child) {
  return child == ChildRole::Member ? "a member" : child == ChildRole::Entry ? "an entry" : "a variable";
}

void CheckKinds(const Node& node, NodeList list, const Node& related) {
  const NodeTraits& other = related.traits;
  switch (list) {
    case NodeList::Child:
      if (node.traits.children == ChildRole::None) {
        throw EngineError(Failure::kNotSupported, node.name + " has no child nodes");
      }
      if (!CanBeChild(other, node.traits)) ThrowMismatch(node, related, RoleOf(node.traits.children));
      return;
    case NodeList::Selected:
      if (!HasName(other)) ThrowMismatch(node, related, "selected by, or an entry");
      if (!CanSelect(node.traits)) throw EngineError(Failure::kNotSupported, node.name + " is no selector");
      return;
    case NodeList::Invalidator:
      if (!HasName(other)) ThrowMismatch(node, related, "an invalidator");
      return;
    case NodeList::Addresses:
      if (!node.is_register()) throw EngineError(Failure::kNotSupported, node.name + " is no register");
      if (!CanBeOffset(other)) ThrowMismatch(node, related, "part of the address");
      return;
  }
  throw EngineError(Failure::kInvalidArgument, std::to_string(static_cast<int>(list)) + " is no node list");
}

/// Whether the list holds the entries of an enumeration, which are in its tree with it.
bool HoldsEntries(const Node& node, NodeList list) {
  return list == NodeList::Child && node.traits.children == ChildRole::Entry;
}

/// The list as shared links; null for the lists of weak ones.
std::vector<NodePtr>* SharedList(Node& node, NodeList list) {
  if (list == NodeList::Child) return &node.children;
  return list == NodeList::Addresses && node.reg ? &node.reg->address_nodes : nullptr;
}

std::vector<std::weak_ptr<Node>>& WeakList(Node& node, NodeList list) {
  return list == NodeList::Selected ? node.selected : node.invalidators;
}

template <class List, class Same>
void InsertBefore(List& links, const NodePtr& related, const NodePtr& before, Same&& same) {
  const auto place = std::find_if(links.begin(), links.end(),
                                  [&](const auto& link) { return before && same(link, before); });
  links.insert(place, related);
}

bool SameShared(const NodePtr& link, const NodePtr& node) { return link == node; }
bool SameWeak(const std::weak_ptr<Node>& link, const NodePtr& node) { return link.lock() == node; }

/// The formula names variables by their place, so it is parsed again with the new list.
/// Throws: EngineError kFormula when the formula cannot do with these variables; nothing has changed then.
void SetVariables(Node& knife, std::vector<NodePtr> variables) {
  if (!knife.formula.Empty()) {
    std::vector<std::string> names;
    names.reserve(variables.size());
    for (const NodePtr& variable : variables) names.push_back(variable->name);
    knife.formula = Formula::Parse(knife.formula_text, names);
  }
  knife.children = std::move(variables);
}

/// Applies `change` to a list of shared links; after a throw the list is as it was.
template <class Change>
void ChangeShared(Node& node, NodeList list, Change&& change) {
  if (list == NodeList::Child && node.traits.children == ChildRole::Variable) {
    std::vector<NodePtr> variables = node.children;
    change(variables);
    SetVariables(node, std::move(variables));
  } else {
    change(*SharedList(node, list));
  }
}

bool IsLinked(Node& node, NodeList list, const NodePtr& related) {
  if (const std::vector<NodePtr>* links = SharedList(node, list))
    return std::ranges::find(*links, related) != links->end();
  return std::ranges::any_of(WeakList(node, list), [&](const auto& link) { return SameWeak(link, related); });
}

/// Whether `target` is among the nodes that the selector selects, or that these select, and so on.
bool Selects(const Node& selector, const Node& target) {
  std::vector<NodePtr> open = Related(selector, NodeList::Selected);
  std::unordered_set<const Node*> seen;
  while (!open.empty()) {
    const NodePtr next = std::move(open.back());
    open.pop_back();
    if (next.get() == &target) return true;
    if (!seen.insert(next.get()).second) continue;
    for (NodePtr& further : Related(*next, NodeList::Selected)) open.push_back(std::move(further));
  }
  return false;
}

/// Clients refuse a description in which what is selected decides about its selector.
void CheckSelection(const Node& selector, const Node& selected) {
  if (DependsOn(selector, selected)) {
    throw EngineError(Failure::kCycle,
                      selector.name + " depends on " + selected.name + " and cannot select it");
  }
  if (Selects(selected, selector)) {
    throw EngineError(Failure::kCycle,
                      selector.name + " is selected by way of " + selected.name + " and cannot select it");
  }
}

void CheckEntryName(const Node& enumeration, const Node& entry) {
  for (const NodePtr& other : enumeration.children) {
    if (other->name == entry.name) {
      throw EngineError(Failure::kExists, enumeration.name + " has an entry " + entry.name + " already");
    }
  }
}

}  // namespace

std::vector<NodePtr> DirectDependencies(const Node& node) {
  std::vector<NodePtr> found = node.children;
  for (const Setting* setting : SettingsOf(node)) found.push_back(NodeOf(*setting));
  found.insert(found.end(), {node.is_implemented, node.is_available, node.is_locked});
  if (node.reg) found.insert(found.end(), node.reg->address_nodes.begin(), node.reg->address_nodes.end());
  std::erase(found, nullptr);
  return found;
}

bool DependsOn(const Node& node, const Node& target) {
  std::vector<const Node*> open{&node};
  std::unordered_set<const Node*> seen{&node};
  while (!open.empty()) {
    const Node* next = open.back();
    open.pop_back();
    if (next == &target) return true;
    for (const NodePtr& dependency : DirectDependencies(*next)) {
      if (seen.insert(dependency.get()).second) open.push_back(dependency.get());
    }
  }
  return false;
}

NodePtr RegisterBehind(NodePtr node) {
  while (node && !node->is_register()) node = NodeOf(node->value);
  return node;
}

void CheckLink(const Node& node, const Node& related) {
  if (node.tree && related.tree && node.tree != related.tree) {
    throw EngineError(Failure::kInvalidArgument, related.name + " is in another node map than " + node.name);
  }
  if (DependsOn(related, node)) {
    throw EngineError(Failure::kCycle,
                      "linking " + node.name + " to " + related.name + " would close a circle");
  }
}

void CheckChangeable(const Node& node) {
  if (node.tree && node.tree->Frozen()) {
    throw EngineError(Failure::kWrongState,
                      "the description of " + node.name + " can change only while the server is not started");
  }
}

void AddRelated(const NodePtr& node, NodeList list, const NodePtr& related, const NodePtr& before) {
  CheckChangeable(*node);
  CheckKinds(*node, list, *related);
  if (IsLinked(*node, list, related)) return;
  if (SharedList(*node, list)) {
    CheckLink(*node, *related);
    if (HoldsEntries(*node, list)) CheckEntryName(*node, *related);
    ChangeShared(*node, list,
                 [&](std::vector<NodePtr>& links) { InsertBefore(links, related, before, SameShared); });
  } else {
    if (list == NodeList::Selected) CheckSelection(*node, *related);
    InsertBefore(WeakList(*node, list), related, before, SameWeak);
  }
  if (list != NodeList::Addresses) related->listed_by.push_back(node.get());
  if (HoldsEntries(*node, list) && node->tree) node->tree->AdoptEntry(related);
}

void RemoveRelated(const NodePtr& node, NodeList list, const NodePtr& related) {
  CheckChangeable(*node);
  if (!IsLinked(*node, list, related)) {
    throw EngineError(Failure::kNotFound, related->name + " is not linked to " + node->name);
  }
  if (SharedList(*node, list)) {
    ChangeShared(*node, list, [&](std::vector<NodePtr>& links) { std::erase(links, related); });
  } else {
    std::erase_if(WeakList(*node, list), [&](const auto& link) { return SameWeak(link, related); });
  }
  if (list != NodeList::Addresses) Unlist(*related, *node);
  // An entry that no enumeration lists any more is none of the tree's nodes, unless it was added by itself.
  if (HoldsEntries(*node, list) && node->tree) node->tree->DropEntry(related);
}

void RemoveFromLists(const NodePtr& node) {
  const auto same = [&node](const NodePtr& link) { return SameShared(link, node); };
  const auto same_weak = [&node](const std::weak_ptr<Node>& link) { return SameWeak(link, node); };
  const std::vector<Node*> lists = node->listed_by;
  for (Node* list : lists) {
    if (list->tree != node->tree) continue;
    std::size_t taken =
        std::erase_if(list->selected, same_weak) + std::erase_if(list->invalidators, same_weak);
    // A formula needs its variables.
    if (list->traits.children != ChildRole::Variable) taken += std::erase_if(list->children, same);
    for (; taken > 0; --taken) Unlist(*node, *list);
  }
}

bool IsListedEntry(const Node& entry) {
  return std::ranges::any_of(entry.listed_by, [&entry](const Node* list) {
    return list->traits.children == ChildRole::Entry && list->tree && list->tree == entry.tree;
  });
}

std::vector<NodePtr> Related(const Node& node, NodeList list) {
  if (list == NodeList::Child) return node.children;
  if (list == NodeList::Addresses) return node.reg ? node.reg->address_nodes : std::vector<NodePtr>();
  std::vector<NodePtr> found;
  for (const std::weak_ptr<Node>& link : list == NodeList::Selected ? node.selected : node.invalidators) {
    if (NodePtr related = link.lock()) found.push_back(std::move(related));
  }
  return found;
}

}  // namespace Tarn
