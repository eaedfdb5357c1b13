#pragma once

/// Which values a node can take, as far as its description tells: a selector that lives in the client has
/// other values there than here, and registers whose address follows it must exist for all of them.

#include <cstdint>
#include <optional>
#include <set>

#include "camera/engine/nodes/node.h"

namespace Tarn {

/// More values than this are not followed up.
inline constexpr std::size_t kMostPossibleValues = 4096;

/// Empty when there are too many, or when the description does not limit them.
std::optional<std::set<std::int64_t>> PossibleValues(const Node& node);

/// The addresses that a register can lie at; empty when there are too many, or its address nodes are not
/// limited.
std::optional<std::set<std::uint64_t>> PossibleAddresses(const Node& reg);

}  // namespace Tarn
