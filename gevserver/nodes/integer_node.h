#pragma once

/// Integers whose value and limits are constants or come from other nodes.

#include <optional>
#include <string_view>

#include "gevserver/nodes/number_base_nodes.h"
#include "gevserver/nodes/value_chain.h"

namespace Tarn::GevServer {

/// An integer; each of value, minimum, maximum and increment is configured as a constant or a node. Node
/// getters return null for a constant; node setters throw std::runtime_error "node to set must not be empty".
class IntegerNode final : public Private::ValueConfigured<IntegerBaseNode, IntegerBaseNode> {
 public:
  using ValueConfigured::ValueConfigured;

  /// A new free node.
  /// \param name  with a prefix, or without and with `name_space` (GSNameSpace, custom by default)
  static std::shared_ptr<IntegerNode> Create(std::string_view name,
                                             std::optional<std::int32_t> name_space = {});

  std::int64_t ValueConfigAsInt() const { return GetInfoAsInt(GSN_INFO_VALUE); }
  void SetValueConfigAsInt(std::int64_t value) { SetInfoAsInt(GSN_INFO_VALUE, value); }

  std::shared_ptr<IntegerBaseNode> MinConfigAsNode() const { return ConfigAsNode(GSN_INFO_MIN); }
  void SetMinConfigAsNode(const std::shared_ptr<IntegerBaseNode>& node) { SetInfo(GSN_INFO_MIN, node); }
  std::int64_t MinConfigAsInt() const { return GetInfoAsInt(GSN_INFO_MIN); }
  void SetMinConfigAsInt(std::int64_t value) { SetInfoAsInt(GSN_INFO_MIN, value); }

  std::shared_ptr<IntegerBaseNode> MaxConfigAsNode() const { return ConfigAsNode(GSN_INFO_MAX); }
  void SetMaxConfigAsNode(const std::shared_ptr<IntegerBaseNode>& node) { SetInfo(GSN_INFO_MAX, node); }
  std::int64_t MaxConfigAsInt() const { return GetInfoAsInt(GSN_INFO_MAX); }
  void SetMaxConfigAsInt(std::int64_t value) { SetInfoAsInt(GSN_INFO_MAX, value); }

  std::shared_ptr<IntegerBaseNode> IncrementConfigAsNode() const { return ConfigAsNode(GSN_INFO_INCREMENT); }
  void SetIncrementConfigAsNode(const std::shared_ptr<IntegerBaseNode>& node) {
    SetInfo(GSN_INFO_INCREMENT, node);
  }
  std::int64_t IncrementConfigAsInt() const { return GetInfoAsInt(GSN_INFO_INCREMENT); }
  void SetIncrementConfigAsInt(std::int64_t value) { SetInfoAsInt(GSN_INFO_INCREMENT, value); }
};

}  // namespace Tarn::GevServer
