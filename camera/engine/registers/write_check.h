#pragma once

/// Whether a client may store new bytes into a register, as its nodes have it.

#include <vector>

#include "camera/base/bytes.h"
#include "camera/engine/nodes/node.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// \param reg         the register's node
/// \param dependants  nodes whose value chain ends in it
/// \param bytes       the register's whole new content
WireStatus CheckClientWrite(const Node& reg, const std::vector<NodePtr>& dependants, ByteView bytes);

}  // namespace Tarn
