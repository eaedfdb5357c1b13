#pragma once

/// Groups of features, as clients show them.

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "gevserver/nodes/value_node.h"

namespace Tarn::GevServer {

/// Groups nodes; has no value. Always read only, never cached, polled or streamed.
class CategoryNode final : public ValueNode {
 public:
  using ValueNode::ValueNode;

  /// A new free node; see IntegerNode::Create.
  static std::shared_ptr<CategoryNode> Create(std::string_view name,
                                              std::optional<std::int32_t> name_space = {});

  std::vector<std::shared_ptr<Node>> Nodes() const { return Related(GSN_LIST_CHILD); }

  std::int32_t AccessMode() const override { return GS_ACCESS_READ_ONLY; }
  std::int32_t CacheMode() const override { return GS_CACHE_NO_CACHE; }
  std::int64_t PollingTime() const override { return 0; }
  bool IsStreamable() const override { return false; }
  /// Throws: std::runtime_error "Category nodes cannot be streamed".
  void SetIsStreamable(bool /*streamable*/) override {
    throw std::runtime_error("Category nodes cannot be streamed");
  }
  /// Full name of the alias, empty without one.
  std::string ToString() const override { return GetInfoAsString(GSN_INFO_ALIAS); }
  /// Throws: std::runtime_error "not implemented".
  void FromString(const std::string& /*text*/) override { throw std::runtime_error("not implemented"); }
};

}  // namespace Tarn::GevServer
