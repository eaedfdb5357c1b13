#pragma once

/// Limits and increments of numeric nodes, along the value chain.

#include <cstdint>
#include <optional>

#include "camera/engine/nodes/evaluation.h"
#include "camera/engine/nodes/node.h"

namespace Tarn {

struct IntegerLimits {
  std::int64_t min;
  std::int64_t max;
  std::int64_t increment;  ///< counted from min
};

struct FloatLimits {
  double min;
  double max;
  std::optional<double> increment;
};

/// Own limits first, then those of the value's node, then what the register or the number type holds.
/// Throw: EngineError kNotSupported for kinds without limits, kNoValue when a limit cannot be computed.
IntegerLimits IntegerLimitsOf(const Node& node, Evaluation& at);
FloatLimits FloatLimitsOf(const Node& node, Evaluation& at);

/// Throw: EngineError kOutOfRange or kIncrement when the node cannot take the value.
void CheckInteger(const Node& node, std::int64_t value, Evaluation& at);
void CheckFloat(const Node& node, double value, Evaluation& at);

}  // namespace Tarn
