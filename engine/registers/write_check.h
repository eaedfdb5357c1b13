#pragma once

/// Whether a client may store new bytes into a register, as its nodes have it.

#include <vector>

#include "base/bytes.h"
#include "engine/nodes/node.h"
#include "wire/gvcp.h"

namespace Tarn {

/// \param reg         the register's node
/// \param dependants  nodes whose value chain ends in it
/// \param bytes       the register's whole new content
WireStatus CheckClientWrite(const Node& reg, const std::vector<NodePtr>& dependants, ByteView bytes);

}  // namespace Tarn
