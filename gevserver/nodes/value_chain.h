#pragma once

/// Nodes without a register of their own, whose access and cache mode are those of the node that supplies the
/// value.

#include <memory>
#include <string>

#include "gevserver/nodes/node.h"

namespace Tarn::GevServer::Private {

/// A node whose value is a constant or comes from another node. `Source` is a shared pointer to the kind of
/// node that can supply it.
template <class Source>
class IHasValueConfig {
 public:
  virtual ~IHasValueConfig() = default;
  /// Null for a constant.
  virtual Source ValueConfigAsNode() const = 0;
};

/// Marks nodes whose value lies in the register space: the ends of value chains.
class IConfigurableRegisterNode {
 public:
  virtual ~IConfigurableRegisterNode() = default;
};

/// Marks commands.
class IConfigurableCommandNode {
 public:
  virtual ~IConfigurableCommandNode() = default;
};

/// The node at the end of a node's value chain: a register, a node with a constant value, or one that has no
/// value configuration at all. Null when the value of `node` itself is a constant.
/// Throws: std::runtime_error for a chain that does not end.
std::shared_ptr<Node> EndOfValueChain(const Node& node);

/// Access and cache mode by the value chain; read-write and not cached without one.
std::int32_t ValueChainAccessMode(const Node& node);
std::int32_t ValueChainCacheMode(const Node& node);

/// Adds a value configuration to a node class.
/// \tparam Base    the node class;
/// \tparam Source  the class of nodes that can supply the value
template <class Base, class Source>
class ValueConfigured : public Base, public IHasValueConfig<std::shared_ptr<Source>> {
 public:
  using Base::Base;

  std::int32_t AccessMode() const override { return ValueChainAccessMode(*this); }
  std::int32_t CacheMode() const override { return ValueChainCacheMode(*this); }

  /// The node that supplies the value; null when it is a constant.
  std::shared_ptr<Source> ValueConfigAsNode() const override { return ConfigAsNode(GSN_INFO_VALUE); }
  /// Throws: std::runtime_error "node to set must not be empty".
  void SetValueConfigAsNode(const std::shared_ptr<Source>& node) { Base::SetInfo(GSN_INFO_VALUE, node); }

 protected:
  std::shared_ptr<Source> ConfigAsNode(std::int32_t info) const {
    return std::dynamic_pointer_cast<Source>(Base::GetInfoAsNode(info));
  }
};

}  // namespace Tarn::GevServer::Private
