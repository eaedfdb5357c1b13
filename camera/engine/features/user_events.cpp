#include "camera/engine/features/user_events.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "camera/base/engine_error.h"
#include "camera/engine/features/event_features.h"
#include "camera/engine/nodes/node_links.h"

namespace Tarn {
namespace {

const std::string kEventPrefix = "Event";

std::string HexNumber(std::int64_t number) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%04llX", static_cast<unsigned long long>(number));
  return text;
}

/// The device's own events; their nodes are the device's own too.
bool IsOwnEvent(std::int64_t number) {
  return number == EventNumber::kPrimaryApplicationSwitch || number == EventNumber::kActionLate ||
         (number >= EventNumber::kAcquisitionStart && number <= EventNumber::kFrameEnd);
}

/// Members of EventControl that define events, see [1]. The device's own members are categories, enumerations
/// and nothing else.
std::vector<NodePtr> Definitions(const FeatureTree& tree) {
  std::vector<NodePtr> found;
  const NodePtr control = tree.Find("EventControl");
  for (const NodePtr& node : control->children) {
    const bool named = node->name.starts_with(kEventPrefix) && node->name.size() > kEventPrefix.size();
    if (node->kind == NodeKind::Integer && named && std::holds_alternative<std::int64_t>(node->value)) {
      found.push_back(node);
    }
  }
  return found;
}

std::int64_t NumberOf(const Node& definition) {
  const auto number = std::get<std::int64_t>(definition.value);
  if (number < EventNumber::kFirstOfDevice || number > 0xFFFF) {
    throw EngineError(Failure::kInvalidArgument, "the number of the event " + definition.name + " is " +
                                                     HexNumber(number) + ", and must lie between " +
                                                     HexNumber(EventNumber::kFirstOfDevice) + " and 0xFFFF");
  }
  if (IsOwnEvent(number)) {
    throw EngineError(Failure::kInvalidArgument, "the number " + HexNumber(number) + " of the event " +
                                                     definition.name + " is that of an event of the device");
  }
  return number;
}

/// The definition with the longest name that the node's name begins with, so that EventMotorStop and
/// EventMotor can be two events; null when there is none.
NodePtr DefinitionFor(const Node& node, const std::vector<NodePtr>& definitions) {
  NodePtr longest;
  for (const NodePtr& definition : definitions) {
    if (!node.name.starts_with(definition->name)) continue;
    if (!longest || definition->name.size() > longest->name.size()) longest = definition;
  }
  return longest;
}

/// Clients keep what a register held until it is invalidated itself, so what supplies a node's value has to
/// belong to the node's event too.
template <class May>
void TagChain(const Node& node, const May& may) {
  for (NodePtr next = NodeOf(node.value); next; next = NodeOf(next->value)) {
    if (may(*next)) next->event_id = node.event_id;
  }
}

void TagNodes(const FeatureTree& tree, const std::vector<NodePtr>& definitions) {
  if (definitions.empty()) return;
  const auto not_by_name = [&](const Node& node) {
    return !IsOwnEvent(node.event_id) && !DefinitionFor(node, definitions);
  };
  for (const NodePtr& node : tree.Nodes()) {
    if (IsOwnEvent(node->event_id) || node->kind == NodeKind::EnumEntry) continue;
    const NodePtr definition = DefinitionFor(*node, definitions);
    if (!definition) continue;
    node->event_id = NumberOf(*definition);
    TagChain(*node, not_by_name);
  }
}

void AddEntry(const NodePtr& selector, const std::string& name, std::int64_t number) {
  for (const NodePtr& other : selector->children) {
    if (std::get<std::int64_t>(other->value) != number) continue;
    throw EngineError(Failure::kInvalidArgument,
                      "the events " + other->name + " and " + name + " have the number " + HexNumber(number));
  }
  const NodePtr entry = MakeNode(NodeKind::EnumEntry, name, NameSpace::Custom);
  entry->value = number;
  AddRelated(selector, NodeList::Child, entry, nullptr);
}

bool HasEntry(const Node& selector, std::int64_t number) {
  return std::ranges::any_of(selector.children, [number](const NodePtr& entry) {
    return std::get<std::int64_t>(entry->value) == number;
  });
}

void RemoveEntries(const NodePtr& selector) {
  for (const NodePtr& entry : std::vector<NodePtr>(selector->children)) {
    if (!IsOwnEvent(std::get<std::int64_t>(entry->value))) RemoveRelated(selector, NodeList::Child, entry);
  }
}

}  // namespace

void DefineUserEvents(FeatureTree& tree) {
  const NodePtr selector = tree.Find("EventSelector");
  RemoveEntries(selector);
  const std::vector<NodePtr> definitions = Definitions(tree);
  for (const NodePtr& definition : definitions) {
    AddEntry(selector, definition->name.substr(kEventPrefix.size()), NumberOf(*definition));
  }
  TagNodes(tree, definitions);
  for (const NodePtr& node : std::vector<NodePtr>(tree.Nodes())) {
    if (node->event_id == 0 || IsOwnEvent(node->event_id)) continue;
    TagChain(*node, [](const Node& supplier) { return supplier.event_id == 0; });
    if (!HasEntry(*selector, node->event_id)) AddEntry(selector, node->name, node->event_id);
  }
}

EventSources FindEventSources(const FeatureTree& tree) {
  EventSources sources;
  for (const NodePtr& node : tree.Nodes()) {
    if (node->event_id == 0 || IsOwnEvent(node->event_id)) continue;
    if (node->kind == NodeKind::Command) continue;  // it holds no value that a client could want to hear of
    const NodePtr reg = RegisterBehind(node);
    if (!reg || reg->reg->port != PortKind::Device) continue;
    if (reg->reg->length > kMaxEventData) {
      throw EngineError(Failure::kInvalidArgument,
                        node->name + " cannot belong to an event: its register has " +
                            std::to_string(reg->reg->length) + " bytes, an event message carries " +
                            std::to_string(kMaxEventData));
    }
    std::vector<std::uint16_t>& numbers = sources[reg.get()];
    const auto number = static_cast<std::uint16_t>(node->event_id);
    if (std::ranges::find(numbers, number) == numbers.end()) numbers.push_back(number);
  }
  return sources;
}

}  // namespace Tarn
