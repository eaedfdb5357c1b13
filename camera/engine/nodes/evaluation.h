#pragma once

/// What one evaluation of nodes has computed so far.

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node.h"

namespace Tarn {

/// Most nodes in a row of which each follows from the next. Clients evaluate them recursively, too.
inline constexpr unsigned kMaxNodeDepth = 256;

/// The functions of node_values.h, node_access.h and node_limits.h keep in it what they computed, so that a
/// node which many others depend on is computed once. Holds while nothing changes: made for one question,
/// then thrown away.
///
/// Selectors can be assumed to have other numbers than they have here. A selector whose value is a constant
/// lives in each client; which number it has there shows in the address that the client uses.
class Evaluation {
 public:
  /// Follows one link while it lives.
  class Level {
   public:
    /// Throws: EngineError kNoValue when too many links were followed; as CheckSameGuard.
    Level(Evaluation& at, const Node& node) : at_(at) {
      if (!at_.first_) at_.first_ = &node;
      CheckSameGuard(*at_.first_, node);
      if (at_.depth_ == kMaxNodeDepth) {
        throw EngineError(Failure::kNoValue, node.name + " is at the end of more than " +
                                                 std::to_string(kMaxNodeDepth) + " nodes in a row");
      }
      ++at_.depth_;
    }
    ~Level() { --at_.depth_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

   private:
    Evaluation& at_;
  };

  /// The number of `source`, a register or a node with a constant value.
  /// Requires: nothing was computed yet.
  void Assume(const Node& source, std::int64_t number) { assumed_.emplace_back(&source, number); }
  std::optional<std::int64_t> Assumed(const Node& source) const {
    for (const auto& [node, number] : assumed_) {
      if (node == &source) return number;
    }
    return std::nullopt;
  }

  /// `compute()`, once for each node. For numbers that more than one other node supplies.
  template <class Compute>
  std::int64_t Number(const Node& node, Compute&& compute) {
    return Once(numbers_, node, std::forward<Compute>(compute));
  }
  template <class Compute>
  AccessMode Access(const Node& node, Compute&& compute) {
    return Once(access_, node, std::forward<Compute>(compute));
  }

 private:
  template <class Known, class Compute>
  static auto Once(Known& known, const Node& node, Compute&& compute) {
    if (const auto found = known.find(&node); found != known.end()) return found->second;
    const auto result = compute();
    known.emplace(&node, result);
    return result;
  }

  std::vector<std::pair<const Node*, std::int64_t>> assumed_;
  std::unordered_map<const Node*, std::int64_t> numbers_;
  std::unordered_map<const Node*, AccessMode> access_;
  const Node* first_ = nullptr;  ///< that was asked for
  unsigned depth_ = 0;
};

}  // namespace Tarn
