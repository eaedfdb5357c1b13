#pragma once

/// Nodes of a kind that has no class.

#include "gevserver/nodes/node.h"

namespace Tarn::GevServer::Private {

/// Offers what every node has, but for the access and cache mode, which need to know the kind.
class DefaultNode final : public Node {
 public:
  using Node::Node;

  /// Throws: std::runtime_error "not implemented".
  std::int32_t AccessMode() const override;
  std::int32_t CacheMode() const override;
};

}  // namespace Tarn::GevServer::Private
