#pragma once

/// Numbers and texts in the register space.

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "gevserver/nodes/number_base_nodes.h"
#include "gevserver/nodes/string_node.h"
#include "gevserver/nodes/value_chain.h"

namespace Tarn::GevServer {

namespace Private {

/// Address of a register that the library is to choose.
inline constexpr std::int64_t kAutomaticAddress = -1;

/// Adds a place in the register space to a node class. `Base` is the class of the value.
template <class Base>
class RegisterNode : public Base, public IConfigurableRegisterNode {
 public:
  using Base::Base;

  // A register is the end of value chains and never walks one, whatever its base does.
  std::int32_t AccessMode() const override { return Node::AccessMode(); }
  std::int32_t CacheMode() const override { return Node::CacheMode(); }
  /// \param mode  GSAccessMode
  void SetAccessMode(std::int32_t mode) { Base::SetInfoAsInt(GSN_INFO_ACCESS_MODE, mode); }
  /// \param mode  GSCacheMode
  void SetCacheMode(std::int32_t mode) { Base::SetInfoAsInt(GSN_INFO_CACHING_MODE, mode); }

  /// Bytes; the address from creation plus the present values of the address nodes.
  std::int64_t Address() const { return Base::GetInfoAsInt(GSN_INFO_REGISTER_ADDRESS); }
  /// Bytes.
  std::int64_t Length() const { return Base::GetInfoAsInt(GSN_INFO_REGISTER_LENGTH); }
  /// Nodes whose values add to the address; joined with Add(node, GSN_LIST_ADDRESSES).
  std::vector<std::shared_ptr<Node>> AddressNodes() const { return Base::Related(GSN_LIST_ADDRESSES); }
  /// Nodes whose change makes a cached value void.
  std::vector<std::shared_ptr<Node>> InvalidatorNodes() const { return Base::Related(GSN_LIST_INVALIDATOR); }

  /// \param milliseconds  0 for a register that is not polled
  void SetPollingTime(std::int64_t milliseconds) { Base::SetInfoAsInt(GSN_INFO_POLLING_TIME, milliseconds); }
};

}  // namespace Private

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

/// A text register.
class StringRegNode final : public Private::RegisterNode<StringNode> {
 public:
  using RegisterNode::RegisterNode;

  /// A new free node; name and namespace as for IntegerNode::Create.
  /// \param length  bytes, a multiple of 4; the library refuses others
  static std::shared_ptr<StringRegNode> Create(std::string_view name, std::int64_t length,
                                               std::optional<std::int32_t> name_space = {},
                                               std::int64_t address = Private::kAutomaticAddress);
};

}  // namespace Tarn::GevServer
