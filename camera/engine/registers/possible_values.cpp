#include "camera/engine/registers/possible_values.h"

#include <vector>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

using Values = std::optional<std::set<std::int64_t>>;

Values WithinLimits(const Node& node) {
  const IntegerLimits limits = IntegerLimitsOf(node);
  const std::uint64_t span = static_cast<std::uint64_t>(limits.max) - static_cast<std::uint64_t>(limits.min);
  if (limits.min > limits.max || limits.increment < 1) return std::nullopt;
  const std::uint64_t steps = span / static_cast<std::uint64_t>(limits.increment);
  if (steps >= kMostPossibleValues) return std::nullopt;
  std::set<std::int64_t> values;
  for (std::uint64_t i = 0; i <= steps; ++i) {
    values.insert(limits.min + static_cast<std::int64_t>(i) * limits.increment);
  }
  return values;
}

Values Entries(const Node& enumeration) {
  std::set<std::int64_t> values;
  for (const NodePtr& entry : enumeration.children) values.insert(ReadInteger(*entry));
  return values;
}

/// The formula for every combination of its variables' values.
Values Combinations(const Node& knife) {
  std::vector<std::vector<std::int64_t>> choices;
  std::size_t count = 1;
  for (const NodePtr& variable : knife.children) {
    const Values values = PossibleValues(*variable);
    if (!values || values->empty() || (count *= values->size()) > kMostPossibleValues) return std::nullopt;
    choices.emplace_back(values->begin(), values->end());
  }
  std::set<std::int64_t> results;
  for (std::size_t combination = 0; combination < count; ++combination) {
    const auto choice = [&](std::size_t variable) {
      std::size_t rest = combination;
      for (std::size_t i = 0; i < variable; ++i) rest /= choices[i].size();
      return choices[variable][rest % choices[variable].size()];
    };
    try {
      results.insert(knife.formula.Evaluate(choice));
    } catch (const EngineError&) {
      // A combination without a value leads to no address.
    }
  }
  return results;
}

}  // namespace

std::optional<std::set<std::int64_t>> PossibleValues(const Node& node) {
  switch (node.kind) {
    case NodeKind::Integer:
    case NodeKind::IntReg:
      return WithinLimits(node);
    case NodeKind::Enumeration:
      return Entries(node);
    case NodeKind::IntSwissKnife:
      return node.formula.Empty() ? std::nullopt : Combinations(node);
    default:
      return std::nullopt;
  }
}

std::optional<std::set<std::uint64_t>> PossibleAddresses(const Node& reg) {
  std::set<std::int64_t> sums{reg.reg->address};
  for (const NodePtr& offset : reg.reg->address_nodes) {
    const Values values = PossibleValues(*offset);
    if (!values || sums.size() * values->size() > kMostPossibleValues) return std::nullopt;
    std::set<std::int64_t> further;
    for (const std::int64_t start : sums) {
      for (const std::int64_t value : *values) {
        std::int64_t sum = 0;
        if (!__builtin_add_overflow(start, value, &sum)) further.insert(sum);
      }
    }
    sums = std::move(further);
  }
  // What does not move was checked when it was placed, and may be a bootstrap register.
  if (reg.reg->address_nodes.empty()) return std::set{static_cast<std::uint64_t>(reg.reg->address)};
  const AddressRange range = RangeOfMoving(*reg.reg);
  std::set<std::uint64_t> addresses;
  for (const std::int64_t sum : sums) {
    // Reserved ranges, and what cannot be reached by whole words, are no place for a register.
    if (!range.Holds(sum, reg.reg->length) || sum % 4 != 0) continue;
    addresses.insert(static_cast<std::uint64_t>(sum));
  }
  return addresses;
}

}  // namespace Tarn
