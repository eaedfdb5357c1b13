#pragma once

/// Choices among named values.

#include <optional>
#include <string_view>
#include <vector>

#include "gevserver/nodes/enum_entry_node.h"
#include "gevserver/nodes/integer_base_node.h"
#include "gevserver/nodes/value_chain.h"

namespace Tarn::GevServer {

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
