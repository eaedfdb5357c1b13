#pragma once

/// Texts in the register space.

#include <optional>
#include <string_view>

#include "gevserver/nodes/register_node.h"
#include "gevserver/nodes/string_node.h"

namespace Tarn::GevServer {

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
