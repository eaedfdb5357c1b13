#pragma once

/// Booleans over an integer value.

#include <optional>
#include <string_view>

#include "gevserver/nodes/boolean_value.h"
#include "gevserver/nodes/number_base_nodes.h"
#include "gevserver/nodes/value_chain.h"

namespace Tarn::GevServer {

/// True and false, each standing for an integer.
class BooleanNode final : public Private::ValueConfigured<ValueNode, IntegerBaseNode> {
 public:
  using ValueConfigured::ValueConfigured;

  /// A new free node; see IntegerNode::Create.
  static std::shared_ptr<BooleanNode> Create(std::string_view name,
                                             std::optional<std::int32_t> name_space = {});

  bool Value() const { return Private::GetBoolean(Handle()); }
  void SetValue(bool value) { Private::SetBoolean(Handle(), value); }

  /// The integers that stand for true and for false.
  std::int64_t OnValue() const { return GetInfoAsInt(GSN_INFO_ON_VALUE); }
  void SetOnValue(std::int64_t value) { SetInfoAsInt(GSN_INFO_ON_VALUE, value); }
  std::int64_t OffValue() const { return GetInfoAsInt(GSN_INFO_OFF_VALUE); }
  void SetOffValue(std::int64_t value) { SetInfoAsInt(GSN_INFO_OFF_VALUE, value); }

  std::int64_t ValueConfigAsInt() const { return GetInfoAsInt(GSN_INFO_VALUE); }
  void SetValueConfigAsInt(std::int64_t value) { SetInfoAsInt(GSN_INFO_VALUE, value); }

  /// "true" or "false".
  std::string ToString() const override { return Private::BooleanText(Value()); }
  /// "true" in any case sets true, any other text false.
  /// Throws: std::runtime_error "String must not be empty".
  void FromString(const std::string& text) override { SetValue(Private::ParseBoolean(text)); }
};

}  // namespace Tarn::GevServer
