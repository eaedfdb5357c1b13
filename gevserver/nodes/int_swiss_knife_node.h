#pragma once

/// Integers that are computed from other nodes.

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "gevserver/nodes/number_base_nodes.h"

namespace Tarn::GevServer {

/// A formula over variables, computed by the library at each read. Always read only; never cached or polled,
/// since its variables may differ in that.
class IntSwissKnifeNode final : public IntegerBaseNode {
 public:
  using IntegerBaseNode::IntegerBaseNode;

  /// A new free node; see IntegerNode::Create.
  static std::shared_ptr<IntSwissKnifeNode> Create(std::string_view name,
                                                   std::optional<std::int32_t> name_space = {});

  std::string Formula() const { return GetInfoAsString(GSN_INFO_FORMULA); }
  /// Requires: the variables have been added (Add with GSN_LIST_CHILD); the library checks the formula here.
  void SetFormula(const std::string& formula) { SetInfoAsString(GSN_INFO_FORMULA, formula); }

  /// Supplying nodes by the names of the variables.
  std::map<std::string, std::shared_ptr<Node>> Variables() const {
    const auto named = NamedRelated(GSN_LIST_CHILD);
    return {named.begin(), named.end()};
  }

  std::int32_t AccessMode() const override { return GS_ACCESS_READ_ONLY; }
  std::int32_t CacheMode() const override { return GS_CACHE_NO_CACHE; }
  std::int64_t PollingTime() const override { return 0; }
};

}  // namespace Tarn::GevServer
