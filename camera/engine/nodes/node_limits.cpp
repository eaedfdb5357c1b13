#include "camera/engine/nodes/node_limits.h"

#include <cmath>
#include <limits>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/number_text.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

constexpr IntegerLimits kWidest{std::numeric_limits<std::int64_t>::min(),
                                std::numeric_limits<std::int64_t>::max(), 1};

std::int64_t IntegerSetting(const Setting& setting, std::int64_t otherwise, Evaluation& at) {
  if (const auto* number = std::get_if<std::int64_t>(&setting)) return *number;
  if (const NodePtr node = NodeOf(setting)) return ReadInteger(*node, at);
  return otherwise;
}

std::optional<double> FloatSetting(const Setting& setting, Evaluation& at) {
  if (const auto* number = std::get_if<double>(&setting)) return *number;
  if (const auto* number = std::get_if<std::int64_t>(&setting)) return static_cast<double>(*number);
  if (const NodePtr node = NodeOf(setting)) return ReadFloat(*node, at);
  return std::nullopt;
}

IntegerLimits RegisterIntegerLimits(const RegisterPart& reg) {
  return {SmallestNumber(reg), LargestNumber(reg), 1};
}

/// The node's own limits first, then those of the node that supplies the value.
IntegerLimits ChainLimits(const Node& node, Evaluation& at) {
  const NodePtr source = NodeOf(node.value);
  const IntegerLimits inner =
      source && source->traits.value != ValueType::Float ? IntegerLimitsOf(*source, at) : kWidest;
  return {IntegerSetting(node.min, inner.min, at), IntegerSetting(node.max, inner.max, at),
          IntegerSetting(node.increment, inner.increment, at)};
}

FloatLimits RegisterFloatLimits(const RegisterPart& reg) {
  const double largest = reg.length == 4 ? static_cast<double>(std::numeric_limits<float>::max())
                                         : std::numeric_limits<double>::max();
  return {-largest, largest, std::nullopt};
}

FloatLimits AsFloat(const IntegerLimits& limits) {
  return {static_cast<double>(limits.min), static_cast<double>(limits.max), std::nullopt};
}

}  // namespace

IntegerLimits IntegerLimitsOf(const Node& node, Evaluation& at) {
  const Evaluation::Level level(at, node);
  switch (node.traits.value) {
    case ValueType::Integer:
      return node.is_register() ? RegisterIntegerLimits(*node.reg) : ChainLimits(node, at);
    case ValueType::Enumeration:
    case ValueType::Command:
      return kWidest;
    case ValueType::Boolean:
      return {0, 1, 1};
    case ValueType::None:
    case ValueType::Float:
    case ValueType::Text:
    case ValueType::Entry:
      break;
  }
  throw EngineError(Failure::kNotSupported, node.name + " has no integer limits");
}

FloatLimits FloatLimitsOf(const Node& node, Evaluation& at) {
  const Evaluation::Level level(at, node);
  if (node.traits.value != ValueType::Float) return AsFloat(IntegerLimitsOf(node, at));
  if (node.is_register()) return RegisterFloatLimits(*node.reg);
  const double largest = std::numeric_limits<double>::max();
  const NodePtr source = NodeOf(node.value);
  const FloatLimits inner =
      source ? FloatLimitsOf(*source, at) : FloatLimits{-largest, largest, std::nullopt};
  const std::optional<double> increment = FloatSetting(node.increment, at);
  return {FloatSetting(node.min, at).value_or(inner.min), FloatSetting(node.max, at).value_or(inner.max),
          increment ? increment : inner.increment};
}

void CheckInteger(const Node& node, std::int64_t value, Evaluation& at) {
  const IntegerLimits limits = IntegerLimitsOf(node, at);
  if (value < limits.min || value > limits.max) {
    throw EngineError(Failure::kOutOfRange, node.name + ": " + std::to_string(value) + " lies outside " +
                                                std::to_string(limits.min) + " to " +
                                                std::to_string(limits.max));
  }
  // The distance from the minimum may exceed the signed range.
  const std::uint64_t distance = static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(limits.min);
  if (limits.increment > 1 && distance % static_cast<std::uint64_t>(limits.increment) != 0) {
    throw EngineError(Failure::kIncrement, node.name + ": " + std::to_string(value) + " is not " +
                                               std::to_string(limits.min) + " plus a multiple of " +
                                               std::to_string(limits.increment));
  }
}

void CheckFloat(const Node& node, double value, Evaluation& at) {
  const FloatLimits limits = FloatLimitsOf(node, at);
  // Written so that a NaN fails.
  if (!(value >= limits.min && value <= limits.max)) {
    throw EngineError(Failure::kOutOfRange, node.name + ": " + FloatText(value) + " lies outside " +
                                                FloatText(limits.min) + " to " + FloatText(limits.max));
  }
  if (!limits.increment || *limits.increment <= 0) return;
  // Increments such as 0.1 have no exact binary form, so a step is met when the rest is tiny beside it.
  const double steps = (value - limits.min) / *limits.increment;
  if (std::abs(steps - std::round(steps)) > 1e-6 * std::max(1.0, std::abs(steps))) {
    throw EngineError(Failure::kIncrement, node.name + ": " + FloatText(value) + " is not " +
                                               FloatText(limits.min) + " plus a multiple of " +
                                               FloatText(*limits.increment));
  }
}

}  // namespace Tarn
