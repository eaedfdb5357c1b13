#include "camera/engine/registers/selector_space.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

using Numbers = std::optional<std::vector<std::int64_t>>;

Numbers WithinLimits(const Node& node) {
  Evaluation now;
  const IntegerLimits limits = IntegerLimitsOf(node, now);
  const std::uint64_t span = static_cast<std::uint64_t>(limits.max) - static_cast<std::uint64_t>(limits.min);
  if (limits.min > limits.max || limits.increment < 1) return std::nullopt;
  const std::uint64_t steps = span / static_cast<std::uint64_t>(limits.increment);
  if (steps >= kMaxCombinations) return std::nullopt;
  std::vector<std::int64_t> numbers;
  for (std::uint64_t i = 0; i <= steps; ++i) {
    numbers.push_back(limits.min + static_cast<std::int64_t>(i) * limits.increment);
  }
  return numbers;
}

/// The numbers that clients can give to a selector; nothing when these are not limited.
Numbers NumbersOf(const Node& selector) {
  switch (selector.traits.value) {
    case ValueType::Integer:
      return WithinLimits(selector);
    case ValueType::Enumeration: {
      std::vector<std::int64_t> numbers;
      for (const NodePtr& entry : selector.children) numbers.push_back(ReadInteger(*entry));
      return numbers;
    }
    case ValueType::Boolean:
      return std::vector{std::get<std::int64_t>(selector.off_value),
                         std::get<std::int64_t>(selector.on_value)};
    default:
      return std::nullopt;
  }
}

/// The node in which the value chain ends, through which numbers go as they are; null when they do not.
const Node* SourceOf(const Node& node) {
  const Node* source = &node;
  while (const Node* next = NodeOf(source->value).get()) {
    if (source->traits.value == ValueType::Float || source->traits.value == ValueType::Boolean)
      return nullptr;
    source = next;
  }
  switch (source->traits.value) {
    case ValueType::Integer:
    case ValueType::Enumeration:
      return source;
    case ValueType::Boolean:
      return source == &node ? source : nullptr;
    default:
      return nullptr;
  }
}

/// Calls `visit` with every node that these depend on, once.
template <class Visit>
void ForEachDependency(std::vector<NodePtr> open, Visit&& visit) {
  std::unordered_set<const Node*> seen;
  while (!open.empty()) {
    const NodePtr next = std::move(open.back());
    open.pop_back();
    if (!seen.insert(next.get()).second) continue;
    visit(next);
    for (NodePtr& further : DirectDependencies(*next)) open.push_back(std::move(further));
  }
}

/// Adds the registers and constants that these nodes depend on.
void AddSources(const std::vector<NodePtr>& nodes, std::vector<NodePtr>& sources) {
  ForEachDependency(nodes, [&](const NodePtr& node) {
    const bool holds_value = node->is_register() || (!NodeOf(node->value) && IsSet(node->value));
    if (holds_value && node->traits.value != ValueType::Entry) sources.push_back(node);
  });
}

/// Collects the selectors that an address node follows.
class AddressWalk {
 public:
  explicit AddressWalk(AddressSelectors& found) : found_(found) {}

  /// \return whether the numbers of all selectors are limited
  bool Follow(const Node& node) {
    if (!seen_.insert(&node).second) return true;
    if (node.traits.source == ValueSource::Formula) return FollowVariables(node);
    const Node* source = SourceOf(node);
    if (!source) return false;
    if (source->traits.source == ValueSource::Formula) return FollowVariables(*source);
    Numbers numbers = NumbersOf(node);
    if (!numbers) return found_.space.Has(*source);
    NoteLimits(node);
    return found_.space.Add(*source, std::move(*numbers));
  }

 private:
  bool FollowVariables(const Node& knife) {
    bool limited = !knife.formula.Empty();
    for (std::size_t i = 0; limited && i < knife.children.size(); ++i) {
      if (knife.formula.Uses(i)) limited = Follow(*knife.children[i]);
    }
    return limited;
  }

  void NoteLimits(const Node& selector) {
    std::vector<NodePtr> limits;
    for (const Node* node = &selector; node; node = NodeOf(node->value).get()) {
      for (const Setting* limit : {&node->min, &node->max, &node->increment}) {
        if (NodePtr supplier = NodeOf(*limit)) limits.push_back(std::move(supplier));
      }
    }
    AddSources(limits, found_.inputs);
  }

  AddressSelectors& found_;
  std::unordered_set<const Node*> seen_;
};

}  // namespace

std::size_t SelectorSpace::Combinations() const {
  std::size_t count = 1;
  for (const auto& [source, numbers] : numbers_) count *= numbers.size();
  return count;
}

void SelectorSpace::Assume(std::size_t combination, Evaluation& at) const {
  for (const auto& [source, numbers] : numbers_) {
    at.Assume(*source, numbers[combination % numbers.size()]);
    combination /= numbers.size();
  }
}

bool SelectorSpace::Add(const Node& source, std::vector<std::int64_t> numbers) {
  const auto [place, added] = numbers_.try_emplace(&source);
  if (!added && place->second.size() <= numbers.size()) return true;
  std::swap(place->second, numbers);
  if (Combinations() <= limit_) return true;
  numbers_.erase(place);
  return false;
}

AddressSelectors FindAddressSelectors(const Node& reg) {
  AddressSelectors found;
  AddressWalk walk(found);
  const std::vector<NodePtr>& offsets = reg.reg->address_nodes;
  if (std::ranges::all_of(offsets, [&](const NodePtr& offset) { return walk.Follow(*offset); })) return found;
  AddressSelectors present;
  present.present_only = true;
  AddSources(offsets, present.inputs);
  return present;
}

std::optional<std::uint32_t> AddressIn(const Node& reg, const SelectorSpace& space, std::size_t combination) {
  Evaluation at;
  space.Assume(combination, at);
  try {
    const std::int64_t address = CurrentAddress(reg, at);
    // What cannot be reached by whole words is no place for a register.
    return address % 4 == 0 ? std::optional(static_cast<std::uint32_t>(address)) : std::nullopt;
  } catch (const EngineError&) {
    return std::nullopt;  // a combination without a value leads to no address
  }
}

SelectorSpace FindOtherSelectors(const Node& reg, const std::vector<NodePtr>& dependants,
                                 const SelectorSpace& moving, std::size_t limit) {
  SelectorSpace found(limit);
  std::vector<NodePtr> nodes = dependants;
  for (NodePtr& node : DirectDependencies(reg)) nodes.push_back(std::move(node));
  ForEachDependency(std::move(nodes), [&](const NodePtr& node) {
    const Node* source = node->selected.empty() ? nullptr : SourceOf(*node);
    if (!source || source->traits.source != ValueSource::Setting) return;
    if (moving.Has(*source)) return;
    try {
      if (Numbers numbers = NumbersOf(*node)) found.Add(*source, std::move(*numbers));
    } catch (const EngineError&) {
      // A selector without limits at this moment has the number that it has here.
    }
  });
  return found;
}

}  // namespace Tarn
