#pragma once

/// The right node object for a handle.

#include <memory>

#include "core/handle_guard.h"
#include "gevserver/nodes/node.h"

namespace Tarn::GevServer::Private {

inline constexpr const char* kNoLengthOfNode = "failed to get node register length";
inline constexpr const char* kNoLengthInListing = "failed to get register length";

/// A node of a type that has no class: offers what every node has, but for the access and cache mode, which
/// need to know the type.
class DefaultNode final : public Node {
 public:
  using Node::Node;

  /// Throws: std::runtime_error "not implemented".
  std::int32_t AccessMode() const override;
  std::int32_t CacheMode() const override;
};

/// The object of a library node: the one that exists, else a new one of the class that type and length
/// select.
/// \param map             the map of a new object
/// \param length_failure  text for a register whose length cannot be had
/// Throws: the kind of the library's code, with "failed to get node type" or `length_failure`;
///   std::runtime_error "invalid node type".
std::shared_ptr<Node> NodeOfHandle(HandleGuard<Node> handle, std::weak_ptr<NodeMap> map,
                                   const char* length_failure);

}  // namespace Tarn::GevServer::Private
