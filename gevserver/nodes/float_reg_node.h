#pragma once

/// Floating-point numbers in the register space.

#include <optional>
#include <string_view>

#include "gevserver/nodes/float_base_node.h"
#include "gevserver/nodes/register_node.h"

namespace Tarn::GevServer {

/// A floating-point register of any length.
class FloatRegNode : public Private::RegisterNode<FloatBaseNode> {
 public:
  using RegisterNode::RegisterNode;

  /// GSNumberSign: floating-point numbers always have a sign.
  std::int32_t Sign() const { return GS_SIGNED; }
};

/// A single precision register of 4 bytes.
class Float32RegNode final : public FloatRegNode {
 public:
  using FloatRegNode::FloatRegNode;

  /// A new free node; see Int32RegNode::Create.
  static std::shared_ptr<Float32RegNode> Create(std::string_view name,
                                                std::optional<std::int32_t> name_space = {},
                                                std::int64_t address = Private::kAutomaticAddress);
};

/// A double precision register of 8 bytes.
class Float64RegNode final : public FloatRegNode {
 public:
  using FloatRegNode::FloatRegNode;

  /// A new free node; see Int32RegNode::Create.
  static std::shared_ptr<Float64RegNode> Create(std::string_view name,
                                                std::optional<std::int32_t> name_space = {},
                                                std::int64_t address = Private::kAutomaticAddress);
};

}  // namespace Tarn::GevServer
