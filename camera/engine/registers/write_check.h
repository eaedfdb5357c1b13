#pragma once

/// Whether a client may store new bytes into a register: what its node and those over it allow.

#include <vector>

#include "camera/base/bytes.h"
#include "camera/engine/nodes/evaluation.h"
#include "camera/engine/nodes/node.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// \param reg         the register's node
/// \param dependants  nodes whose value chain ends in it
/// \param bytes       the register's whole new content
/// \param at          what the selectors are while the client writes
WireStatus CheckClientWrite(const Node& reg, const std::vector<NodePtr>& dependants, ByteView bytes,
                            Evaluation& at);

/// Of two refusals the one that tells the client more: a wrong value over a passing state over a lasting one.
WireStatus MoreTelling(WireStatus a, WireStatus b);

/// Whether bytes `begin` to `end` (excluded) of a text register's new content can be a piece of UTF-8.
/// Clients store long texts piece by piece from the front, so a character may be cut by the end of a piece,
/// and must go on at the beginning of the next. What stands behind a zero is no text.
bool IsPieceOfText(ByteView content, std::size_t begin, std::size_t end);

/// The number of an integer register with this content.
std::int64_t NumberIn(const Node& reg, ByteView bytes);

}  // namespace Tarn
