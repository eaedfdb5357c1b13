#pragma once

/// Entries of enumerations.

#include <optional>
#include <string_view>

#include "gevserver/nodes/value_node.h"

namespace Tarn::GevServer {

/// One choice of an enumeration: a name and a number. Always read only, never cached, polled or streamed.
class EnumEntryNode final : public ValueNode {
 public:
  using ValueNode::ValueNode;

  /// A new free node; see IntegerNode::Create.
  static std::shared_ptr<EnumEntryNode> Create(std::string_view name,
                                               std::optional<std::int32_t> name_space = {});

  std::int64_t NumericValue() const { return GetInfoAsInt(GSN_INFO_VALUE); }
  void SetNumericValue(std::int64_t value) { SetInfoAsInt(GSN_INFO_VALUE, value); }
  std::string SymbolicValue() const { return GetInfoAsString(GSN_INFO_VALUE); }
  void SetSymbolicValue(const std::string& text) { SetInfoAsString(GSN_INFO_VALUE, text); }

  std::int32_t AccessMode() const override { return GS_ACCESS_READ_ONLY; }
  std::int32_t CacheMode() const override { return GS_CACHE_NO_CACHE; }
  std::int64_t PollingTime() const override { return 0; }
  bool IsStreamable() const override { return false; }
  /// Throws: std::runtime_error "EnumEntry nodes cannot be streamed".
  void SetIsStreamable(bool streamable) override;
  /// The symbolic value.
  std::string ToString() const override { return SymbolicValue(); }
  /// Throws: std::runtime_error "Symbolic values cannot be set as value".
  void FromString(const std::string& text) override;
};

}  // namespace Tarn::GevServer
