#pragma once

/// Texts.

#include <optional>
#include <string_view>

#include "gevserver/nodes/value_chain.h"
#include "gevserver/nodes/value_node.h"

namespace Tarn::GevServer {

/// A text, as a constant or from another string node.
class StringNode : public Private::ValueConfigured<SelectorNode, StringNode> {
 public:
  using ValueConfigured::ValueConfigured;

  /// A new free node; see IntegerNode::Create.
  static std::shared_ptr<StringNode> Create(std::string_view name,
                                            std::optional<std::int32_t> name_space = {});

  /// UTF-8.
  std::string Value() const { return ToString(); }
  void SetValue(const std::string& text) { FromString(text); }

  std::string ValueConfigAsString() const { return GetInfoAsString(GSN_INFO_VALUE); }
  void SetValueConfigAsString(const std::string& text) { SetInfoAsString(GSN_INFO_VALUE, text); }
};

}  // namespace Tarn::GevServer
