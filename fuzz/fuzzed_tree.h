#pragma once

/// What the conversations are held about: a user's nodes, and the content that clients can change.

#include <cstdint>
#include <vector>

#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// Aborts, so that the fuzzer keeps the input.
void Require(bool holds);

/// Nodes in which addresses move, quotients fail, several features share a register, and whose register is an
/// event's data. \return the register behind them
NodePtr AddUsersNodes(FeatureTree& tree);

/// The bytes of the standard's registers, of the device's own and of the user's, as they were when this was
/// made. So one tree serves all runs: building it takes a hundred times as long as a conversation. Left out
/// is the memory that the moving register strays to, which decides about nothing.
///
/// Threads: one at a time.
class TreeContent {
 public:
  explicit TreeContent(FeatureTree& tree);
  void Restore() const;

  /// Everything that only the client in control can change, as it is now.
  static std::vector<std::uint8_t> Controlled(const FeatureTree& tree);

 private:
  FeatureTree& tree_;
  std::vector<std::vector<std::uint8_t>> pieces_;
};

}  // namespace Tarn
