#pragma once

/// Commands: nodes that a client executes.

#include <optional>
#include <stdexcept>
#include <string_view>

#include "gevserver/nodes/boolean_value.h"
#include "gevserver/nodes/number_base_nodes.h"
#include "gevserver/nodes/value_chain.h"

namespace Tarn::GevServer {

/// Executed by writing the command value to the node that supplies the value.
class CommandNode final : public Private::ValueConfigured<ValueNode, IntegerBaseNode>,
                          public Private::IConfigurableCommandNode {
 public:
  using ValueConfigured::ValueConfigured;

  /// A new free node; see IntegerNode::Create.
  static std::shared_ptr<CommandNode> Create(std::string_view name,
                                             std::optional<std::int32_t> name_space = {});

  void Execute() { Private::SetBoolean(Handle(), true); }
  /// False while a readable command is being executed; commands that cannot be read are done at once.
  bool IsDone() const { return !IsReadable() || Private::GetBoolean(Handle()); }

  /// The integer that executes the command: a node (null for a constant) or a constant.
  std::shared_ptr<IntegerBaseNode> CommandConfigAsNode() const { return ConfigAsNode(GSN_INFO_ON_VALUE); }
  void SetCommandConfigAsNode(const std::shared_ptr<IntegerBaseNode>& node) {
    SetInfo(GSN_INFO_ON_VALUE, node);
  }
  std::int64_t CommandConfigAsInt() const { return GetInfoAsInt(GSN_INFO_ON_VALUE); }
  void SetCommandConfigAsInt(std::int64_t value) { SetInfoAsInt(GSN_INFO_ON_VALUE, value); }

  std::int64_t ValueConfigAsInt() const { return GetInfoAsInt(GSN_INFO_VALUE); }
  void SetValueConfigAsInt(std::int64_t value) { SetInfoAsInt(GSN_INFO_VALUE, value); }

  bool IsStreamable() const override { return false; }
  /// Throws: std::runtime_error "Command nodes cannot be streamed".
  void SetIsStreamable(bool /*streamable*/) override {
    throw std::runtime_error("Command nodes cannot be streamed");
  }
  /// As BooleanNode.
  std::string ToString() const override { return Private::BooleanText(Private::GetBoolean(Handle())); }
  void FromString(const std::string& text) override {
    Private::SetBoolean(Handle(), Private::ParseBoolean(text));
  }
};

}  // namespace Tarn::GevServer
