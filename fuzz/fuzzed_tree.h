#pragma once

/// What the conversations are held about: a user's nodes, and the content that clients can change.

#include "camera/engine/nodes/feature_tree.h"
#include "fuzz/fuzz.h"

namespace Tarn {

/// Nodes in which addresses move, quotients fail, several features share a register, and whose register is an
/// event's data. `listen(context)` is called for that register and for the count of an action.
/// \return the register behind them
NodePtr AddUsersNodes(FeatureTree& tree, void (*listen)(void*), void* context);

/// The bytes of the standard's registers, of the device's own and of the user's. With them restored one tree
/// serves all runs: building it takes a hundred times as long as a conversation. Left out is the memory that
/// the moving register strays to, which decides about nothing.
std::vector<std::uint8_t> Content(const FeatureTree& tree);
void Restore(FeatureTree& tree, const std::vector<std::uint8_t>& content);

/// The part of it that only the client in control can change.
std::vector<std::uint8_t> ControlledContent(const FeatureTree& tree);

}  // namespace Tarn
