#pragma once

/// What all register nodes have.

#include <cstdint>
#include <memory>
#include <vector>

#include "gevserver/nodes/node.h"
#include "gevserver/nodes/value_config.h"

namespace Tarn::GevServer::Private {

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

}  // namespace Tarn::GevServer::Private
