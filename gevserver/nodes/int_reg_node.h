#pragma once

/// Integers in the register space.

#include <optional>
#include <string_view>

#include "gevserver/nodes/integer_base_node.h"
#include "gevserver/nodes/register_node.h"

namespace Tarn::GevServer {

/// An integer register of any length.
class IntRegNode : public Private::RegisterNode<IntegerBaseNode> {
 public:
  using RegisterNode::RegisterNode;

  /// GSNumberSign.
  std::int32_t Sign() const { return GetInfoAsCode(GSN_INFO_SIGN); }
  void SetSign(std::int32_t sign) { SetInfoAsInt(GSN_INFO_SIGN, sign); }
};

/// An integer register of 4 bytes.
class Int32RegNode final : public IntRegNode {
 public:
  using IntRegNode::IntRegNode;

  /// A new free node; name and namespace as for IntegerNode::Create.
  static std::shared_ptr<Int32RegNode> Create(std::string_view name,
                                              std::optional<std::int32_t> name_space = {},
                                              std::int64_t address = Private::kAutomaticAddress);
};

/// An integer register of 8 bytes.
class Int64RegNode final : public IntRegNode {
 public:
  using IntRegNode::IntRegNode;

  /// As Int32RegNode::Create.
  static std::shared_ptr<Int64RegNode> Create(std::string_view name,
                                              std::optional<std::int32_t> name_space = {},
                                              std::int64_t address = Private::kAutomaticAddress);
};

}  // namespace Tarn::GevServer
