#pragma once

/// Choices among named values.

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "gevserver/nodes/number_base_nodes.h"
#include "gevserver/nodes/value_chain.h"

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
  void SetIsStreamable(bool /*streamable*/) override {
    throw std::runtime_error("EnumEntry nodes cannot be streamed");
  }
  /// The symbolic value.
  std::string ToString() const override { return SymbolicValue(); }
  /// Throws: std::runtime_error "Symbolic values cannot be set as value".
  void FromString(const std::string& /*text*/) override {
    throw std::runtime_error("Symbolic values cannot be set as value");
  }
};

/// One of its entries at a time. Entries join with Add(entry, GSN_LIST_CHILD), which puts them into the map
/// as well.
class EnumerationNode final : public Private::ValueConfigured<SelectorNode, IntegerBaseNode> {
 public:
  using ValueConfigured::ValueConfigured;

  /// A new free node; see IntegerNode::Create.
  static std::shared_ptr<EnumerationNode> Create(std::string_view name,
                                                 std::optional<std::int32_t> name_space = {});

  std::vector<std::shared_ptr<EnumEntryNode>> Entries() const;

  /// Name of the current entry.
  std::string SymbolicValue() const { return ToString(); }
  void SetSymbolicValue(const std::string& text) { FromString(text); }
  /// Number of the current entry.
  std::int64_t NumericValue() const;

  std::int64_t ValueConfigAsInt() const { return GetInfoAsInt(GSN_INFO_VALUE); }
  void SetValueConfigAsInt(std::int64_t value) { SetInfoAsInt(GSN_INFO_VALUE, value); }
};

}  // namespace Tarn::GevServer
